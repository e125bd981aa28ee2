#include "client/router_request.h"

#include <algorithm>
#include <cstring>

#include "client/package_table_name.h"
#include "protocol/codec.h"
#include "protocol/codec_key_set.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {

using namespace ostrand_protocol_cs;  // NOLINT: packages

namespace {

// The first entry of a TTL command's body, for the routing. Every request has passed through here
// from ClientRequest, which wrote the body: nothing in it is malformed.
void LoadFirstEntry(OStrandPkgBody& body, BodyKind kind, const char* bytes, size_t len) {
  ByteReader in(bytes, len, OSTRAND_CODEC_ERR_BODY_TRUNCATED);
  uint32_t num = 0;
  in.Get(num);
  const bool is_set = kind == BodyKind::kSetTTLReq;
  (is_set ? body.stSetTTLReq.dwRecordNum : body.stGetTTLReq.dwRecordNum) = num;
  if (num > 0) {
    UnpackKeySet(in, is_set ? body.stSetTTLReq.astKeyInfo[0] : body.stGetTTLReq.astKeyInfo[0]);
  }
}

}  // namespace

RouterRequest::RouterRequest() : m_pkg(NewOStrandPkg()) {}
RouterRequest::~RouterRequest() = default;

int RouterRequest::Load(const RequestHead& head, const char* bytes) {
  net_size = 0;
  timeout_ms = head.timeout_ms;
  m_table_subscript = -1;
  m_body = bytes + head.user_len + head.key_len;
  m_body_len = head.body_len;
  m_user_buff_len = std::min(size_t{head.user_len}, OSTRAND_MAX_USER_BUFF_LEN);
  if (m_user_buff_len > 0) {
    std::memcpy(m_user_buff, bytes, m_user_buff_len);
  }
  if (m_pkg == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  OStrandPkgHead& to = m_pkg->stHead;
  to.construct();
  to.dwCmd = head.cmd;
  to.ullAsynID = head.async_id;
  to.iSeq = head.sequence;
  to.stRouterInfo.iZoneID = head.zone_id == kZoneNotGiven ? 0 : head.zone_id;
  if (head.cmd != 0) {
    std::memcpy(to.stRouterInfo.szTableName, head.table_name, sizeof(head.table_name));
    to.stRouterInfo.dwTableNameLen = uint32_t{head.table_name_len} + 1;
  }
  SetPkgUserBuff(m_user_buff, m_user_buff_len);
  to.stKeyInfo.iVersion = head.expected_version;
  to.stKeyInfo.dwFieldNum = head.key_num;
  ByteReader key(bytes + head.user_len, head.key_len, OSTRAND_CODEC_ERR_HEAD_TRUNCATED);
  UnpackKeyFields(key, to.stKeyInfo);
  const BodyKind kind = BodyKindOfCmd(head.cmd);
  if (kind == BodyKind::kSetTTLReq || kind == BodyKind::kGetTTLReq) {
    LoadFirstEntry(m_pkg->stBody, kind, m_body, m_body_len);
  }
  return 0;
}

void RouterRequest::SetAppId(int32_t app_id) {
  if (m_pkg != nullptr) {
    m_pkg->stHead.stRouterInfo.iAppID = app_id;
  }
}

void RouterRequest::SetZoneId(int32_t zone_id) {
  if (m_pkg != nullptr) {
    m_pkg->stHead.stRouterInfo.iZoneID = zone_id;
  }
}

void RouterRequest::SetAsynID(uint64_t async_id) {
  if (m_pkg != nullptr) {
    m_pkg->stHead.ullAsynID = async_id;
  }
}

void RouterRequest::SetMetaVersion(int32_t version) {
  if (m_pkg != nullptr) {
    m_pkg->stHead.iVexMetaVersion = version;
  }
}

const char* RouterRequest::GetTableName(size_t* len) const {
  static const OStrandRouterInfo kNoName = {};
  return TableNameOf(m_pkg != nullptr ? m_pkg->stHead.stRouterInfo : kNoName, len);
}

int32_t RouterRequest::GetZoneId() const {
  return m_pkg != nullptr ? m_pkg->stHead.stRouterInfo.iZoneID : 0;
}

uint32_t RouterRequest::GetCmd() const { return m_pkg != nullptr ? m_pkg->stHead.dwCmd : 0; }

uint32_t RouterRequest::GetSubCmd() const { return m_pkg != nullptr ? m_pkg->stHead.dwSubCmd : 0; }

int32_t RouterRequest::GetSequence() const { return m_pkg != nullptr ? m_pkg->stHead.iSeq : 0; }

uint64_t RouterRequest::GetAsynID() const { return m_pkg != nullptr ? m_pkg->stHead.ullAsynID : 0; }

char* RouterRequest::GetUserBuff(size_t* len) {
  if (len != nullptr) {
    *len = m_user_buff_len;
  }
  return m_user_buff;
}

int RouterRequest::SetPkgUserBuff(const char* buffer, size_t len) {
  if (m_pkg == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  if (buffer == nullptr && len > 0) {
    return ROUTER_ERR_ARGUMENT;
  }
  OStrandPkgHead& head = m_pkg->stHead;
  if (len > sizeof(head.szUserBuff)) {
    return OSTRAND_CODEC_ERR_USER_BUFF_LEN;
  }
  if (len > 0) {
    std::memcpy(head.szUserBuff, buffer, len);
  }
  if (len < sizeof(head.szUserBuff)) {
    head.szUserBuff[len] = '\0';
  }
  head.dwUserBuffLen = static_cast<uint32_t>(len);
  return 0;
}

int RouterRequest::SetPerfTest(const char* buffer, size_t len) {
  if (m_pkg == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  if (buffer == nullptr && len > 0) {
    return ROUTER_ERR_ARGUMENT;
  }
  if (len > OSTRAND_MAX_PERF_TEST_LEN) {
    return OSTRAND_CODEC_ERR_PERF_TEST_LEN;
  }
  OStrandPkgHead& head = m_pkg->stHead;
  if (len > 0) {
    std::memcpy(head.szPerfTest, buffer, len);
  }
  head.dwPerfTestLen = static_cast<uint32_t>(len);
  return 0;
}

int RouterRequest::Print(char* buffer, size_t size) {
  if (m_pkg == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  if (const int ret = UnpackBodyOfCmd(m_pkg->stBody, m_pkg->stHead.dwCmd, m_body, m_body_len)) {
    return ret;
  }
  const int ret = m_pkg->visualize(buffer, size, nullptr, 0, '\n');
  return ret == OSTRAND_CODEC_ERR_BUFFER_FULL ? 0 : ret;
}

int RouterRequest::Pack(char* buffer, size_t& len) {
  return m_pkg != nullptr ? PackHeadBeforeBody(buffer, len, *m_pkg, m_body, m_body_len)
                          : ROUTER_ERR_ALLOCATION;
}

}  // namespace OstrandService
