// Whole frames in the order in which they came, waiting to be taken.
//
// A frame that was taken stays readable until the next call of any operation but Front: whoever
// took it may still look at its bytes. Ownership: owns copies of the frames. Threads: none inside.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "net/byte_buffer.h"

namespace OstrandService {

class FrameQueue {
 public:
  // False, and nothing changed, without memory.
  bool Push(const char* frame, size_t len) {
    DropTaken();
    const auto frame_len = static_cast<FrameLen>(len);
    char* const room = m_bytes.Prepare(sizeof(frame_len) + len);
    if (room == nullptr) {
      return false;
    }
    std::memcpy(room, &frame_len, sizeof(frame_len));
    std::memcpy(room + sizeof(frame_len), frame, len);
    m_bytes.Commit(sizeof(frame_len) + len);
    return true;
  }

  // The first frame; false when there is none.
  bool Front(const char*& frame, size_t& len) const { return At(m_taken, frame, len); }

  // Takes the first frame off. REQUIRES: there is one.
  void Take() {
    const size_t taken = m_taken;
    FrameLen len = 0;
    std::memcpy(&len, m_bytes.data() + taken, sizeof(len));
    m_bytes.TakeFront(taken);
    m_taken = sizeof(len) + len;
  }

  // Appends all frames of `other`, which is then empty. False without memory; then `other` is as
  // before.
  bool TakeAllOf(FrameQueue& other) {
    DropTaken();
    other.DropTaken();
    if (m_bytes.empty()) {
      m_bytes.Swap(other.m_bytes);
    } else if (!m_bytes.Append(other.m_bytes.data(), other.m_bytes.size())) {
      return false;
    }
    other.m_bytes.Clear();
    return true;
  }

  void Clear() {
    m_taken = 0;
    m_bytes.Clear();
  }

  // visit(frame, len) of every frame.
  template <typename Visit>
  void ForEach(Visit visit) const {
    const char* frame = nullptr;
    size_t len = 0;
    for (size_t at = m_taken; At(at, frame, len); at += sizeof(FrameLen) + len) {
      visit(frame, len);
    }
  }

  size_t bytes() const { return m_bytes.size() - m_taken; }  // lengths included
  bool empty() const { return bytes() == 0; }

 private:
  using FrameLen = uint32_t;  // before each frame

  bool At(size_t place, const char*& frame, size_t& len) const {
    if (place == m_bytes.size()) {
      return false;
    }
    FrameLen frame_len = 0;
    std::memcpy(&frame_len, m_bytes.data() + place, sizeof(frame_len));
    frame = m_bytes.data() + place + sizeof(frame_len);
    len = frame_len;
    return true;
  }

  void DropTaken() {
    m_bytes.TakeFront(m_taken);
    m_taken = 0;
  }

  OSTRNET::ByteBuffer m_bytes;
  size_t m_taken = 0;  // bytes at the front that were taken
};

}  // namespace OstrandService
