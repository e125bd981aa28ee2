// A request that a router can really send: command, table and user's bytes over a package of its
// own, which goes through the real codec.
//
// The user's bytes stand in a block of exactly their size and 14 more: writing behind it is an
// error that shows. Each operation that can fail does so when it is told to.
// Ownership: owns its package; borrows the journal. Threads: one.
// Journal entries: "SetPerfTest", "SetPkgUserBuff", "Print", "Pack" (failed ones too).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fakes/journal.h"
#include "protocol/ostrand_protocol_cs.h"
#include "service_api/ostrand_service_request.h"

namespace OstrandFakes {

class FakeRequest : public OstrandService::OstrandServiceRequest {
 public:
  // table_name: null for none.
  FakeRequest(uint32_t cmd, int32_t zone_id, const char* table_name, Journal* journal = nullptr);

  // The request.
  void SetCmd(uint32_t cmd);
  void SetTableName(const char* table_name);
  void SetZoneId(int32_t zone_id) { m_pkg->stHead.stRouterInfo.iZoneID = zone_id; }
  void SetTableSubscript(int32_t subscript) { m_table_subscript = subscript; }
  void SetUserBytes(const std::string& bytes);
  ostrand_protocol_cs::OStrandPkg& pkg() { return *m_pkg; }

  // The script: what an operation answers from now on; it then does nothing. 0: it works again.
  void SetPkgUserBuffResult(int code) { m_pkg_user_buff_result = code; }
  void SetPackResult(int code) { m_pack_result = code; }
  void SetPerfTestResult(int code) { m_perf_test_result = code; }
  void SetPrintResult(int code) { m_print_result = code; }
  void SetPrintText(const std::string& text) { m_print_text = text; }

  // What happened.
  struct Space {
    const char* buffer;
    size_t size;
  };
  const std::vector<Space>& prints() const { return m_prints; }  // the arguments of each Print
  const std::vector<Space>& packs() const { return m_packs; }    // the arguments of each Pack
  // The bytes of each SetPkgUserBuff and SetPerfTest; none for a null pointer.
  using Bytes = std::optional<std::string>;
  const std::vector<Bytes>& pkg_user_buffs() const { return m_pkg_user_buffs; }
  const std::vector<Bytes>& perf_tests() const { return m_perf_tests; }
  // The whole block of the user's bytes, the 14 behind them included.
  std::string user_storage() const { return std::string(m_user.begin(), m_user.end()); }

  const char* GetTableName(size_t* len) const override;
  int32_t GetZoneId() const override { return m_pkg->stHead.stRouterInfo.iZoneID; }
  uint32_t GetCmd() const override { return m_pkg->stHead.dwCmd; }
  uint32_t GetSubCmd() const override { return m_pkg->stHead.dwSubCmd; }
  int32_t GetTableSubscript() const override { return m_table_subscript; }
  char* GetUserBuff(size_t* len) override;
  int SetPkgUserBuff(const char* buffer, size_t len) override;
  int32_t GetSequence() const override { return m_pkg->stHead.iSeq; }
  uint64_t GetAsynID() const override { return m_pkg->stHead.ullAsynID; }
  int Print(char* buffer, size_t size) override;
  int Pack(char* buffer, size_t& len) override;
  int SetPerfTest(const char* buffer, size_t len) override;
  ostrand_protocol_cs::OStrandPkg* GetPkg() override { return m_pkg.get(); }

 private:
  void Note(const char* what);

  Journal* const m_journal;
  const std::unique_ptr<ostrand_protocol_cs::OStrandPkg> m_pkg;
  bool m_has_table_name = false;
  int32_t m_table_subscript = 0;
  std::vector<char> m_user;
  int m_pkg_user_buff_result = 0;
  int m_pack_result = 0;
  int m_perf_test_result = 0;
  int m_print_result = 0;
  std::string m_print_text = "a request";

  std::vector<Space> m_prints;
  std::vector<Space> m_packs;
  std::vector<Bytes> m_pkg_user_buffs;
  std::vector<Bytes> m_perf_tests;
};

}  // namespace OstrandFakes
