#include "fleet/answer_faults.h"

#include <climits>

#include "fleet/frame_layout.h"
#include "protocol/byte_order.h"
#include "protocol/byte_reader.h"
#include "protocol/ostrand_api_cmds.h"
#include "protocol/record_buffer.h"

namespace OstrandFleet {
namespace {

using ostrand_protocol_cs::BodyKind;
using ostrand_protocol_cs::BodyKindOfCmd;
using ostrand_protocol_cs::ByteReader;
using ostrand_protocol_cs::LoadBigEndian;
using ostrand_protocol_cs::StoreBigEndian;

constexpr size_t kGarbageLen = 64;
constexpr uint32_t kHugeHeadLen = 0xFFFFFFF0;
constexpr uint32_t kGiB = 0x40000000;
constexpr uint32_t kNobodysCommand = 9999;

// The body of an answer in packages: result, more flag, records.
constexpr size_t kMoreFlagOffset = 4;
constexpr size_t kRecordsOffset = 5;

std::string WithNumber(std::string_view frame, size_t offset, uint32_t number) {
  std::string changed(frame);
  StoreBigEndian(&changed[offset], number);
  return changed;
}

std::string WithFlippedByte(std::string_view frame, size_t offset) {
  std::string changed(frame);
  changed[offset] = static_cast<char>(~static_cast<unsigned char>(changed[offset]));
  return changed;
}

std::string Forge(std::string_view frame) {
  FrameLayout layout;
  if (!FindLayout(frame, layout)) {
    return std::string(frame);
  }
  const size_t target = layout.user_buffer_len > 0 ? layout.user_buffer + layout.user_buffer_len - 1
                                                   : kFrameAsynIdOffset + sizeof(uint64_t) - 1;
  return WithFlippedByte(frame, target);
}

// Where the records stand in an answer; npos for one that has none.
size_t FindRecords(std::string_view frame, size_t head_len) {
  const BodyKind kind = BodyKindOfCmd(CmdOf(frame));
  if (kind == BodyKind::kRecord || kind == BodyKind::kRecords) {
    return head_len;
  }
  return MayHaveMorePackages(frame) ? head_len + kRecordsOffset : std::string_view::npos;
}

// Whether the frame ends with a byte of a value: the last one of its last record.
bool EndsWithValue(std::string_view frame) {
  FrameLayout layout;
  if (!FindLayout(frame, layout)) {
    return false;
  }
  const size_t records = FindRecords(frame, layout.head_len);
  if (records == std::string_view::npos) {
    return false;
  }
  ByteReader in(frame.data() + records, frame.size() - records, -1);
  uint32_t record_num = 0;
  uint32_t records_len = 0;
  in.Get(record_num, records_len);
  const char* record = nullptr;
  uint32_t record_len = 0;
  for (; record_num > 0 && in.ok(); --record_num) {
    in.Get(record_len);
    record = in.Take(record_len - sizeof(record_len));
  }
  if (record == nullptr) {
    return false;
  }
  ByteReader fields(record, record_len - sizeof(record_len), -1);
  int32_t result = 0;
  int32_t index = 0;
  int32_t version = 0;
  uint32_t key_fields = 0;
  uint32_t value_fields = 0;
  fields.Get(result, index, version, key_fields, value_fields);
  uint32_t len = 0;
  for (uint32_t i = 0; i < 2 * (key_fields + value_fields) && fields.ok(); ++i) {
    fields.Get(len);
    fields.Take(len);
  }
  return value_fields > 0 && len > 0 && fields.ok();
}

}  // namespace

std::string Spoil(AnswerFault fault, std::string_view frame, FaultRandom& random) {
  switch (fault) {
    case AnswerFault::kGarbage: return RandomBytes(kGarbageLen, random);
    case AnswerFault::kHeadLen0: return WithNumber(frame, kFrameHeadLenOffset, 0);
    case AnswerFault::kHeadLen12: return WithNumber(frame, kFrameHeadLenOffset, 12);
    case AnswerFault::kHeadLen27: return WithNumber(frame, kFrameHeadLenOffset, 27);
    case AnswerFault::kHeadLenHuge: return WithNumber(frame, kFrameHeadLenOffset, kHugeHeadLen);
    case AnswerFault::kAnnounceGiB: return WithNumber(frame, kFrameBodyLenOffset, kGiB);
    case AnswerFault::kUnknownCommand: return WithNumber(frame, kFrameCmdOffset, kNobodysCommand);
    case AnswerFault::kRequestCode: return WithNumber(frame, kFrameCmdOffset, CmdOf(frame) - 1);
    case AnswerFault::kForged: return Forge(frame);
    case AnswerFault::kWrongValue:
      return EndsWithValue(frame) ? WithFlippedByte(frame, frame.size() - 1) : std::string(frame);
    default: return std::string(frame);
  }
}

std::string RandomBytes(size_t len, FaultRandom& generator) {
  std::string bytes(len, '\0');
  for (char& byte : bytes) {
    byte = static_cast<char>(generator() & UCHAR_MAX);
  }
  return bytes;
}

bool MayHaveMorePackages(std::string_view frame) {
  const BodyKind kind = BodyKindOfCmd(CmdOf(frame));
  return kind == BodyKind::kListGetAllRes || kind == BodyKind::kGetByPartKeyRes;
}

void SetPackageNumber(std::string& frame, uint32_t number) {
  FrameLayout layout;
  if (FindLayout(frame, layout) && layout.head_len + kMoreFlagOffset < frame.size()) {
    StoreBigEndian(&frame[layout.sub_cmd], number);
    frame[layout.head_len + kMoreFlagOffset] = 1;
  }
}

uint32_t PackageNumber(std::string_view frame) {
  FrameLayout layout;
  return FindLayout(frame, layout) ? LoadBigEndian<uint32_t>(frame.data() + layout.sub_cmd) : 0;
}

}  // namespace OstrandFleet
