#include "client/judge.h"

#include <cstring>
#include <new>

#include "client/bounded_copy.h"
#include "client/runtime_errors.h"
#include "common/clock.h"
#include "service_api/ostrand_router.h"
#include "service_api/ostrand_service_statistic_mgr.h"

namespace OstrandService {
namespace {

// Since the access was entered.
uint64_t Failures(const tagAccessRunStatus& access) {
  return access.ullTimeOutCount + access.dwTimeOutCountPerMin +
         access.ullProxyReturnSystemErrCount + access.dwProxyReturnSystemErrCountPerMin;
}

int32_t AccessCount(const tagServiceApiStatistic& statistic) {
  return statistic.iAccessCount.load(std::memory_order_acquire);
}

bool IsJudged(const JudgeProxyOption& option) {
  return option.threshold > 0 && option.check_period > 0 && option.check_times > 0;
}

}  // namespace

Judge::Judge() = default;
Judge::~Judge() = default;

Judge::Book* Judge::FindBook(int32_t app_id, int32_t zone_id) const {
  for (size_t i = 0; i < m_book_count; ++i) {
    if (m_books[i]->app_id == app_id && m_books[i]->zone_id == zone_id) {
      return m_books[i].get();
    }
  }
  return nullptr;
}

int Judge::OpenBook(int32_t app_id, int32_t zone_id, Book*& book) {
  book = FindBook(app_id, zone_id);
  if (book != nullptr) {
    return 0;
  }
  if (m_book_count == kMaxZones) {
    return RUNTIME_ERR_STATISTICS_FULL;
  }
  m_books[m_book_count].reset(new (std::nothrow) Book);
  book = m_books[m_book_count].get();
  if (book == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  ++m_book_count;
  book->app_id = app_id;
  book->zone_id = zone_id;
  book->option = kDefaultOption;
  return 0;
}

int Judge::SetProxyOption(int32_t app_id, int32_t zone_id, const JudgeProxyOption& option) {
  Book* book = nullptr;
  const int ret = OpenBook(app_id, zone_id, book);
  if (ret != 0) {
    return ret;
  }
  book->option.threshold = option.threshold;
  book->option.check_period = option.check_period;
  book->option.check_times = option.check_times;
  book->option.recheck_available_interval = option.recheck_available_interval;
  book->option.max_remove_rate = option.max_remove_rate;
  return 0;
}

void Judge::Update(int32_t app_id, int32_t zone_id, OstrandServiceStatisticMgr& statistic_mgr) {
  const tagServiceApiStatistic* const statistic =
      statistic_mgr.GetServiceApiStatistic(app_id, zone_id);
  Book* book = nullptr;
  if (statistic == nullptr || OpenBook(app_id, zone_id, book) != 0) {
    return;
  }
  JudgeProxyOption& option = book->option;
  const int64_t now = OstrandCommon::GetCurrentMilliseconds() / 1000;
  option.last_call_update_time = now;
  option.should_check = false;
  if (!IsJudged(option)) {
    book->started = false;
    return;
  }
  if (!book->started) {
    StartFirstPeriod(*book, *statistic);
    option.last_traverse_time = now;
    return;
  }
  ForgetResetFailures(*book, *statistic);
  if (now < option.last_traverse_time) {  // the clock went back
    option.last_traverse_time = now;
  }
  if (now - option.last_traverse_time >= option.check_period) {
    EndPeriod(*book, *statistic);
    option.last_traverse_time = now;
    option.should_check = true;
  }
}

// What failed before is nobody's fault now.
void Judge::StartFirstPeriod(Book& book, const tagServiceApiStatistic& statistic) {
  book.started = true;
  book.entry_count = AccessCount(statistic);
  for (int32_t i = 0; i < book.entry_count; ++i) {
    const tagAccessRunStatus& access = statistic.astAccessStatistic[i];
    book.entries[i] = Entry();
    CopyBounded(book.entries[i].url, access.szAccessUrl);
    book.entries[i].failures_before = Failures(access);
  }
}

void Judge::ForgetResetFailures(Book& book, const tagServiceApiStatistic& statistic) {
  if (!book.any_reset) {
    return;
  }
  book.any_reset = false;
  for (int32_t i = 0; i < book.entry_count; ++i) {
    Entry& entry = book.entries[i];
    if (entry.reset) {
      entry.reset = false;
      entry.failures_before = Failures(statistic.astAccessStatistic[i]);
    }
  }
}

void Judge::EndPeriod(Book& book, const tagServiceApiStatistic& statistic) {
  book.entry_count = AccessCount(statistic);
  for (int32_t i = 0; i < book.entry_count; ++i) {
    const tagAccessRunStatus& access = statistic.astAccessStatistic[i];
    Entry& entry = book.entries[i];
    const uint64_t failures = Failures(access);
    // A record that was entered within the period, be it for the same proxy.
    if (failures < entry.failures_before || std::strcmp(entry.url, access.szAccessUrl) != 0) {
      entry = Entry();
      CopyBounded(entry.url, access.szAccessUrl);
    }
    const uint64_t in_period = failures - entry.failures_before;
    const bool bad = in_period >= static_cast<uint64_t>(book.option.threshold);
    if (!bad) {
      entry.bad_periods = 0;
    } else if (entry.bad_periods < INT32_MAX) {
      entry.bad_periods += 1;
    }
    entry.failures_before = failures;
  }
}

Judge::Entry* Judge::FindEntry(Book& book, const char* url) {
  if (url == nullptr) {
    return nullptr;
  }
  for (int32_t i = 0; i < book.entry_count; ++i) {
    Entry& entry = book.entries[i];
    if (std::strncmp(entry.url, url, sizeof(entry.url) - 1) == 0) {
      return &entry;
    }
  }
  return nullptr;
}

bool Judge::IsShouldCheck(int32_t app_id, int32_t zone_id) {
  const Book* const book = FindBook(app_id, zone_id);
  return book != nullptr && book->option.should_check;
}

bool Judge::IsProxyUnavailable(int32_t app_id, int32_t zone_id, const char* url) {
  Book* const book = FindBook(app_id, zone_id);
  const Entry* const entry = book != nullptr ? FindEntry(*book, url) : nullptr;
  return entry != nullptr && IsJudged(book->option) &&
         entry->bad_periods >= book->option.check_times;
}

JudgeProxyOption Judge::GetProxyOption(int32_t app_id, int32_t zone_id) {
  const Book* const book = FindBook(app_id, zone_id);
  return book != nullptr ? book->option : kDefaultOption;
}

int64_t Judge::GetRecheckAvailableInterval(int32_t app_id, int32_t zone_id) {
  return GetProxyOption(app_id, zone_id).recheck_available_interval;
}

void Judge::ResetJudgeProxyStatus(int32_t app_id, int32_t zone_id, const char* url) {
  Book* const book = FindBook(app_id, zone_id);
  Entry* const entry = book != nullptr ? FindEntry(*book, url) : nullptr;
  if (entry != nullptr) {
    entry->bad_periods = 0;
    entry->reset = true;
    book->any_reset = true;
  }
}

}  // namespace OstrandService
