// Judges proxies by their failures: requests that timed out, and system errors that the proxy
// answered, as the access records count them.
//
// Time is cut into periods of check_period seconds. A period in which a proxy has at least
// `threshold` failures is a bad one; after check_times bad ones in a row the proxy is unavailable,
// until a good period or a reset. Failures are taken as differences of what the access records have
// counted since they were entered, so that the minute's roll loses none.
//
// Defaults: 100 failures in 10 s, three times; a proxy is tried again after 60 s; at most 10 per
// cent of the proxies may be out. A busy client has many time-outs when the store behind the
// proxies is slow; the judge is therefore slow, and leaves silent proxies to the router's fast
// check.
//
// Clock: if the wall clock steps back, the period begins anew, with the failures that it has.
// Memory: one book a zone, of one entry an access record; at most kMaxZones books.
// Ownership: owns its books. Threads: the application's thread only; Update looks at access records
// that the network thread may be adding to.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "common/export.h"
#include "service_api/judge_proxy.h"
#include "service_api/service_api_statistic.h"

namespace OstrandService {

class OSTRAND_API Judge : public JudgeProxy {
 public:
  static constexpr size_t kMaxZones = 256;  // of all applications together
  static constexpr JudgeProxyOption kDefaultOption = {100, 10, 3, 60, 0, 0, false, 0, 10};

  Judge();
  ~Judge() override;
  Judge(const Judge&) = delete;
  Judge& operator=(const Judge&) = delete;

  // How a zone is judged from now on. threshold, check_period or check_times of 0 or less: not at
  // all. The judge's own fields of `option` are not taken over. 0; RUNTIME_ERR_STATISTICS_FULL;
  // ROUTER_ERR_ALLOCATION.
  int SetProxyOption(int32_t app_id, int32_t zone_id, const JudgeProxyOption& option);

  // Ends the period when its time is over. Zones without statistics, and those for which there is
  // no memory, are not judged.
  void Update(int32_t app_id, int32_t zone_id, OstrandServiceStatisticMgr& statistic_mgr) override;

  // True between the Update that ended a period and the next one.
  bool IsShouldCheck(int32_t app_id, int32_t zone_id) override;
  // False for a url without access record. Urls are compared as far as an access record has room.
  bool IsProxyUnavailable(int32_t app_id, int32_t zone_id, const char* url) override;
  // The default option for a zone not seen yet.
  JudgeProxyOption GetProxyOption(int32_t app_id, int32_t zone_id) override;
  int64_t GetRecheckAvailableInterval(int32_t app_id, int32_t zone_id) override;
  // The proxy begins anew, with no bad period and, from the next Update on, no failure.
  void ResetJudgeProxyStatus(int32_t app_id, int32_t zone_id, const char* url) override;

 private:
  // What is held against one access.
  struct Entry {
    char url[sizeof(tagAccessRunStatus::szAccessUrl)] = {};
    uint64_t failures_before = 0;  // the period
    int32_t bad_periods = 0;       // in a row
    bool reset = false;            // failures up to the next Update do not count
  };
  struct Book {
    int32_t app_id;
    int32_t zone_id;
    JudgeProxyOption option;
    bool started = false;    // a first period began
    bool any_reset = false;  // of the entries
    int32_t entry_count = 0;
    Entry
        entries[tagServiceApiStatistic::kMaxAccesses];  // of the access record with the same index
  };

  Book* FindBook(int32_t app_id, int32_t zone_id) const;
  int OpenBook(int32_t app_id, int32_t zone_id, Book*& book);
  static Entry* FindEntry(Book& book, const char* url);
  static void StartFirstPeriod(Book& book, const tagServiceApiStatistic& statistic);
  static void ForgetResetFailures(Book& book, const tagServiceApiStatistic& statistic);
  static void EndPeriod(Book& book, const tagServiceApiStatistic& statistic);

  std::array<std::unique_ptr<Book>, kMaxZones> m_books;
  size_t m_book_count = 0;
};

}  // namespace OstrandService
