// The marks by which the router knows the answer to its own metadata probe.
#pragma once

#include <cstdint>

namespace OstrandService {

constexpr uint64_t kRecheckProbeAsynId = 110;
constexpr int32_t kRecheckProbeSeq = -110;
constexpr char kRecheckProbeUserBuff[] = "recheck proxy available";  // travels with its NUL
static_assert(sizeof(kRecheckProbeUserBuff) == 24, "part of the conversation with the proxies");

}  // namespace OstrandService
