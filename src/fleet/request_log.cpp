#include "fleet/request_log.h"

#include "fleet/record_fields.h"

namespace OstrandFleet {

void RequestLog::Add(size_t proxy, uint64_t connection,
                     const ostrand_protocol_cs::OStrandPkg& request, std::string_view frame) {
  ++m_last_number;
  if (!m_limits.is_on) {
    return;
  }
  const ostrand_protocol_cs::OStrandPkgHead& head = request.stHead;
  RecordedRequest record;
  record.number = m_last_number;
  record.proxy = proxy;
  record.connection = connection;
  record.cmd = head.dwCmd;
  record.asyn_id = head.ullAsynID;
  record.seq = head.iSeq;
  record.app_id = head.stRouterInfo.iAppID;
  record.zone = head.stRouterInfo.iZoneID;
  record.table = head.stRouterInfo.szTableName;
  record.user_buffer.assign(head.szUserBuff, head.dwUserBuffLen);
  record.key = KeyOf(head.stKeyInfo).fields;
  record.frame = frame;
  m_bytes += frame.size();
  m_requests.push_back(std::move(record));
  while (m_requests.size() > m_limits.max_requests || m_bytes > m_limits.max_bytes) {
    DropFirst();
  }
}

void RequestLog::Clear() {
  m_requests.clear();
  m_bytes = 0;
}

void RequestLog::DropFirst() {
  m_bytes -= m_requests.front().frame.size();
  m_requests.pop_front();
}

}  // namespace OstrandFleet
