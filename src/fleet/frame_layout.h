// Where the fields of a packed frame stand, for whoever changes bytes in place. docs/protocol.md
// describes the frame.
//
// Threads: no state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace OstrandFleet {

constexpr size_t kFrameHeadLenOffset = 4;
constexpr size_t kFrameBodyLenOffset = 8;
constexpr size_t kFrameAsynIdOffset = 12;
constexpr size_t kFrameCmdOffset = 24;
constexpr size_t kFrameFixedHeadLen = 28;

struct FrameLayout {
  size_t head_len = 0;
  size_t user_buffer = 0;  // offset of its first byte
  size_t user_buffer_len = 0;
  size_t sub_cmd = 0;  // offset
};

// False when the frame is not one that the codec would pack.
bool FindLayout(std::string_view frame, FrameLayout& layout);

uint32_t CmdOf(std::string_view frame);

}  // namespace OstrandFleet
