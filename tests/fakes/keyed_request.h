// A request as the routing sees it: a command, a key and the index of its table.
//
// What only sending needs is missing: packing fails, texts are empty.
// Ownership: owns its package. Threads: one.
#pragma once

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

#include "protocol/ostrand_protocol_cs.h"
#include "service_api/ostrand_service_request.h"

namespace OstrandFakes {

class KeyedRequest : public OstrandService::OstrandServiceRequest {
 public:
  // Name and bytes of a key field.
  using Field = std::pair<std::string, std::string>;

  explicit KeyedRequest(
      ostrand_protocol_cs::OStrandApiCmds cmd = ostrand_protocol_cs::OSTRAND_API_GET_REQ);
  KeyedRequest(ostrand_protocol_cs::OStrandApiCmds cmd, std::initializer_list<Field> key);

  void SetCmd(uint32_t cmd) { m_pkg->stHead.dwCmd = cmd; }
  // The key in the head, or wherever else a package has one. Names are cut to 32 characters,
  // without a NUL then; bytes to 1024.
  void SetKey(std::initializer_list<Field> key) { SetKey(m_pkg->stHead.stKeyInfo, key); }
  static void SetKey(ostrand_protocol_cs::OStrandKeySet& key_set, std::initializer_list<Field> key);
  ostrand_protocol_cs::OStrandKeySet& key() { return m_pkg->stHead.stKeyInfo; }
  ostrand_protocol_cs::OStrandPkg& pkg() { return *m_pkg; }

  void SetTableSubscript(int32_t subscript) { m_table_subscript = subscript; }
  // GetPkg answers null from now on.
  void LoseThePackage() { m_has_pkg = false; }
  // Called in each GetPkg, which the routing does between two looks at the ring.
  void OnGetPkg(std::function<void()> hook) { m_hook = std::move(hook); }

  const char* GetTableName(size_t* len) const override;
  int32_t GetZoneId() const override { return 0; }
  uint32_t GetCmd() const override { return m_pkg->stHead.dwCmd; }
  uint32_t GetSubCmd() const override { return 0; }
  int32_t GetTableSubscript() const override { return m_table_subscript; }
  char* GetUserBuff(size_t* len) override;
  int SetPkgUserBuff(const char*, size_t) override { return -1; }
  int32_t GetSequence() const override { return 0; }
  uint64_t GetAsynID() const override { return 0; }
  int Print(char*, size_t) override { return -1; }
  int Pack(char*, size_t&) override { return -1; }
  int SetPerfTest(const char*, size_t) override { return -1; }
  ostrand_protocol_cs::OStrandPkg* GetPkg() override;

 private:
  std::unique_ptr<ostrand_protocol_cs::OStrandPkg> m_pkg;
  bool m_has_pkg = true;
  int32_t m_table_subscript = 0;
  std::function<void()> m_hook;
  char m_user_buffer[14] = {};
};

}  // namespace OstrandFakes
