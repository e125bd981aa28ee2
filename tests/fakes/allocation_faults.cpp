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

// What every form of operator new and delete comes to. allocation_faults.cmake knows these names;
// they are visible so that the standard library's own calls come here too.
#pragma GCC visibility push(default)
extern "C" {

void* ostrand_fakes_new(size_t bytes) {
  return OstrandFakes::AllocateOrThrow(bytes, alignof(std::max_align_t));
}
void* ostrand_fakes_new_aligned(size_t bytes, size_t alignment) {
  return OstrandFakes::AllocateOrThrow(bytes, alignment);
}
void* ostrand_fakes_new_nothrow(size_t bytes) {
  return OstrandFakes::AllocateOrNull(bytes, alignof(std::max_align_t));
}
void* ostrand_fakes_new_aligned_nothrow(size_t bytes, size_t alignment) {
  return OstrandFakes::AllocateOrNull(bytes, alignment);
}
void ostrand_fakes_delete(void* memory) { OstrandFakes::Free(memory); }

}  // extern "C"
#pragma GCC visibility pop

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define OSTRAND_REPLACED_BY_THE_LINKER
#endif
#endif

#ifndef OSTRAND_REPLACED_BY_THE_LINKER
using std::align_val_t;
using std::nothrow_t;

void* operator new(size_t bytes) { return ostrand_fakes_new(bytes); }
void* operator new[](size_t bytes) { return ostrand_fakes_new(bytes); }
void* operator new(size_t bytes, align_val_t alignment) {
  return ostrand_fakes_new_aligned(bytes, static_cast<size_t>(alignment));
}
void* operator new[](size_t bytes, align_val_t alignment) {
  return ostrand_fakes_new_aligned(bytes, static_cast<size_t>(alignment));
}
void* operator new(size_t bytes, const nothrow_t&) noexcept {
  return ostrand_fakes_new_nothrow(bytes);
}
void* operator new[](size_t bytes, const nothrow_t&) noexcept {
  return ostrand_fakes_new_nothrow(bytes);
}
void* operator new(size_t bytes, align_val_t alignment, const nothrow_t&) noexcept {
  return ostrand_fakes_new_aligned_nothrow(bytes, static_cast<size_t>(alignment));
}
void* operator new[](size_t bytes, align_val_t alignment, const nothrow_t&) noexcept {
  return ostrand_fakes_new_aligned_nothrow(bytes, static_cast<size_t>(alignment));
}

void operator delete(void* memory) noexcept { ostrand_fakes_delete(memory); }
void operator delete[](void* memory) noexcept { ostrand_fakes_delete(memory); }
void operator delete(void* memory, size_t) noexcept { ostrand_fakes_delete(memory); }
void operator delete[](void* memory, size_t) noexcept { ostrand_fakes_delete(memory); }
void operator delete(void* memory, align_val_t) noexcept { ostrand_fakes_delete(memory); }
void operator delete[](void* memory, align_val_t) noexcept { ostrand_fakes_delete(memory); }
void operator delete(void* memory, size_t, align_val_t) noexcept { ostrand_fakes_delete(memory); }
void operator delete[](void* memory, size_t, align_val_t) noexcept { ostrand_fakes_delete(memory); }
void operator delete(void* memory, const nothrow_t&) noexcept { ostrand_fakes_delete(memory); }
void operator delete[](void* memory, const nothrow_t&) noexcept { ostrand_fakes_delete(memory); }
void operator delete(void* memory, align_val_t, const nothrow_t&) noexcept {
  ostrand_fakes_delete(memory);
}
void operator delete[](void* memory, align_val_t, const nothrow_t&) noexcept {
  ostrand_fakes_delete(memory);
}
#endif
