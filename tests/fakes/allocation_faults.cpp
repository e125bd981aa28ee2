#include "fakes/allocation_faults.h"

#include <cstddef>
#include <cstdlib>
#include <new>

#include "fakes/fault.h"

namespace OstrandFakes {
namespace {

// Of one kind of allocation: how many were made, and which one fails (0: none).
struct Kind {
  int count;
  int failing;
};

// Plain data without constructors: it must work in the first and the last allocation of a thread.
struct Watch {
  bool active;
  int suspended;
  bool struck;
  int outstanding;
  Kind nothrow;
  Kind throwing;
};

thread_local Watch t_watch;

// Counts an allocation of this kind and answers whether it fails.
bool Strikes(Kind Watch::*kind) {
  if (!t_watch.active || t_watch.suspended > 0) {
    return false;
  }
  Kind& counted = t_watch.*kind;
  const bool strikes = ++counted.count == counted.failing;
  t_watch.struck = t_watch.struck || strikes;
  return strikes;
}

void CountOutstanding(int change) {
  if (t_watch.active && t_watch.suspended == 0) {
    t_watch.outstanding += change;
  }
}

void* Allocate(size_t bytes, size_t alignment) {
  if (bytes == 0) {
    bytes = 1;
  }
  void* memory = nullptr;
  if (alignment <= alignof(std::max_align_t)) {
    memory = std::malloc(bytes);
  } else if (posix_memalign(&memory, alignment, bytes) != 0) {
    memory = nullptr;
  }
  if (memory != nullptr) {
    CountOutstanding(1);
  }
  return memory;
}

void* AllocateOrThrow(size_t bytes, size_t alignment) {
  void* memory = Strikes(&Watch::throwing) ? nullptr : Allocate(bytes, alignment);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void* AllocateOrNull(size_t bytes, size_t alignment) {
  return Strikes(&Watch::nothrow) ? nullptr : Allocate(bytes, alignment);
}

void Free(void* memory) {
  if (memory != nullptr) {
    CountOutstanding(-1);
    std::free(memory);
  }
}

constexpr size_t kDefault = alignof(std::max_align_t);

}  // namespace

AllocationFaults::AllocationFaults() {
  if (t_watch.active) {
    Fault("AllocationFaults inside another one of the same thread");
  }
  t_watch = Watch{};
  t_watch.active = true;
}

AllocationFaults::~AllocationFaults() { t_watch.active = false; }

void AllocationFaults::FailNothrow(int n) { t_watch.nothrow.failing = t_watch.nothrow.count + n; }

void AllocationFaults::FailThrowing(int n) {
  t_watch.throwing.failing = t_watch.throwing.count + n;
}

bool AllocationFaults::struck() const { return t_watch.struck; }
int AllocationFaults::nothrow_count() const { return t_watch.nothrow.count; }
int AllocationFaults::throwing_count() const { return t_watch.throwing.count; }
int AllocationFaults::outstanding() const { return t_watch.outstanding; }

UnwatchedAllocations::UnwatchedAllocations() { ++t_watch.suspended; }
UnwatchedAllocations::~UnwatchedAllocations() { --t_watch.suspended; }

}  // namespace OstrandFakes

using OstrandFakes::AllocateOrNull;
using OstrandFakes::AllocateOrThrow;
using OstrandFakes::Free;
using OstrandFakes::kDefault;

void* operator new(size_t bytes) { return AllocateOrThrow(bytes, kDefault); }
void* operator new[](size_t bytes) { return AllocateOrThrow(bytes, kDefault); }
void* operator new(size_t bytes, std::align_val_t alignment) {
  return AllocateOrThrow(bytes, static_cast<size_t>(alignment));
}
void* operator new[](size_t bytes, std::align_val_t alignment) {
  return AllocateOrThrow(bytes, static_cast<size_t>(alignment));
}

void* operator new(size_t bytes, const std::nothrow_t&) noexcept {
  return AllocateOrNull(bytes, kDefault);
}
void* operator new[](size_t bytes, const std::nothrow_t&) noexcept {
  return AllocateOrNull(bytes, kDefault);
}
void* operator new(size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return AllocateOrNull(bytes, static_cast<size_t>(alignment));
}
void* operator new[](size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return AllocateOrNull(bytes, static_cast<size_t>(alignment));
}

void operator delete(void* memory) noexcept { Free(memory); }
void operator delete[](void* memory) noexcept { Free(memory); }
void operator delete(void* memory, size_t) noexcept { Free(memory); }
void operator delete[](void* memory, size_t) noexcept { Free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { Free(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { Free(memory); }
void operator delete(void* memory, size_t, std::align_val_t) noexcept { Free(memory); }
void operator delete[](void* memory, size_t, std::align_val_t) noexcept { Free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { Free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { Free(memory); }
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
  Free(memory);
}
void operator delete[](void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
  Free(memory);
}
