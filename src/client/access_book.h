// The access records of one statistics record: entered by address, found by address.
//
// Finding is O(1) and takes no lock: an open-addressed table (linear probing, at most half full)
// holds the number of the record. The network thread enters records into places that were never
// used. When there are none left, a new address waits until the application's thread takes the
// record that was not used for the longest time and gives it over, counters at 0: only that thread
// counts, so it alone may take a record away. A route that brings 200 new addresses a second so
// costs 200 old records a second and nothing else. An address that lost its record gets another
// when it is entered again (each sign-up answer enters all proxies in use).
//
// Ownership: borrows the statistics record.
// Threads: Add on the network thread and beside it all else on the application's thread.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "common/mutex.h"
#include "common/relaxed.h"
#include "service_api/service_api_statistic.h"

namespace OstrandService {

class AccessBook {
 public:
  // Addresses that may wait for a record; a route has at most 200.
  static constexpr size_t kMaxWaiting = 256;

  explicit AccessBook(tagServiceApiStatistic& statistic) : m_statistic(statistic) {}
  AccessBook(const AccessBook&) = delete;
  AccessBook& operator=(const AccessBook&) = delete;

  // Enters an address; again: nothing but that it counts as used. url and server_id (null: empty)
  // are cut to their fields. 0: it has a record or waits for one; RUNTIME_ERR_STATISTICS_FULL when
  // too many wait.
  int Add(const char* url, int ip, int port, const char* server_id);

  // The record of an address, or null. Valid until the next ReuseIdle.
  tagAccessRunStatus* Find(int ip, int port);

  // Gives the records that were not used for longest to the addresses that wait. Called often (use
  // is dated by the number of calls): it costs next to nothing while none waits.
  void ReuseIdle();

 private:
  static constexpr size_t kMaxAccesses = tagServiceApiStatistic::kMaxAccesses;
  static constexpr unsigned kIndexBits = 11;
  static constexpr size_t kIndexSize = size_t{1} << kIndexBits;
  static_assert(kIndexSize >= 2 * kMaxAccesses);
  static constexpr uint16_t kEmpty = UINT16_MAX;

  struct Address {
    char url[sizeof(tagAccessRunStatus::szAccessUrl)];
    char id[sizeof(tagAccessRunStatus::szAccessId)];
    int ip;
    int port;
  };

  static size_t Hash(int ip, int port);
  uint16_t FindNumber(int ip, int port) const;
  uint32_t IdleTime(uint16_t number) const { return m_now - m_last_use[number]; }
  bool IsWaiting(int ip, int port) const OSTRAND_REQUIRES(m_mutex);
  void Enter(uint16_t number, const Address& address) OSTRAND_REQUIRES(m_mutex);
  void Index(uint16_t number) OSTRAND_REQUIRES(m_mutex);
  void ClearIndex() OSTRAND_REQUIRES(m_mutex);

  tagServiceApiStatistic& m_statistic;  // names and addresses of its accesses: see Enter

  // Numbers of records. A record is whole before its number is stored here (release).
  struct Entry {
    std::atomic<uint16_t> number{kEmpty};
  };
  std::array<Entry, kIndexSize> m_index;

  // When each record was used last, counted in calls of ReuseIdle.
  std::array<OstrandCommon::Relaxed<uint32_t>, kMaxAccesses> m_last_use;
  OstrandCommon::Relaxed<uint32_t> m_now = 0;
  OstrandCommon::Relaxed<bool> m_someone_waits = false;

  OstrandCommon::Mutex m_mutex;  // whoever enters a record holds it
  size_t m_waiting_count OSTRAND_GUARDED_BY(m_mutex) = 0;
  Address m_waiting[kMaxWaiting] OSTRAND_GUARDED_BY(m_mutex) = {};
};

}  // namespace OstrandService
