#include "client/client_response.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "client/package_views.h"
#include "protocol/codec.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {

using namespace ostrand_protocol_cs;  // NOLINT: the records that an answer is made of

namespace {

constexpr size_t kSmallestUserBuff = 64;

// The body of one package of an answer in several; null for other commands.
OStrandMultiPkgRes* MultiPkgResOf(OStrandPkg& pkg) {
  switch (BodyKindOfCmd(pkg.stHead.dwCmd)) {
    case BodyKind::kListGetAllRes: return &pkg.stBody.stListGetAllRes;
    case BodyKind::kGetByPartKeyRes: return &pkg.stBody.stGetByPartKeyRes;
    default: return nullptr;
  }
}

}  // namespace

ClientResponse::ClientResponse() : m_pkg(NewOStrandPkg()) {}
ClientResponse::~ClientResponse() = default;

int32_t ClientResponse::GetAppId() const {
  return m_pkg != nullptr ? m_pkg->stHead.stRouterInfo.iAppID : 0;
}

int32_t ClientResponse::GetMetaVersion() const {
  return m_pkg != nullptr ? m_pkg->stHead.iVexMetaVersion : -1;
}

bool ClientResponse::GetKey(std::string_view name, FieldView& field) const {
  return m_pkg != nullptr && FindKeyField(m_pkg->stHead.stKeyInfo, name, field);
}

const OStrandRecords* ClientResponse::Records() const {
  return m_pkg != nullptr ? RecordsOf(const_cast<const OStrandPkg&>(*m_pkg)) : nullptr;
}

uint32_t ClientResponse::GetRecordCount() const {
  const OStrandRecords* const records = Records();
  return records != nullptr ? records->dwRecordNum : 0;
}

bool ClientResponse::NextRecord(RecordView& record) {
  if (!m_reader) {
    const OStrandRecords* const records = Records();
    if (records == nullptr) {
      return false;
    }
    m_reader.emplace(*records);
  }
  return m_reader->Next(record);
}

bool ClientResponse::GetValue(std::string_view name, FieldView& field) const {
  const OStrandRecords* const records = Records();
  if (records == nullptr) {
    return false;
  }
  RecordView record;
  return RecordReader(*records).Next(record) && record.FindValue(name, field);
}

uint32_t ClientResponse::GetTTLCount() const {
  return BodyKindOfCmd(GetCmd()) == BodyKind::kTTLRes ? m_pkg->stBody.stTTLRes.dwRecordNum : 0;
}

const OStrandRecordTTL* ClientResponse::GetTTL(uint32_t index) const {
  return index < GetTTLCount() ? &m_pkg->stBody.stTTLRes.astRecordTTL[index] : nullptr;
}

const OStrandMetadataGetRes* ClientResponse::GetMetadata() const {
  return GetCmd() == OSTRAND_API_METADATA_GET_RES ? &m_pkg->stBody.stMetadataGetRes : nullptr;
}

const char* ClientResponse::GetPkgUserBuff(size_t* len) {
  if (len != nullptr) {
    *len = m_pkg != nullptr ? m_pkg->stHead.dwUserBuffLen : 0;
  }
  return m_pkg != nullptr ? m_pkg->stHead.szUserBuff : nullptr;
}

const char* ClientResponse::GetUserBuff(size_t* len) {
  if (!m_has_user_buff) {
    return GetPkgUserBuff(len);
  }
  if (len != nullptr) {
    *len = m_user_buff_len;
  }
  return m_user_buff.get();
}

int ClientResponse::SetUserBuff(const char* buffer, unsigned int len) {
  if (buffer == nullptr && len > 0) {
    return ROUTER_ERR_ARGUMENT;
  }
  const size_t needed = size_t{len} + 1;  // with a NUL, for readers of text
  std::unique_ptr<char[]> larger;
  if (needed > m_user_buff_room) {
    const size_t room = std::max({needed, m_user_buff_room * 2, kSmallestUserBuff});
    larger.reset(new (std::nothrow) char[room]);
    if (larger == nullptr) {
      return ROUTER_ERR_ALLOCATION;
    }
    m_user_buff_room = room;
    m_user_buff.swap(larger);
  }
  if (len > 0) {  // `buffer` may lie in what was the user buffer up to now
    std::memmove(m_user_buff.get(), buffer, len);
  }
  m_user_buff[len] = '\0';
  m_user_buff_len = len;
  m_has_user_buff = true;
  return 0;
}

int ClientResponse::GetOstrandPackagePtr(const OStrandPkg*& pkg) {
  pkg = m_pkg.get();
  return m_pkg != nullptr ? 0 : ROUTER_ERR_ALLOCATION;
}

uint32_t ClientResponse::GetCmd() const { return m_pkg != nullptr ? m_pkg->stHead.dwCmd : 0; }

uint32_t ClientResponse::GetSubCmd() const { return m_pkg != nullptr ? m_pkg->stHead.dwSubCmd : 0; }

int32_t ClientResponse::GetResult() const { return m_pkg != nullptr ? m_pkg->stHead.iResult : 0; }

const char* ClientResponse::GetTableName(size_t* len) const {
  static const OStrandRouterInfo kNoName = {};
  return TableNameOf(m_pkg != nullptr ? m_pkg->stHead.stRouterInfo : kNoName, len);
}

int32_t ClientResponse::GetZoneId() const {
  return m_pkg != nullptr ? m_pkg->stHead.stRouterInfo.iZoneID : 0;
}

int32_t ClientResponse::GetSequence() const { return m_pkg != nullptr ? m_pkg->stHead.iSeq : 0; }

uint64_t ClientResponse::GetAsynID() const {
  return m_pkg != nullptr ? m_pkg->stHead.ullAsynID : 0;
}

const char* ClientResponse::GetPerfTest(size_t* len) const {
  if (len != nullptr) {
    *len = m_pkg != nullptr ? m_pkg->stHead.dwPerfTestLen : 0;
  }
  return m_pkg != nullptr ? m_pkg->stHead.szPerfTest : nullptr;
}

int ClientResponse::HaveMoreResPkgs() {
  const OStrandMultiPkgRes* const body = m_pkg != nullptr ? MultiPkgResOf(*m_pkg) : nullptr;
  return body != nullptr && body->bHasMorePkgs != 0 ? 1 : 0;
}

int ClientResponse::Unpack(const char* data, size_t len) {
  m_has_user_buff = false;
  m_reader.reset();
  return m_pkg != nullptr
             ? UnpackWholeCsPkgMaybeDecompress(*m_pkg, nullptr, 0, data, len, nullptr, nullptr, 0)
             : ROUTER_ERR_ALLOCATION;
}

int ClientResponse::BuildTimeOutRes(int64_t app_id, int32_t zone_id, const char* table_name,
                                    uint32_t resp_cmd, const char* user_buffer,
                                    uint32_t user_buffer_len, uint64_t async_id, int32_t seq) {
  m_has_user_buff = false;
  m_reader.reset();
  if (m_pkg == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  OStrandPkgHead& head = m_pkg->stHead;
  head.construct();
  head.dwCmd = resp_cmd;
  head.iResult = kResultTimeOut;
  head.stRouterInfo.iAppID = static_cast<int32_t>(app_id);
  head.stRouterInfo.iZoneID = zone_id;
  SetTableName(head.stRouterInfo, table_name);
  head.ullAsynID = async_id;
  head.iSeq = seq;
  m_pkg->stBody.construct(resp_cmd);
  if (OStrandMultiPkgRes* const body = MultiPkgResOf(*m_pkg)) {
    body->iResult = kResultTimeOut;
  }
  return user_buffer != nullptr ? SetUserBuff(user_buffer, user_buffer_len) : 0;
}

}  // namespace OstrandService
