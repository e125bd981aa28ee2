// A response that a router can really fill, over a package of its own: frames go through the real
// codec.
//
// A test may also write the package by hand and give the response to an operation that does not
// unpack.
// Ownership: owns its package; borrows the journal. Threads: one.
// Journal entries: "Unpack" (failed ones too), "SetUserBuff", "BuildTimeOutRes".
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fakes/journal.h"
#include "protocol/ostrand_protocol_cs.h"
#include "service_api/ostrand_service_response.h"

namespace OstrandFakes {

class FakeResponse : public OstrandService::OstrandServiceResponse {
 public:
  // The result of an answer that BuildTimeOutRes made.
  static constexpr int32_t kResultTimeOut = -20499;

  explicit FakeResponse(Journal* journal = nullptr);

  ostrand_protocol_cs::OStrandPkg& pkg() { return *m_pkg; }
  // A package of this command with its body constructed and an empty user buffer.
  void Begin(uint32_t cmd, int32_t zone_id, const std::string& table_name);
  void SetPkgUserBytes(const std::string& bytes);  // at most 1024

  // The script. What Unpack, SetUserBuff and BuildTimeOutRes answer from now on, doing nothing; 0:
  // they work again.
  void SetUnpackResult(int code) { m_unpack_result = code; }
  void SetUserBuffResult(int code) { m_user_buff_result = code; }
  void SetTimeOutResult(int code) { m_time_out_result = code; }
  // GetOstrandPackagePtr answers null from now on, and the other getters what they did.
  void LoseThePackage() { m_has_pkg = false; }
  // GetPkgUserBuff answers null and this length from now on.
  void LoseTheUserBuff(size_t len) { m_lost_user_buff = len; }
  // Called at the end of each Unpack, with its result; and in each BuildTimeOutRes.
  void OnUnpack(std::function<void(int)> hook) { m_unpack_hook = std::move(hook); }
  void OnTimeOut(std::function<void()> hook) { m_time_out_hook = std::move(hook); }

  // What happened.
  struct TimeOut {
    int64_t app_id;
    int32_t zone_id;
    std::string table_name;
    uint32_t resp_cmd;
    std::optional<std::string> user_buffer;  // none for a null pointer
    uint32_t user_buffer_len;
    uint64_t async_id;
    int32_t seq;
  };
  const std::vector<TimeOut>& time_outs() const { return m_time_outs; }
  int unpacks() const { return m_unpacks; }
  const std::vector<std::string>& user_buffs() const { return m_user_buffs; }  // of SetUserBuff
  // What a user would see: the bytes of GetUserBuff.
  std::string UserBytes();

  const char* GetPkgUserBuff(size_t* len) override;
  const char* GetUserBuff(size_t* len) override;
  int SetUserBuff(const char* buffer, unsigned int len) override;
  int GetOstrandPackagePtr(const ostrand_protocol_cs::OStrandPkg*& pkg) override;
  uint32_t GetCmd() const override { return m_pkg->stHead.dwCmd; }
  uint32_t GetSubCmd() const override { return m_pkg->stHead.dwSubCmd; }
  int32_t GetResult() const override { return m_pkg->stHead.iResult; }
  // Null when the package has no table name.
  const char* GetTableName(size_t* len) const override;
  int32_t GetZoneId() const override { return m_pkg->stHead.stRouterInfo.iZoneID; }
  int32_t GetSequence() const override { return m_pkg->stHead.iSeq; }
  uint64_t GetAsynID() const override { return m_pkg->stHead.ullAsynID; }
  const char* GetPerfTest(size_t* len) const override;
  int HaveMoreResPkgs() override;
  int Unpack(const char* data, size_t len) override;
  int BuildTimeOutRes(int64_t app_id, int32_t zone_id, const char* table_name, uint32_t resp_cmd,
                      const char* user_buffer, uint32_t user_buffer_len, uint64_t async_id,
                      int32_t seq) override;

 private:
  void Note(const char* what);

  Journal* const m_journal;
  const std::unique_ptr<ostrand_protocol_cs::OStrandPkg> m_pkg;
  std::optional<std::string> m_user_buff;  // what SetUserBuff put there
  bool m_has_pkg = true;
  std::optional<size_t> m_lost_user_buff;
  int m_unpack_result = 0;
  int m_user_buff_result = 0;
  int m_time_out_result = 0;
  std::function<void(int)> m_unpack_hook;
  std::function<void()> m_time_out_hook;

  std::vector<TimeOut> m_time_outs;
  int m_unpacks = 0;
  std::vector<std::string> m_user_buffs;
};

}  // namespace OstrandFakes
