#include "fleet/stand_in.h"

#include <algorithm>
#include <memory>

#include "fleet/frame_layout.h"
#include "fleet/record_fields.h"
#include "protocol/byte_order.h"
#include "protocol/ostrand_protocol_cs.h"

namespace OstrandFleet {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records

// The body of the records as it stands in a frame.
std::string BodyOf(const OStrandRecords& records) {
  char lengths[2 * sizeof(uint32_t)];
  StoreBigEndian(lengths, records.dwRecordNum);
  StoreBigEndian(lengths + sizeof(uint32_t), records.dwRecordsLen);
  return std::string(lengths, sizeof(lengths)) +
         std::string(records.szRecords, records.dwRecordsLen);
}

}  // namespace

StandIn::StandIn(size_t value_len) {
  const std::unique_ptr<OStrandRecords> records(new OStrandRecords);  // not cleared: 8 MiB
  records->dwRecordNum = 0;
  records->dwRecordsLen = 0;
  m_write_body = BodyOf(*records);
  const size_t len = std::min(value_len, OSTRAND_MAX_RECORD_VALUE_LEN);
  AppendRecord(*records, RecordMark(), {}, {{kFieldName, std::string(len, 'v')}}, {});
  m_get_body = BodyOf(*records);
}

bool StandIn::Answers(uint32_t cmd) {
  return cmd == OSTRAND_API_GET_REQ || cmd == OSTRAND_API_INSERT_REQ ||
         cmd == OSTRAND_API_REPLACE_REQ || cmd == OSTRAND_API_UPDATE_REQ ||
         cmd == OSTRAND_API_DELETE_REQ;
}

void StandIn::AppendAnswer(std::string_view frame, std::string& out) const {
  const uint32_t cmd = CmdOf(frame);
  const std::string& body = cmd == OSTRAND_API_GET_REQ ? m_get_body : m_write_body;
  const size_t begin = out.size();
  out.append(frame.data(), LoadBigEndian<uint32_t>(frame.data() + kFrameHeadLenOffset));
  StoreBigEndian(&out[begin + kFrameCmdOffset], cmd + 1);
  StoreBigEndian(&out[begin + kFrameBodyLenOffset], static_cast<uint32_t>(body.size()));
  out.append(body);
}

}  // namespace OstrandFleet
