#include "client/post_queue.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <type_traits>

namespace OstrandService {
namespace {

constexpr size_t kFirstCapacity = 16384;
constexpr size_t kAlignment = alignof(PostQueue::Post);

static_assert(std::is_trivially_copyable_v<RequestHead>, "it is posted as bytes");
static_assert(kAlignment >= alignof(RequestHead));
static_assert(sizeof(PostQueue::Post) % kAlignment == 0);

}  // namespace

bool PostQueue::Append(Kind kind, Ticket& ticket, const RequestHead* head, const char* bytes) {
  const size_t bytes_len = head != nullptr ? head->BytesLen() : 0;
  const size_t len = sizeof(Post) + (head != nullptr ? sizeof(RequestHead) + bytes_len : 0);
  const size_t room = (len + kAlignment - 1) / kAlignment * kAlignment;
  if (!Reserve(room)) {
    return false;
  }
  char* const record = m_memory.get() + m_size;
  new (record) Post{&ticket, static_cast<uint32_t>(room), kind};
  if (head != nullptr) {
    new (record + sizeof(Post)) RequestHead(*head);
    if (bytes_len > 0) {
      std::memcpy(record + sizeof(Post) + sizeof(RequestHead), bytes, bytes_len);
    }
  }
  m_size += room;
  return true;
}

bool PostQueue::Reserve(size_t len) {
  if (m_capacity - m_size >= len) {
    return true;
  }
  size_t capacity = std::max(kFirstCapacity, 2 * m_capacity);
  while (capacity - m_size < len) {
    capacity *= 2;
  }
  std::unique_ptr<char[]> memory(new (std::nothrow) char[capacity]);
  if (memory == nullptr) {
    return false;
  }
  if (m_size > 0) {
    std::memcpy(memory.get(), m_memory.get(), m_size);
  }
  m_memory = std::move(memory);
  m_capacity = capacity;
  return true;
}

void PostQueue::Clear() {
  m_size = 0;
  if (m_capacity > kMostKept) {
    m_memory.reset();
    m_capacity = 0;
  }
}

}  // namespace OstrandService
