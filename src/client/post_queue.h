// What other threads hand over to a client's loop, in order, as records in one piece of memory: a
// ticket and, of a request that does not stay where it is, its head and bytes.
//
// Memory grows by doubling and is kept, up to kMostKept. Ownership: owns its memory, no tickets.
// Threads: none inside. Two of them take turns: one is filled under a lock, the other one read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "client/request_head.h"

namespace OstrandService {

struct Ticket;

class PostQueue {
 public:
  static constexpr size_t kMostKept = size_t{4} << 20;

  enum class Kind : uint32_t { kRequest, kCall, kCancel };

  // One record; of kRequest its head and bytes follow.
  struct Post {
    Ticket* ticket;
    uint32_t len;  // of the whole record, a multiple of 8
    Kind kind;
  };

  size_t size() const { return m_size; }
  bool empty() const { return m_size == 0; }

  // head, bytes: of kRequest, else null. False, and nothing changed, without memory.
  bool Append(Kind kind, Ticket& ticket, const RequestHead* head, const char* bytes);

  // Takes the record back that was appended last. REQUIRES: it is of kCancel.
  void TakeBackLast() { m_size -= sizeof(Post); }

  // visit(post, head, bytes) of all records, in order; head and bytes only of kRequest.
  template <typename Visit>
  void ForEach(Visit visit) const {
    for (size_t at = 0; at < m_size;) {
      const char* const record = m_memory.get() + at;
      const Post& post = *reinterpret_cast<const Post*>(record);
      at += post.len;
      visit(post, reinterpret_cast<const RequestHead*>(record + sizeof(Post)),
            record + sizeof(Post) + sizeof(RequestHead));
    }
  }

  void Clear();
  void Swap(PostQueue& other) noexcept {
    std::swap(m_memory, other.m_memory);
    std::swap(m_capacity, other.m_capacity);
    std::swap(m_size, other.m_size);
  }

 private:
  bool Reserve(size_t len);

  std::unique_ptr<char[]> m_memory;
  size_t m_capacity = 0;
  size_t m_size = 0;
};

}  // namespace OstrandService
