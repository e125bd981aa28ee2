#include "fleet/frame_layout.h"

#include "protocol/byte_order.h"
#include "protocol/byte_reader.h"

namespace OstrandFleet {
namespace {

using ostrand_protocol_cs::ByteReader;
using ostrand_protocol_cs::LoadBigEndian;

constexpr size_t kTableNameOffset = 44;

// A number of bytes, then the bytes.
void Pass(ByteReader& in) {
  uint32_t len = 0;
  in.Get(len);
  in.Take(len);
}

void PassKeySet(ByteReader& in) {
  int32_t version = 0;
  uint32_t fields = 0;
  in.Get(version, fields);
  for (uint32_t i = 0; i < fields && in.ok(); ++i) {
    Pass(in);
    Pass(in);
  }
}

}  // namespace

bool FindLayout(std::string_view frame, FrameLayout& layout) {
  if (frame.size() < kFrameFixedHeadLen) {
    return false;
  }
  const size_t head_len = LoadBigEndian<uint32_t>(frame.data() + kFrameHeadLenOffset);
  if (head_len < kTableNameOffset || head_len > frame.size()) {
    return false;
  }
  const auto position = [head_len](const ByteReader& reader) { return head_len - reader.left(); };
  ByteReader in(frame.data(), head_len, -1);
  in.Take(kTableNameOffset);
  Pass(in);
  uint32_t user_buffer_len = 0;
  in.Get(user_buffer_len);
  const size_t user_buffer = position(in);
  in.Take(user_buffer_len);
  PassKeySet(in);
  int32_t schema_version = 0;
  uint8_t compression[2] = {};
  in.Get(schema_version, compression[0], compression[1]);
  Pass(in);
  int32_t result = 0;
  in.Get(result);
  const size_t sub_cmd = position(in);
  uint32_t number = 0;
  in.Get(number);
  if (!in.ok()) {
    return false;
  }
  layout.head_len = head_len;
  layout.user_buffer = user_buffer;
  layout.user_buffer_len = user_buffer_len;
  layout.sub_cmd = sub_cmd;
  return true;
}

uint32_t CmdOf(std::string_view frame) {
  return frame.size() < kFrameFixedHeadLen
             ? 0
             : LoadBigEndian<uint32_t>(frame.data() + kFrameCmdOffset);
}

}  // namespace OstrandFleet
