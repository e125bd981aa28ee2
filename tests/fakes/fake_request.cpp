#include "fakes/fake_request.h"

#include <cstdio>
#include <cstring>

#include "fakes/allocation_faults.h"
#include "fakes/fault.h"
#include "protocol/codec.h"

namespace OstrandFakes {

using ostrand_protocol_cs::OStrandPkg;
using ostrand_protocol_cs::OStrandPkgHead;

namespace {

constexpr size_t kContextRoom = 14;  // behind the user's bytes

FakeRequest::Bytes BytesOf(const char* buffer, size_t len) {
  return buffer != nullptr ? FakeRequest::Bytes(std::string(buffer, len)) : std::nullopt;
}

}  // namespace

FakeRequest::FakeRequest(uint32_t cmd, int32_t zone_id, const char* table_name, Journal* journal)
    : m_journal(journal), m_pkg(ostrand_protocol_cs::NewOStrandPkg()), m_user(kContextRoom) {
  SetCmd(cmd);
  SetZoneId(zone_id);
  SetTableName(table_name);
}

void FakeRequest::Note(const char* what) {
  if (m_journal != nullptr) {
    m_journal->Add(what);
  }
}

void FakeRequest::SetCmd(uint32_t cmd) {
  m_pkg->stHead.dwCmd = cmd;
  m_pkg->stBody.construct(cmd);  // Codes that are no command have no body; packing refuses them.
}

void FakeRequest::SetTableName(const char* table_name) {
  m_has_table_name = table_name != nullptr;
  const std::string text = m_has_table_name ? table_name : "";
  auto& info = m_pkg->stHead.stRouterInfo;
  if (text.size() >= sizeof(info.szTableName)) {
    Fault("a table name of %zu characters", text.size());
  }
  std::memcpy(info.szTableName, text.c_str(), text.size() + 1);
  info.dwTableNameLen = text.empty() ? 0 : static_cast<uint32_t>(text.size() + 1);
}

void FakeRequest::SetUserBytes(const std::string& bytes) {
  m_user = std::vector<char>(bytes.size() + kContextRoom);
  std::memcpy(m_user.data(), bytes.data(), bytes.size());
}

const char* FakeRequest::GetTableName(size_t* len) const {
  const char* name = m_has_table_name ? m_pkg->stHead.stRouterInfo.szTableName : nullptr;
  if (len != nullptr) {
    *len = name != nullptr ? std::strlen(name) : 0;
  }
  return name;
}

char* FakeRequest::GetUserBuff(size_t* len) {
  if (len != nullptr) {
    *len = m_user.size() - kContextRoom;
  }
  return m_user.data();
}

int FakeRequest::SetPkgUserBuff(const char* buffer, size_t len) {
  const UnwatchedAllocations unwatched;
  Note("SetPkgUserBuff");
  m_pkg_user_buffs.push_back(BytesOf(buffer, len));
  if (m_pkg_user_buff_result != 0) {
    return m_pkg_user_buff_result;
  }
  OStrandPkgHead& head = m_pkg->stHead;
  if (len > sizeof(head.szUserBuff)) {
    return ostrand_protocol_cs::OSTRAND_CODEC_ERR_USER_BUFF_LEN;
  }
  std::memcpy(head.szUserBuff, buffer, len);
  head.dwUserBuffLen = static_cast<uint32_t>(len);
  return 0;
}

int FakeRequest::Print(char* buffer, size_t size) {
  const UnwatchedAllocations unwatched;
  Note("Print");
  m_prints.push_back({buffer, size});
  if (m_print_result != 0) {
    return m_print_result;
  }
  std::snprintf(buffer, size, "%s", m_print_text.c_str());
  return 0;
}

int FakeRequest::Pack(char* buffer, size_t& len) {
  const UnwatchedAllocations unwatched;
  Note("Pack");
  m_packs.push_back({buffer, len});
  if (m_pack_result != 0) {
    return m_pack_result;
  }
  return ostrand_protocol_cs::PackWholeCsPkgMaybeCompress(
      buffer, len, nullptr, 0, *m_pkg, ostrand_protocol_cs::OSTRAND_PKG_CURRENT_VERSION, nullptr);
}

int FakeRequest::SetPerfTest(const char* buffer, size_t len) {
  const UnwatchedAllocations unwatched;
  Note("SetPerfTest");
  m_perf_tests.push_back(BytesOf(buffer, len));
  if (m_perf_test_result != 0) {
    return m_perf_test_result;
  }
  OStrandPkgHead& head = m_pkg->stHead;
  if (len > sizeof(head.szPerfTest)) {
    return ostrand_protocol_cs::OSTRAND_CODEC_ERR_PERF_TEST_LEN;
  }
  if (len > 0) {
    std::memcpy(head.szPerfTest, buffer, len);
  }
  head.dwPerfTestLen = static_cast<uint32_t>(len);
  return 0;
}

}  // namespace OstrandFakes
