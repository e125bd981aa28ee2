#include "service_api/ostrand_service_response.h"

#include "protocol/byte_order.h"
#include "protocol/codec.h"
#include "protocol/ostrand_protocol_cs.h"

namespace OstrandService {
namespace {

using ostrand_protocol_cs::LoadBigEndian;

constexpr size_t kMagicOffset = 0;
constexpr size_t kHeadLenOffset = 4;
constexpr size_t kBodyLenOffset = 8;
constexpr size_t kLengthsEnd = 12;

}  // namespace

int OstrandServiceResponse::GetPkgLen(const char* data, size_t len) {
  if (data == nullptr || len < kLengthsEnd) {
    return 0;
  }
  const int64_t head_len = LoadBigEndian<uint32_t>(data + kHeadLenOffset);
  const int64_t body_len = LoadBigEndian<uint32_t>(data + kBodyLenOffset);
  if (LoadBigEndian<uint16_t>(data + kMagicOffset) != ostrand_protocol_cs::OSTRAND_PKG_MAGIC ||
      head_len < static_cast<int64_t>(ostrand_protocol_cs::OSTRAND_FIXED_HEAD_LEN) ||
      head_len + body_len > kMaxPkgLen) {
    return kErrBadFrameHead;
  }
  return static_cast<int>(head_len + body_len);
}

}  // namespace OstrandService
