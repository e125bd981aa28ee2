// Small buffers that are handed out again and again.
//
// A buffer comes from the smallest class that holds it; a returned one is kept for the next that
// asks for its class. Nothing is given back to the system before the pool dies, so the pool is as
// large as its buffers ever were at once. What is over the largest class comes from the system and
// returns there.
// Ownership: the pool owns the buffers that are kept; whoever took one returns it.
// Threads: none inside.
#pragma once

#include <cstddef>

namespace OstrandService {

class BufferPool {
 public:
  static constexpr size_t kClassSizes[] = {64, 256, 1024};

  BufferPool() = default;
  ~BufferPool();
  BufferPool(const BufferPool&) = delete;
  BufferPool& operator=(const BufferPool&) = delete;

  // Room for len bytes, 0 included; null without memory.
  char* Take(size_t len);
  // buffer: from Take with the same len.
  void Return(char* buffer, size_t len);

 private:
  static constexpr size_t kClasses = sizeof(kClassSizes) / sizeof(kClassSizes[0]);

  // Stands in a buffer that is kept.
  struct Kept {
    Kept* next;
  };

  static size_t ClassOf(size_t len);

  Kept* m_kept[kClasses] = {};
};

}  // namespace OstrandService
