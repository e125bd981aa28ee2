// A request as the router sees it: the adaptor between ClientRequest's head and bytes and the
// router's contract. One serves all requests of a loop, one after the other.
//
//   router_request.Load(request.Head(), request.Bytes());
//   router_request.SetAppId(...); SetTableSubscript(...); SetMetaVersion(...); SetTimeout(...);
//   router.SendRequest(&router_request);
//
// Its package has what the router looks at: the head with its key and, of TTL commands, the number
// of records and the first one's key. The body's other bytes are copied as they are when it is
// packed. Each sending begins with Load, also of the same request again.
//
// Ownership: owns its package (10 MiB of address space); borrows the bytes from Load to the end of
// the sending. Threads: one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "client/request_head.h"
#include "common/export.h"
#include "protocol/ostrand_protocol_cs.h"
#include "service_api/ostrand_service_request.h"

namespace OstrandService {

class OSTRAND_API RouterRequest : public OstrandServiceRequest {
 public:
  // Of the user buffer: the user's bytes and the routing context behind them.
  static constexpr size_t kUserBuffRoom = ostrand_protocol_cs::OSTRAND_MAX_USER_BUFF_LEN + 14;

  RouterRequest();
  ~RouterRequest() override;
  RouterRequest(const RouterRequest&) = delete;
  RouterRequest& operator=(const RouterRequest&) = delete;

  // Takes a request; nothing stays of the one before: application 0, subscript -1, schema version
  // -1. A zone that is not given stands as 0. bytes: head.BytesLen() of them, which stay as they
  // are until the sending ended. 0; ROUTER_ERR_ALLOCATION without package.
  int Load(const RequestHead& head, const char* bytes);

  void SetAppId(int32_t app_id);
  void SetZoneId(int32_t zone_id);
  void SetAsynID(uint64_t async_id);
  void SetMetaVersion(int32_t version);
  void SetTableSubscript(int32_t subscript) { m_table_subscript = subscript; }
  void SetTimeout(int32_t ms) { timeout_ms = ms; }

  // OstrandServiceRequest
  const char* GetTableName(size_t* len) const override;
  int32_t GetZoneId() const override;
  uint32_t GetCmd() const override;
  uint32_t GetSubCmd() const override;
  int32_t GetTableSubscript() const override { return m_table_subscript; }
  char* GetUserBuff(size_t* len) override;
  // OSTRAND_CODEC_ERR_USER_BUFF_LEN over 1024 bytes, ROUTER_ERR_ARGUMENT for null with a length.
  int SetPkgUserBuff(const char* buffer, size_t len) override;
  int32_t GetSequence() const override;
  uint64_t GetAsynID() const override;
  // Decodes the whole body into the package first, so that it is slow; for logs at DEBUG alone.
  int Print(char* buffer, size_t size) override;
  int Pack(char* buffer, size_t& len) override;
  // OSTRAND_CODEC_ERR_PERF_TEST_LEN over 256 bytes, ROUTER_ERR_ARGUMENT for null with a length.
  int SetPerfTest(const char* buffer, size_t len) override;
  ostrand_protocol_cs::OStrandPkg* GetPkg() override { return m_pkg.get(); }

 private:
  const std::unique_ptr<ostrand_protocol_cs::OStrandPkg> m_pkg;
  const char* m_body = nullptr;
  size_t m_body_len = 0;
  int32_t m_table_subscript = -1;
  size_t m_user_buff_len = 0;
  char m_user_buff[kUserBuffRoom] = {};
};

}  // namespace OstrandService
