#include "fakes/fake_response.h"

#include <cstring>

#include "fakes/allocation_faults.h"
#include "fakes/fault.h"
#include "protocol/codec.h"

namespace OstrandFakes {

using ostrand_protocol_cs::OStrandPkg;
using ostrand_protocol_cs::OStrandPkgHead;

FakeResponse::FakeResponse(Journal* journal)
    : m_journal(journal), m_pkg(ostrand_protocol_cs::NewOStrandPkg()) {}

void FakeResponse::Note(const char* what) {
  if (m_journal != nullptr) {
    m_journal->Add(what);
  }
}

void FakeResponse::Begin(uint32_t cmd, int32_t zone_id, const std::string& table_name) {
  const UnwatchedAllocations unwatched;
  OStrandPkgHead& head = m_pkg->stHead;
  head.construct();
  head.dwCmd = cmd;
  m_pkg->stBody.construct(cmd);  // Codes that are no command have no body.
  m_user_buff.reset();
  auto& info = head.stRouterInfo;
  info.iZoneID = zone_id;
  if (table_name.size() >= sizeof(info.szTableName)) {
    Fault("a table name of %zu characters", table_name.size());
  }
  std::memcpy(info.szTableName, table_name.c_str(), table_name.size() + 1);
  info.dwTableNameLen = table_name.empty() ? 0 : static_cast<uint32_t>(table_name.size() + 1);
}

void FakeResponse::SetPkgUserBytes(const std::string& bytes) {
  OStrandPkgHead& head = m_pkg->stHead;
  if (bytes.size() > sizeof(head.szUserBuff)) {
    Fault("a user buffer of %zu bytes", bytes.size());
  }
  std::memcpy(head.szUserBuff, bytes.data(), bytes.size());
  head.dwUserBuffLen = static_cast<uint32_t>(bytes.size());
}

std::string FakeResponse::UserBytes() {
  size_t len = 0;
  const char* bytes = GetUserBuff(&len);
  return bytes != nullptr ? std::string(bytes, len) : "";
}

const char* FakeResponse::GetPkgUserBuff(size_t* len) {
  if (m_lost_user_buff.has_value()) {
    *len = *m_lost_user_buff;
    return nullptr;
  }
  *len = m_pkg->stHead.dwUserBuffLen;
  return m_pkg->stHead.szUserBuff;
}

const char* FakeResponse::GetUserBuff(size_t* len) {
  if (!m_user_buff.has_value()) {
    return GetPkgUserBuff(len);
  }
  *len = m_user_buff->size();
  return m_user_buff->data();
}

int FakeResponse::SetUserBuff(const char* buffer, unsigned int len) {
  const UnwatchedAllocations unwatched;
  Note("SetUserBuff");
  m_user_buffs.emplace_back(buffer, len);
  if (m_user_buff_result != 0) {
    return m_user_buff_result;
  }
  m_user_buff = std::string(buffer, len);
  return 0;
}

int FakeResponse::GetOstrandPackagePtr(const OStrandPkg*& pkg) {
  pkg = m_has_pkg ? m_pkg.get() : nullptr;
  return pkg != nullptr ? 0 : -1;
}

const char* FakeResponse::GetTableName(size_t* len) const {
  const auto& info = m_pkg->stHead.stRouterInfo;
  const char* name = info.dwTableNameLen > 0 ? info.szTableName : nullptr;
  if (len != nullptr) {
    *len = name != nullptr ? std::strlen(name) : 0;
  }
  return name;
}

const char* FakeResponse::GetPerfTest(size_t* len) const {
  *len = m_pkg->stHead.dwPerfTestLen;
  return *len > 0 ? m_pkg->stHead.szPerfTest : nullptr;
}

int FakeResponse::HaveMoreResPkgs() {
  switch (GetCmd()) {
    case ostrand_protocol_cs::OSTRAND_API_LIST_GETALL_RES:
      return m_pkg->stBody.stListGetAllRes.bHasMorePkgs != 0 ? 1 : 0;
    case ostrand_protocol_cs::OSTRAND_API_GET_BY_PARTKEY_RES:
      return m_pkg->stBody.stGetByPartKeyRes.bHasMorePkgs != 0 ? 1 : 0;
    default: return 0;
  }
}

int FakeResponse::Unpack(const char* data, size_t len) {
  const UnwatchedAllocations unwatched;
  Note("Unpack");
  ++m_unpacks;
  m_user_buff.reset();
  int result = m_unpack_result;
  if (result == 0) {
    result = ostrand_protocol_cs::UnpackWholeCsPkgMaybeDecompress(*m_pkg, nullptr, 0, data, len,
                                                                  nullptr, nullptr, 0);
  }
  if (m_unpack_hook) {
    m_unpack_hook(result);
  }
  return result;
}

int FakeResponse::BuildTimeOutRes(int64_t app_id, int32_t zone_id, const char* table_name,
                                  uint32_t resp_cmd, const char* user_buffer,
                                  uint32_t user_buffer_len, uint64_t async_id, int32_t seq) {
  const UnwatchedAllocations unwatched;
  Note("BuildTimeOutRes");
  TimeOut time_out{app_id,   zone_id,      table_name != nullptr ? table_name : "(null)",
                   resp_cmd, std::nullopt, user_buffer_len,
                   async_id, seq};
  if (user_buffer != nullptr) {
    time_out.user_buffer = std::string(user_buffer, user_buffer_len);
  }
  m_time_outs.push_back(time_out);
  if (m_time_out_hook) {
    m_time_out_hook();
  }
  if (m_time_out_result != 0) {
    return m_time_out_result;
  }
  Begin(resp_cmd, zone_id, time_out.table_name);
  OStrandPkgHead& head = m_pkg->stHead;
  head.stRouterInfo.iAppID = static_cast<int32_t>(app_id);
  head.iResult = kResultTimeOut;
  head.ullAsynID = async_id;
  head.iSeq = seq;
  m_user_buff = time_out.user_buffer.value_or("");
  return 0;
}

}  // namespace OstrandFakes
