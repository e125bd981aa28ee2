#include "client/buffer_pool.h"

#include <new>

namespace OstrandService {

BufferPool::~BufferPool() {
  for (Kept* kept : m_kept) {
    while (kept != nullptr) {
      Kept* const next = kept->next;
      ::operator delete(kept);
      kept = next;
    }
  }
}

// kClasses for what is over the largest class.
size_t BufferPool::ClassOf(size_t len) {
  size_t index = 0;
  while (index < kClasses && kClassSizes[index] < len) {
    ++index;
  }
  return index;
}

char* BufferPool::Take(size_t len) {
  const size_t index = ClassOf(len);
  if (index < kClasses && m_kept[index] != nullptr) {
    Kept* const taken = m_kept[index];
    m_kept[index] = taken->next;
    return reinterpret_cast<char*>(taken);
  }
  const size_t size = index < kClasses ? kClassSizes[index] : len;
  return static_cast<char*>(::operator new(size, std::nothrow));
}

void BufferPool::Return(char* buffer, size_t len) {
  const size_t index = ClassOf(len);
  if (index == kClasses) {
    ::operator delete(buffer);
    return;
  }
  m_kept[index] = new (buffer) Kept{m_kept[index]};
}

}  // namespace OstrandService
