#include "client/access_book.h"

#include <algorithm>
#include <numeric>

#include "client/bounded_copy.h"
#include "client/runtime_errors.h"

namespace OstrandService {

// Fibonacci hashing (D. E. Knuth, The Art of Computer Programming 3, section 6.4).
size_t AccessBook::Hash(int ip, int port) {
  const uint64_t key = uint64_t{static_cast<uint32_t>(ip)} << 32 | static_cast<uint32_t>(port);
  return static_cast<size_t>(key * 0x9E3779B97F4A7C15U >> (64 - kIndexBits));
}

uint16_t AccessBook::FindNumber(int ip, int port) const {
  for (size_t i = Hash(ip, port);; i = (i + 1) % kIndexSize) {
    const uint16_t number = m_index[i].number.load(std::memory_order_acquire);
    if (number == kEmpty) {
      return kEmpty;
    }
    const tagAccessRunStatus& access = m_statistic.astAccessStatistic[number];
    if (access.iIp == ip && access.iPort == port) {
      return number;
    }
  }
}

tagAccessRunStatus* AccessBook::Find(int ip, int port) {
  const uint16_t number = FindNumber(ip, port);
  if (number == kEmpty) {
    return nullptr;
  }
  m_last_use[number] = m_now.Get();
  return &m_statistic.astAccessStatistic[number];
}

int AccessBook::Add(const char* url, int ip, int port, const char* server_id) {
  OstrandCommon::ScopedLock lock(m_mutex);
  const uint16_t number = FindNumber(ip, port);
  if (number != kEmpty) {
    m_last_use[number] = m_now.Get();
    return 0;
  }
  if (IsWaiting(ip, port)) {
    return 0;
  }
  Address address;
  CopyBounded(address.url, url);
  CopyBounded(address.id, server_id);
  address.ip = ip;
  address.port = port;
  const int32_t count = m_statistic.iAccessCount.load(std::memory_order_relaxed);
  if (count < tagServiceApiStatistic::kMaxAccesses) {
    Enter(static_cast<uint16_t>(count), address);
    Index(static_cast<uint16_t>(count));
    m_statistic.iAccessCount.store(count + 1, std::memory_order_release);
    return 0;
  }
  if (m_waiting_count == kMaxWaiting) {
    return RUNTIME_ERR_STATISTICS_FULL;
  }
  m_waiting[m_waiting_count++] = address;
  m_someone_waits = true;
  return 0;
}

bool AccessBook::IsWaiting(int ip, int port) const {
  return std::any_of(m_waiting, m_waiting + m_waiting_count, [ip, port](const Address& address) {
    return address.ip == ip && address.port == port;
  });
}

// Writes what the record is about. Its counters are 0, and nobody but the caller knows of it.
void AccessBook::Enter(uint16_t number, const Address& address) {
  tagAccessRunStatus& access = m_statistic.astAccessStatistic[number];
  CopyBounded(access.szAccessUrl, address.url);
  CopyBounded(access.szAccessId, address.id);
  access.iIp = address.ip;
  access.iPort = address.port;
  m_last_use[number] = m_now.Get();
}

void AccessBook::Index(uint16_t number) {
  const tagAccessRunStatus& access = m_statistic.astAccessStatistic[number];
  size_t i = Hash(access.iIp, access.iPort);
  while (m_index[i].number.load(std::memory_order_relaxed) != kEmpty) {
    i = (i + 1) % kIndexSize;
  }
  m_index[i].number.store(number, std::memory_order_release);
}

void AccessBook::ClearIndex() {
  for (Entry& entry : m_index) {
    entry.number.store(kEmpty, std::memory_order_relaxed);
  }
}

void AccessBook::ReuseIdle() {
  m_now += 1;
  if (!m_someone_waits) {
    return;
  }
  OstrandCommon::ScopedLock lock(m_mutex);
  uint16_t numbers[kMaxAccesses];
  std::iota(std::begin(numbers), std::end(numbers), uint16_t{0});
  uint16_t* const end_of_idle = numbers + m_waiting_count;
  std::partial_sort(std::begin(numbers), end_of_idle, std::end(numbers),
                    [this](uint16_t a, uint16_t b) {
                      const uint32_t idle_a = IdleTime(a);
                      const uint32_t idle_b = IdleTime(b);
                      return idle_a != idle_b ? idle_a > idle_b : a < b;
                    });
  for (size_t i = 0; i < m_waiting_count; ++i) {
    m_statistic.astAccessStatistic[numbers[i]] = tagAccessRunStatus();
    Enter(numbers[i], m_waiting[i]);
  }
  ClearIndex();
  for (uint16_t number = 0; number < kMaxAccesses; ++number) {
    Index(number);
  }
  m_waiting_count = 0;
  m_someone_waits = false;
}

}  // namespace OstrandService
