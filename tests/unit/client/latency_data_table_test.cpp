#include "client/latency_data_table.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fakes/allocation_faults.h"
#include "fakes/fake_clock.h"
#include "fakes/fake_statistic_mgr.h"
#include "fakes/sanitizers.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {
namespace {

using OstrandFakes::FakeClock;

constexpr int64_t kAppId = 7;
constexpr int32_t kZoneId = 3;
constexpr int kIp = 0x0100007F;
constexpr int kPort = 9000;

int32_t Push(LatencyDataTable& table, int64_t send_ms, int32_t timeout_ms) {
  return table.PushBack(kZoneId, send_ms, timeout_ms, kIp, kPort, 7, 0, "player", 0, 0, nullptr, 0);
}

int32_t PushWithBytes(LatencyDataTable& table, const std::string& bytes) {
  return table.PushBack(kZoneId, 0, 1000, kIp, kPort, 7, 0, "player", 0, 0, bytes.data(),
                        static_cast<uint32_t>(bytes.size()));
}

TEST(LatencyDataTable, KeepsWhatItIsGiven) {
  LatencyDataTable table(kAppId);
  const int32_t id =
      table.PushBack(3, 1000, 250, -5, 65535, 25, 300, "player", UINT64_MAX, -110, "user", 4);
  const LatencyData* record = table.GetLatencyData(id);
  ASSERT_NE(nullptr, record);
  EXPECT_EQ(id, record->id_for_latency_data);
  EXPECT_EQ(3, record->zone_id);
  EXPECT_EQ(1000, record->send_ms);
  EXPECT_EQ(250, record->timeout_ms);
  EXPECT_EQ(1250, record->deadline_ms);
  EXPECT_EQ(-5, record->ip);
  EXPECT_EQ(65535, record->port);
  EXPECT_EQ(25U, record->req_cmd);
  EXPECT_EQ(0, record->next_sub_pkg_seq);
  EXPECT_EQ(300, record->table_subscript);
  EXPECT_STREQ("player", record->table_name);
  EXPECT_EQ(UINT64_MAX, record->async_id);
  EXPECT_EQ(-110, record->seq);
  ASSERT_NE(nullptr, record->user_buffer);
  EXPECT_EQ("user", std::string(record->user_buffer, record->user_buffer_len));
  EXPECT_EQ(1U, table.InFlight());
}

TEST(LatencyDataTable, CutsTableNamesAndTakesNullAsEmpty) {
  LatencyDataTable table(kAppId);
  const std::string name(40, 'n');
  int32_t id = table.PushBack(1, 0, 1, 0, 0, 7, 0, name.c_str(), 0, 0, nullptr, 0);
  EXPECT_EQ(std::string(31, 'n'), table.GetLatencyData(id)->table_name);
  id = table.PushBack(1, 0, 1, 0, 0, 7, 0, nullptr, 0, 0, nullptr, 0);
  EXPECT_STREQ("", table.GetLatencyData(id)->table_name);
}

TEST(LatencyDataTable, CopiesTheUserBufferBeforeItsOwnerWritesOverIt) {
  LatencyDataTable table(kAppId);
  std::string bytes(2000, 'u');
  const int32_t id = PushWithBytes(table, bytes);
  bytes.assign(2000, '-');
  const LatencyData* record = table.GetLatencyData(id);
  EXPECT_EQ(std::string(2000, 'u'), std::string(record->user_buffer, record->user_buffer_len));
}

TEST(LatencyDataTable, KeepsOnlyTheLengthOfAUserBufferThatTravels) {
  LatencyDataTable table(kAppId);
  const int32_t id = table.PushBack(1, 0, 1, 0, 0, 7, 0, "t", 0, 0, nullptr, 1009);
  EXPECT_EQ(nullptr, table.GetLatencyData(id)->user_buffer);
  EXPECT_EQ(1009U, table.GetLatencyData(id)->user_buffer_len);
}

TEST(LatencyDataTable, TellsAnEmptyUserBufferFromNone) {
  LatencyDataTable table(kAppId);
  const int32_t id = PushWithBytes(table, "");
  EXPECT_NE(nullptr, table.GetLatencyData(id)->user_buffer);
  EXPECT_EQ(0U, table.GetLatencyData(id)->user_buffer_len);
}

TEST(LatencyDataTable, GivesIdsInARow) {
  LatencyDataTable table(kAppId);
  for (int32_t id = 0; id < 3000; ++id) {
    ASSERT_EQ(id, Push(table, 0, 1));
  }
  table.FreeLatencyData(table.GetLatencyData(5));
  EXPECT_EQ(3000, Push(table, 0, 1)) << "5 is not used again: its answer may still come";
  EXPECT_EQ(nullptr, table.GetLatencyData(5));
}

TEST(LatencyDataTable, BeginsAgainAt0BehindTheLastId) {
  LatencyDataTable table(kAppId);
  table.SetNextId(INT32_MAX - 1);
  EXPECT_EQ(INT32_MAX - 1, Push(table, 0, 1));
  EXPECT_EQ(INT32_MAX, Push(table, 0, 1));
  EXPECT_EQ(0, Push(table, 0, 1));
  EXPECT_EQ(1, Push(table, 0, 1));
}

TEST(LatencyDataTable, SkipsIdsThatAreStillInFlight) {
  LatencyDataTable table(kAppId);
  for (int32_t id = 0; id < 4; ++id) {
    Push(table, 0, 1);
  }
  LatencyData* const long_lived = table.GetLatencyData(1);
  table.FreeLatencyData(table.GetLatencyData(2));
  table.SetNextId(INT32_MAX);  // as after 2^31 requests
  EXPECT_EQ(INT32_MAX, Push(table, 0, 1));
  EXPECT_EQ(2, Push(table, 0, 1)) << "0 and 1 are in flight";
  EXPECT_EQ(4, Push(table, 0, 1)) << "and 3 is";
  EXPECT_EQ(long_lived, table.GetLatencyData(1));
}

TEST(LatencyDataTable, FindsNothingForIdsFromNowhere) {
  LatencyDataTable table(kAppId);
  for (const int32_t id : {INT32_MIN, -1, 0, 1, 1024, INT32_MAX}) {
    EXPECT_EQ(nullptr, table.GetLatencyData(id)) << id;
  }
  Push(table, 0, 1);
  for (const int32_t id : {INT32_MIN, -1, 1, 1024, INT32_MAX}) {
    EXPECT_EQ(nullptr, table.GetLatencyData(id)) << id;
  }
}

TEST(LatencyDataTable, RefusesMoreThanTheLimitUntilOneIsFreed) {
  LatencyDataTable table(kAppId, 2);
  const int32_t first = Push(table, 0, 1);
  Push(table, 0, 1);
  EXPECT_EQ(RUNTIME_ERR_IN_FLIGHT_FULL, Push(table, 0, 1));
  EXPECT_GT(0, RUNTIME_ERR_IN_FLIGHT_FULL);
  EXPECT_EQ(2U, table.InFlight());
  table.FreeLatencyData(table.GetLatencyData(first));
  EXPECT_EQ(2, Push(table, 0, 1)) << "a refusal uses up no id";
  LatencyDataTable none(kAppId, 0);
  EXPECT_EQ(RUNTIME_ERR_IN_FLIGHT_FULL, Push(none, 0, 1));
}

TEST(LatencyDataTable, IgnoresNullAndRecordsThatAreFree) {
  LatencyDataTable table(kAppId);
  table.FreeLatencyData(nullptr);
  table.RenewalLatencyData(0, nullptr);
  EXPECT_EQ(ROUTER_ERR_ARGUMENT, table.CalculateDelay(nullptr, 0, nullptr));
  LatencyData* const record = table.GetLatencyData(PushWithBytes(table, "bytes"));
  table.FreeLatencyData(record);
  table.FreeLatencyData(record);
  table.RenewalLatencyData(0, record);
  EXPECT_EQ(0U, table.InFlight());
  EXPECT_EQ(nullptr, table.TraverseForDeleteTimeOutNode(nullptr));
}

TEST(LatencyDataTable, ARecordExpiresOnceTheClockIsPastItsDeadline) {
  FakeClock clock(1000);
  LatencyDataTable table(kAppId);
  const int32_t id = Push(table, 1000, 50);
  clock.SetMs(1050);
  EXPECT_EQ(nullptr, table.TraverseForDeleteTimeOutNode(nullptr));
  clock.SetMs(1051);
  LatencyData* const record = table.TraverseForDeleteTimeOutNode(nullptr);
  ASSERT_NE(nullptr, record);
  EXPECT_EQ(id, record->id_for_latency_data);
  EXPECT_EQ(nullptr, table.TraverseForDeleteTimeOutNode(nullptr)) << "not twice";
  EXPECT_EQ(record, table.GetLatencyData(id)) << "it is the caller's to free";
  EXPECT_EQ(1U, table.InFlight());
  table.FreeLatencyData(record);
  EXPECT_EQ(nullptr, table.GetLatencyData(id));
  EXPECT_EQ(0U, table.InFlight());
}

TEST(LatencyDataTable, ExpiresTheEarliestDeadlineFirstOneACall) {
  FakeClock clock(1000);
  LatencyDataTable table(kAppId);
  const int32_t late = Push(table, 1000, 300);
  const int32_t early = Push(table, 1000, 100);
  const int32_t middle = Push(table, 1000, 200);
  const int32_t middle_too = Push(table, 1100, 100);
  clock.SetMs(100000);
  for (const int32_t id : {early, middle, middle_too, late}) {
    LatencyData* const record = table.TraverseForDeleteTimeOutNode(nullptr);
    ASSERT_NE(nullptr, record);
    EXPECT_EQ(id, record->id_for_latency_data);
    table.FreeLatencyData(record);
  }
  EXPECT_EQ(nullptr, table.TraverseForDeleteTimeOutNode(nullptr));
}

TEST(LatencyDataTable, RenewalGivesTheWholeTimeOutAgain) {
  FakeClock clock(1000);
  LatencyDataTable table(kAppId);
  LatencyData* const record = table.GetLatencyData(Push(table, 1000, 50));
  table.RenewalLatencyData(1040, record);
  EXPECT_EQ(1090, record->deadline_ms);
  clock.SetMs(1090);
  EXPECT_EQ(nullptr, table.TraverseForDeleteTimeOutNode(nullptr));
  clock.SetMs(1091);
  EXPECT_EQ(record, table.TraverseForDeleteTimeOutNode(nullptr));
  table.RenewalLatencyData(2000, record);  // it waits again
  clock.SetMs(2051);
  EXPECT_EQ(record, table.TraverseForDeleteTimeOutNode(nullptr));
}

struct SaturationCase {
  int64_t send_ms;
  int32_t timeout_ms;
  int64_t deadline_ms;
};

TEST(LatencyDataTable, DeadlinesStayWithinWhatFits) {
  const SaturationCase cases[] = {
      {INT64_MAX, 1, INT64_MAX},
      {INT64_MAX - 10, 10, INT64_MAX},
      {INT64_MAX, -1, INT64_MAX - 1},
      {INT64_MIN, -1, INT64_MIN},
      {INT64_MIN, INT32_MAX, INT64_MIN + INT32_MAX},
      {0, INT32_MIN, INT32_MIN},
      {5, 0, 5},
  };
  LatencyDataTable table(kAppId);
  for (const SaturationCase& c : cases) {
    LatencyData* const record = table.GetLatencyData(Push(table, c.send_ms, c.timeout_ms));
    EXPECT_EQ(c.deadline_ms, record->deadline_ms) << c.send_ms << " " << c.timeout_ms;
    record->deadline_ms = 1;
    table.RenewalLatencyData(c.send_ms, record);
    EXPECT_EQ(c.deadline_ms, record->deadline_ms) << c.send_ms << " " << c.timeout_ms;
  }
}

TEST(LatencyDataTable, AClockThatStepsLosesNoRecord) {
  FakeClock clock(10'000'000);
  LatencyDataTable table(kAppId);
  Push(table, 10'000'000, 50);
  clock.SetMs(10'000'000 - 3'600'000);
  Push(table, 10'000'000 - 3'600'000, 50);
  clock.AdvanceMs(51);
  LatencyData* record = table.TraverseForDeleteTimeOutNode(nullptr);
  ASSERT_NE(nullptr, record);
  EXPECT_EQ(1, record->id_for_latency_data);
  table.FreeLatencyData(record);
  EXPECT_EQ(nullptr, table.TraverseForDeleteTimeOutNode(nullptr)) << "it waits for the old time";
  clock.AdvanceMs(86'400'000);
  record = table.TraverseForDeleteTimeOutNode(nullptr);
  ASSERT_NE(nullptr, record);
  EXPECT_EQ(0, record->id_for_latency_data);
}

TEST(LatencyDataTable, CountsATimeOutOnTheAccessOfItsProxy) {
  FakeClock clock(1000);
  OstrandFakes::FakeStatisticMgr statistics;
  tagServiceApiStatistic& statistic = statistics.Register(kAppId, kZoneId);
  statistics.AddAccess(kAppId, kZoneId, "tcp://127.0.0.1:9000", kIp, kPort, "a");
  statistics.AddAccess(kAppId, kZoneId, "tcp://127.0.0.1:9001", kIp, kPort + 1, "b");
  LatencyDataTable table(kAppId);
  Push(table, 0, 1);
  Push(table, 0, 1);
  // Of a zone and of a proxy that the statistics do not know.
  table.PushBack(kZoneId + 1, 0, 1, kIp, kPort, 7, 0, "t", 0, 0, nullptr, 0);
  table.PushBack(kZoneId, 0, 1, kIp, kPort + 2, 7, 0, "t", 0, 0, nullptr, 0);
  for (int i = 0; i < 4; ++i) {
    LatencyData* const record = table.TraverseForDeleteTimeOutNode(&statistics);
    ASSERT_NE(nullptr, record);
    table.FreeLatencyData(record);
  }
  EXPECT_EQ(2U, statistics.GetAccessRunStatus(statistic, kIp, kPort)->dwTimeOutCountPerMin);
  EXPECT_EQ(0U, statistics.GetAccessRunStatus(statistic, kIp, kPort + 1)->dwTimeOutCountPerMin);
}

TEST(LatencyDataTable, BooksTheDelayOfEveryAnswer) {
  LatencyDataTable table(kAppId);
  LatencyData* const record = table.GetLatencyData(Push(table, 1000, 50));
  EXPECT_EQ(0, table.CalculateDelay(record, 1007, nullptr));
  EXPECT_EQ(0, table.CalculateDelay(record, 1003, nullptr));
  EXPECT_EQ(0, table.CalculateDelay(record, 900, nullptr)) << "the clock went back: 0";
  EXPECT_EQ(3U, table.Delays().packages);
  EXPECT_EQ(10U, table.Delays().total_ms);
  EXPECT_EQ(7U, table.Delays().max_ms);
  table.ClearDelays();
  EXPECT_EQ(0U, table.Delays().packages);
  EXPECT_EQ(0U, table.Delays().max_ms);
}

TEST(LatencyDataTable, AllocatesNothingOnceWarm) {
  FakeClock clock(1000);
  LatencyDataTable table(kAppId);
  const std::string bytes(1024, 'u');
  const auto burst = [&table, &bytes, &clock] {
    std::vector<int32_t> ids;
    {
      OstrandFakes::UnwatchedAllocations unwatched;
      ids.reserve(3000);
    }
    for (int i = 0; i < 3000; ++i) {
      ids.push_back(PushWithBytes(table, bytes));
      EXPECT_LE(0, ids.back());
    }
    for (size_t i = 0; i < ids.size(); i += 2) {
      table.RenewalLatencyData(1, table.GetLatencyData(ids[i]));
      table.FreeLatencyData(table.GetLatencyData(ids[i]));
    }
    clock.AdvanceMs(10000);
    while (LatencyData* expired = table.TraverseForDeleteTimeOutNode(nullptr)) {
      table.FreeLatencyData(expired);
    }
    EXPECT_EQ(0U, table.InFlight());
    OstrandFakes::UnwatchedAllocations unwatched;
    ids = std::vector<int32_t>();
  };
  burst();
  OstrandFakes::AllocationFaults faults;
  burst();
  EXPECT_EQ(0, faults.count());
}

// Whatever allocation fails while the table grows: a code, and nothing of the request stays.
TEST(LatencyDataTable, AnswersACodeWhenItCannotGrow) {
  for (int failing = 1; failing < 40; ++failing) {
    OstrandFakes::AllocationFaults faults;
    faults.FailNothrow(failing);
    LatencyDataTable table(kAppId, 10000);
    const std::string bytes(100, 'u');
    int32_t pushed = 0;
    int refused = 0;
    while (pushed < 5000 && refused < 3) {
      const int32_t id = PushWithBytes(table, bytes);
      if (id >= 0) {
        ++pushed;
      } else {
        ASSERT_EQ(ROUTER_ERR_ALLOCATION, id);
        ASSERT_TRUE(faults.struck());
        ++refused;
      }
      ASSERT_EQ(static_cast<size_t>(pushed), table.InFlight());
    }
    // Only without the list of blocks there is nothing to be had; else it works at the next try.
    ASSERT_EQ(failing == 1 ? 3 : (refused == 0 ? 0 : 1), refused) << failing;
    if (!faults.struck()) {
      return;
    }
  }
}

TEST(LatencyDataTable, GivesAllMemoryBack) {
  OstrandFakes::AllocationFaults faults;
  {
    LatencyDataTable table(kAppId);
    for (int i = 0; i < 3000; ++i) {
      const int32_t id = PushWithBytes(table, std::string(static_cast<size_t>(i), 'u'));
      if (i % 3 == 0) {
        table.FreeLatencyData(table.GetLatencyData(id));
      }
    }
  }
  EXPECT_EQ(0, faults.outstanding());
}

// The plain version: a map by id and a set by deadline.
class Model {
 public:
  struct Record {
    int64_t deadline_ms;
    uint64_t order;
    int32_t timeout_ms;
    bool handed_out;
    std::string user_bytes;
  };

  explicit Model(size_t max_in_flight) : m_max(max_in_flight) {}

  int32_t Push(int64_t send_ms, int32_t timeout_ms, std::string user_bytes) {
    if (m_records.size() == m_max) {
      return RUNTIME_ERR_IN_FLIGHT_FULL;
    }
    while (m_records.count(m_next_id) != 0) {
      Advance();
    }
    const int32_t id = m_next_id;
    Advance();
    m_records[id] = {send_ms + timeout_ms, m_order, timeout_ms, false, std::move(user_bytes)};
    m_due.insert({send_ms + timeout_ms, m_order++, id});
    return id;
  }

  const Record* Get(int32_t id) const {
    const auto found = m_records.find(id);
    return found != m_records.end() ? &found->second : nullptr;
  }

  void Renew(int32_t id, int64_t now_ms) {
    Record& record = m_records[id];
    m_due.erase({record.deadline_ms, record.order, id});
    record.deadline_ms = now_ms + record.timeout_ms;
    record.order = m_order++;
    record.handed_out = false;
    m_due.insert({record.deadline_ms, record.order, id});
  }

  int32_t Expire(int64_t now_ms) {
    if (m_due.empty() || now_ms <= std::get<0>(*m_due.begin())) {
      return -1;
    }
    const int32_t id = std::get<2>(*m_due.begin());
    m_due.erase(m_due.begin());
    m_records[id].handed_out = true;
    return id;
  }

  void Free(int32_t id) {
    const Record& record = m_records[id];
    m_due.erase({record.deadline_ms, record.order, id});
    m_records.erase(id);
  }

  void SetNextId(int32_t id) { m_next_id = id; }
  size_t size() const { return m_records.size(); }
  // The live id at or behind this one, else the first.
  int32_t Near(int32_t id) const {
    const auto found = m_records.lower_bound(id);
    return found != m_records.end() ? found->first : m_records.begin()->first;
  }

 private:
  void Advance() { m_next_id = m_next_id == INT32_MAX ? 0 : m_next_id + 1; }

  const size_t m_max;
  int32_t m_next_id = 0;
  uint64_t m_order = 0;
  std::map<int32_t, Record> m_records;
  std::set<std::tuple<int64_t, uint64_t, int32_t>> m_due;
};

struct Mix {
  const char* name;
  std::vector<int32_t> timeouts_ms;  // empty: any up to 5000
  uint32_t frees_of_10;              // against pushes
};

void PrintTo(const Mix& mix, std::ostream* out) { *out << mix.name; }

class LatencyDataTableModel : public testing::TestWithParam<Mix> {};

// A million random operations, the ids among them that wrap and those that stay in flight while
// they do, on both versions. Prints its seed with every failure.
TEST_P(LatencyDataTableModel, AgreesWithAMap) {
  constexpr uint32_t kSeed = 42;
  constexpr int kSteps = OstrandFakes::Rounds(350000);  // for each of the mixes
  constexpr size_t kMaxInFlight = 2500;
  SCOPED_TRACE(kSeed);
  const Mix& mix = GetParam();
  std::mt19937 random(kSeed);
  FakeClock clock;
  LatencyDataTable table(kAppId, kMaxInFlight);
  Model model(kMaxInFlight);
  const auto any_live = [&model, &random] {
    const auto low = static_cast<int32_t>(random() % 6000);
    return model.Near(random() % 2 == 0 ? low : INT32_MAX - low);
  };
  for (int step = 0; step < kSteps; ++step) {
    clock.AdvanceMs(random() % 20 == 0 ? 1 : 0);
    if (random() % 50000 == 0) {
      clock.AdvanceMs(random() % 2 == 0 ? -3600000 : 86400000);
    }
    if (random() % 5000 == 0) {  // shortly before the ids begin again, where some are in flight
      const auto next = INT32_MAX - static_cast<int32_t>(random() % 1000);
      table.SetNextId(next);
      model.SetNextId(next);
    }
    const auto operation = static_cast<uint32_t>(random() % 100);
    if (operation < 45) {
      const int32_t timeout_ms = mix.timeouts_ms.empty()
                                     ? static_cast<int32_t>(random() % 5000)
                                     : mix.timeouts_ms[random() % mix.timeouts_ms.size()];
      const std::string bytes(random() % 4 == 0 ? random() % 1500 : 0, static_cast<char>(step));
      const int32_t expected = model.Push(clock.Ms(), timeout_ms, bytes);
      ASSERT_EQ(expected, table.PushBack(kZoneId, clock.Ms(), timeout_ms, 0, 0, 7, 0, "t", 0, 0,
                                         bytes.data(), static_cast<uint32_t>(bytes.size())));
    } else if (operation < 45 + 4 * mix.frees_of_10 && model.size() > 0) {
      const int32_t id = any_live();
      LatencyData* const record = table.GetLatencyData(id);
      ASSERT_NE(nullptr, record);
      ASSERT_EQ(id, record->id_for_latency_data);
      ASSERT_EQ(model.Get(id)->deadline_ms, record->deadline_ms);
      ASSERT_EQ(model.Get(id)->user_bytes,
                std::string(record->user_buffer, record->user_buffer_len));
      table.FreeLatencyData(record);
      model.Free(id);
      ASSERT_EQ(nullptr, table.GetLatencyData(id));
    } else if (operation < 90 && model.size() > 0) {
      const int32_t id = any_live();
      table.RenewalLatencyData(clock.Ms(), table.GetLatencyData(id));
      model.Renew(id, clock.Ms());
    } else {
      const int32_t expected = model.Expire(clock.Ms());
      LatencyData* const expired = table.TraverseForDeleteTimeOutNode(nullptr);
      ASSERT_EQ(expected, expired != nullptr ? expired->id_for_latency_data : -1);
      if (expired != nullptr && random() % 2 == 0) {  // else it is freed, or renewed, later
        table.FreeLatencyData(expired);
        model.Free(expected);
      }
    }
    ASSERT_EQ(model.size(), table.InFlight());
    const auto id = static_cast<int32_t>(random() % 6000) - 10;
    ASSERT_EQ(model.Get(id) != nullptr, table.GetLatencyData(id) != nullptr);
  }
}

INSTANTIATE_TEST_SUITE_P(Mixes, LatencyDataTableModel,
                         testing::Values(Mix{"OneTimeOut", {3000}, 9},
                                         Mix{"ThreeTimeOutsNearlyFull", {50, 1000, 30000}, 5},
                                         Mix{"AnyTimeOut", {}, 9}),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace OstrandService
