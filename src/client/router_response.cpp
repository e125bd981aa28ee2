#include "client/router_response.h"

#include <cstring>

#include "client/package_table_name.h"
#include "protocol/codec.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {

using namespace ostrand_protocol_cs;  // NOLINT: packages

RouterResponse::RouterResponse() : m_pkg(NewOStrandPkg()) {}
RouterResponse::~RouterResponse() = default;

void RouterResponse::SetTarget(ClientResponse* target) {
  m_target = target != nullptr ? target : &m_own;
  m_frame_len = 0;
  m_has_user_buff = false;
  if (m_pkg != nullptr) {
    m_pkg->stHead.construct();
  }
}

void RouterResponse::HandOver() {
  m_target->Clear();
  if (m_pkg == nullptr) {
    return;
  }
  const OStrandPkgHead& from = m_pkg->stHead;
  ResponseHead& head = m_target->m_head;
  head.async_id = from.ullAsynID;
  head.cmd = from.dwCmd;
  head.sub_cmd = from.dwSubCmd;
  head.result = from.iResult;
  head.sequence = from.iSeq;
  head.app_id = from.stRouterInfo.iAppID;
  head.zone_id = from.stRouterInfo.iZoneID;
  head.meta_version = from.iVexMetaVersion;
  head.has_more = HaveMoreResPkgs() == 1;
  head.table_len = from.stRouterInfo.dwTableNameLen;
  if (m_is_time_out) {
    head.table_at = 0;
  } else if (m_frame_len > 0) {
    const OStrandHeadPlaces places = FindHeadPlaces(m_target->m_bytes.data());
    head.table_at = static_cast<uint32_t>(places.table);
    head.keys_at = static_cast<uint32_t>(places.key_set);
    head.user_at = static_cast<uint32_t>(places.user);
    head.user_len = from.dwUserBuffLen;
    head.body_at = from.dwHeadLen;
    head.body_len = from.dwBodyLen;
  }
  if (m_has_user_buff) {
    head.user_at = static_cast<uint32_t>(m_frame_len);
    head.user_len = static_cast<uint32_t>(m_user_buff_len);
  }
}

const char* RouterResponse::GetPkgUserBuff(size_t* len) {
  if (len != nullptr) {
    *len = m_pkg != nullptr ? m_pkg->stHead.dwUserBuffLen : 0;
  }
  return m_pkg != nullptr ? m_pkg->stHead.szUserBuff : nullptr;
}

const char* RouterResponse::GetUserBuff(size_t* len) {
  if (!m_has_user_buff) {
    return GetPkgUserBuff(len);
  }
  if (len != nullptr) {
    *len = m_user_buff_len;
  }
  return m_target->m_bytes.data() + m_frame_len;
}

// Stands behind the frame in the target's bytes.
int RouterResponse::SetUserBuff(const char* buffer, unsigned int len) {
  if (buffer == nullptr && len > 0) {
    return ROUTER_ERR_ARGUMENT;
  }
  char* const bytes = m_target->m_bytes.Resize(m_frame_len + len, m_frame_len);
  if (bytes == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  if (len > 0) {
    std::memcpy(bytes + m_frame_len, buffer, len);
  }
  m_user_buff_len = len;
  m_has_user_buff = true;
  return 0;
}

int RouterResponse::GetOstrandPackagePtr(const OStrandPkg*& pkg) {
  pkg = m_pkg.get();
  return m_pkg != nullptr ? 0 : ROUTER_ERR_ALLOCATION;
}

uint32_t RouterResponse::GetCmd() const { return m_pkg != nullptr ? m_pkg->stHead.dwCmd : 0; }

uint32_t RouterResponse::GetSubCmd() const { return m_pkg != nullptr ? m_pkg->stHead.dwSubCmd : 0; }

int32_t RouterResponse::GetResult() const { return m_pkg != nullptr ? m_pkg->stHead.iResult : 0; }

const char* RouterResponse::GetTableName(size_t* len) const {
  static const OStrandRouterInfo kNoName = {};
  return TableNameOf(m_pkg != nullptr ? m_pkg->stHead.stRouterInfo : kNoName, len);
}

int32_t RouterResponse::GetZoneId() const {
  return m_pkg != nullptr ? m_pkg->stHead.stRouterInfo.iZoneID : 0;
}

int32_t RouterResponse::GetSequence() const { return m_pkg != nullptr ? m_pkg->stHead.iSeq : 0; }

uint64_t RouterResponse::GetAsynID() const {
  return m_pkg != nullptr ? m_pkg->stHead.ullAsynID : 0;
}

const char* RouterResponse::GetPerfTest(size_t* len) const {
  if (len != nullptr) {
    *len = m_pkg != nullptr ? m_pkg->stHead.dwPerfTestLen : 0;
  }
  return m_pkg != nullptr ? m_pkg->stHead.szPerfTest : nullptr;
}

OStrandMultiPkgRes* RouterResponse::MultiPkgRes() const {
  switch (m_pkg != nullptr ? BodyKindOfCmd(m_pkg->stHead.dwCmd) : BodyKind::kUnknown) {
    case BodyKind::kListGetAllRes: return &m_pkg->stBody.stListGetAllRes;
    case BodyKind::kGetByPartKeyRes: return &m_pkg->stBody.stGetByPartKeyRes;
    default: return nullptr;
  }
}

int RouterResponse::HaveMoreResPkgs() {
  const OStrandMultiPkgRes* const body = MultiPkgRes();
  return body != nullptr && body->bHasMorePkgs != 0 ? 1 : 0;
}

int RouterResponse::Unpack(const char* data, size_t len) {
  m_has_user_buff = false;
  m_is_time_out = false;
  m_frame_len = 0;
  m_target->Clear();
  if (m_pkg == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  if (const int ret = UnpackHeadCheckBody(*m_pkg, data, len)) {
    return ret;
  }
  char* const bytes = m_target->m_bytes.Resize(len, 0);
  if (bytes == nullptr) {
    m_pkg->stHead.construct();
    return ROUTER_ERR_ALLOCATION;
  }
  std::memcpy(bytes, data, len);
  m_frame_len = len;
  return 0;
}

int RouterResponse::BuildTimeOutRes(int64_t app_id, int32_t zone_id, const char* table_name,
                                    uint32_t resp_cmd, const char* user_buffer,
                                    uint32_t user_buffer_len, uint64_t async_id, int32_t seq) {
  m_has_user_buff = false;
  m_is_time_out = true;
  m_frame_len = 0;
  m_target->Clear();
  if (m_pkg == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  OStrandPkgHead& head = m_pkg->stHead;
  head.construct();
  head.dwCmd = resp_cmd;
  head.iResult = ClientResponse::kResultTimeOut;
  head.stRouterInfo.iAppID = static_cast<int32_t>(app_id);
  head.stRouterInfo.iZoneID = zone_id;
  SetTableName(head.stRouterInfo, table_name);
  head.ullAsynID = async_id;
  head.iSeq = seq;
  m_pkg->stBody.construct(resp_cmd);
  if (OStrandMultiPkgRes* const body = MultiPkgRes()) {
    body->iResult = ClientResponse::kResultTimeOut;
  }
  // The table name stands in the target's bytes where else the frame does.
  const size_t table_len = head.stRouterInfo.dwTableNameLen;
  if (table_len > 0) {
    char* const bytes = m_target->m_bytes.Resize(table_len, 0);
    if (bytes == nullptr) {
      head.stRouterInfo.dwTableNameLen = 0;
      return ROUTER_ERR_ALLOCATION;
    }
    std::memcpy(bytes, head.stRouterInfo.szTableName, table_len);
    m_frame_len = table_len;
  }
  return user_buffer != nullptr ? SetUserBuff(user_buffer, user_buffer_len) : 0;
}

}  // namespace OstrandService
