// A value that two threads read and write without a lock and without order between values.
//
// Reading and assigning look like those of the plain type; each is one relaxed atomic access. Use
// it for flags, times and counters that are each meaningful alone. It publishes nothing: what one
// thread wrote before it is not thereby visible to the thread that reads it.
#pragma once

#include <atomic>

namespace OstrandCommon {

template <typename T>
class Relaxed {
 public:
  Relaxed() noexcept : m_value(T{}) {}
  Relaxed(T value) noexcept : m_value(value) {}  // NOLINT: converts like the plain type
  Relaxed(const Relaxed& other) noexcept : m_value(other.Get()) {}

  Relaxed& operator=(const Relaxed& other) noexcept {
    Set(other.Get());
    return *this;
  }
  T operator=(T value) noexcept {  // NOLINT: answers the value, as std::atomic does
    Set(value);
    return value;
  }
  operator T() const noexcept { return Get(); }  // NOLINT: converts like the plain type

  T Get() const noexcept { return m_value.load(std::memory_order_relaxed); }
  void Set(T value) noexcept { m_value.store(value, std::memory_order_relaxed); }

  // Adds and answers the sum. Atomic: no count of either thread is lost.
  T operator+=(T value) noexcept {
    return static_cast<T>(m_value.fetch_add(value, std::memory_order_relaxed) + value);
  }
  T operator++() noexcept { return *this += T{1}; }

 private:
  std::atomic<T> m_value;
};

}  // namespace OstrandCommon
