// What can be told of a proxy's frame without decoding it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "protocol/byte_order.h"
#include "protocol/codec.h"

namespace OstrandService {

constexpr size_t kAsynIdOffset = 12;
constexpr size_t kCmdOffset = 24;

// REQUIRES here and below: a whole frame.
inline uint64_t AsynIdOf(const char* frame) {
  return ostrand_protocol_cs::LoadBigEndian<uint64_t>(frame + kAsynIdOffset);
}

inline uint32_t CmdOf(const char* frame) {
  return ostrand_protocol_cs::LoadBigEndian<uint32_t>(frame + kCmdOffset);
}

// Whether no further package of this answer follows.
bool IsLastPackage(const char* frame, size_t len);

}  // namespace OstrandService
