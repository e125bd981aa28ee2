// An answer as the router sees it: the adaptor between the router's contract and ClientResponse.
// One serves all answers of a loop, one after the other.
//
//   router_response.SetTarget(&response);          // where the next outcome goes
//   if (router.RecvResponse(&router_response, nullptr) == 1) {
//     ... router_response.GetAsynID() ...          // whose outcome is it?
//     router_response.HandOver();                  // now `response` is it
//   }
//
// Unpack checks the whole frame, decodes its head into a package that the router may change, and
// copies the frame's bytes once, into the target. Of bodies only metadata are decoded whole, and of
// answers in several packages their result and whether more follow: that is what the router looks
// at. HandOver gives the target its head, with what the router changed: the result, and the user
// buffer without routing context or as the in-flight table kept it.
//
// Ownership: owns its package (10 MiB of address space); borrows the target, and the frame only
// during Unpack. Threads: one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "client/client_response.h"
#include "common/export.h"
#include "protocol/ostrand_protocol_cs.h"
#include "service_api/ostrand_service_response.h"

namespace OstrandService {

class OSTRAND_API RouterResponse : public OstrandServiceResponse {
 public:
  RouterResponse();
  ~RouterResponse() override;
  RouterResponse(const RouterResponse&) = delete;
  RouterResponse& operator=(const RouterResponse&) = delete;

  // The response that Unpack, SetUserBuff and BuildTimeOutRes write their bytes to; it is no
  // outcome until HandOver. null: one of its own.
  void SetTarget(ClientResponse* target);

  // Makes the target the outcome that this is now.
  void HandOver();

  // OstrandServiceResponse
  const char* GetPkgUserBuff(size_t* len) override;
  const char* GetUserBuff(size_t* len) override;
  // Any length. ROUTER_ERR_ARGUMENT for null with a length; ROUTER_ERR_ALLOCATION. After a failure
  // the user buffer is as before.
  int SetUserBuff(const char* buffer, unsigned int len) override;
  int GetOstrandPackagePtr(const ostrand_protocol_cs::OStrandPkg*& pkg) override;
  uint32_t GetCmd() const override;
  uint32_t GetSubCmd() const override;
  int32_t GetResult() const override;
  const char* GetTableName(size_t* len) const override;
  int32_t GetZoneId() const override;
  int32_t GetSequence() const override;
  uint64_t GetAsynID() const override;
  const char* GetPerfTest(size_t* len) const override;
  // As the package says it, whatever the result: the router keeps its books by that.
  int HaveMoreResPkgs() override;
  // The codes of the codec, ROUTER_ERR_ALLOCATION; then nothing of an older answer is left.
  int Unpack(const char* data, size_t len) override;
  // The result is kResultTimeOut, in a body that has one, too. Without memory for the user buffer
  // the answer has none and the code is ROUTER_ERR_ALLOCATION.
  int BuildTimeOutRes(int64_t app_id, int32_t zone_id, const char* table_name, uint32_t resp_cmd,
                      const char* user_buffer, uint32_t user_buffer_len, uint64_t async_id,
                      int32_t seq) override;

 private:
  ostrand_protocol_cs::OStrandMultiPkgRes* MultiPkgRes() const;

  const std::unique_ptr<ostrand_protocol_cs::OStrandPkg> m_pkg;
  ClientResponse m_own;
  ClientResponse* m_target = &m_own;
  bool m_is_time_out = false;
  size_t m_frame_len = 0;  // of the frame in the target's bytes, of a time-out the table name's;
                           // what SetUserBuff set stands behind it
  bool m_has_user_buff = false;  // else the package's counts
  size_t m_user_buff_len = 0;
};

}  // namespace OstrandService
