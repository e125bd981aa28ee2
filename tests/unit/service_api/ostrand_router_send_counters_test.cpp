// What sending counts: each event as one row, exactly.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "unit/service_api/router_send_test.h"

namespace OstrandService {
namespace {

using OstrandFakes::Counters;
using OstrandFakes::NonZeroCounters;

enum Event { kPackFailed, kSendFailed, kBufferFull, kSent };

// The classes of a command that matter here.
constexpr uint32_t kSimpleRead = 7;
constexpr uint32_t kComplexRead = 25;
constexpr uint32_t kBatchGet = 23;
constexpr uint32_t kSimpleWrite = 1;
constexpr uint32_t kComplexWrite = 145;
constexpr uint32_t kNeither = 53;

class SendCountersTest : public RouterSendTest {
 protected:
  void Script(Event event) {
    request.SetPackResult(event == kPackFailed ? -9 : 0);
    connector->SetSendResult(event == kSendFailed ? -32 : event == kBufferFull ? 0 : 1);
  }
  // One request of this command, whose end is this event.
  void Happen(Event event, uint32_t cmd) {
    request.SetCmd(cmd);
    Script(event);
    const int32_t kResults[] = {-9, -32, -12307, 0};
    EXPECT_EQ(kResults[event], InnerSend());
  }
  static Counters Slot0(Event event) {
    switch (event) {
      case kPackFailed: return {{"iPackErrorCount", 1}};
      case kSendFailed: return {{"iSendErrorCount", 1}};
      default: return {};
    }
  }
};

struct Row {
  Event event;
  uint32_t cmd;
  std::vector<std::string> shared;    // counted overall and for the table
  std::vector<std::string> overall;   // overall alone
  std::vector<std::string> accesses;  // for the proxy's access
  uint64_t requests_of_proxy;
};

const Row kRows[] = {
    {kPackFailed, kSimpleRead, {}, {"dwPackErrNumPerMin", "dwReqErrNumPerMin"}, {}, 0},
    {kPackFailed, kSimpleWrite, {}, {"dwPackErrNumPerMin", "dwReqErrNumPerMin"}, {}, 0},
    {kPackFailed, kBatchGet, {}, {"dwPackErrNumPerMin", "dwReqErrNumPerMin"}, {}, 0},
    {kPackFailed, kNeither, {}, {"dwPackErrNumPerMin", "dwReqErrNumPerMin"}, {}, 0},

    {kSendFailed, kSimpleRead, {"ReqErrNumPerMin", "ReadReqErrNumPerMin"}, {}, {}, 0},
    {kSendFailed, kComplexRead, {"ReqErrNumPerMin", "ReadReqErrNumPerMin"}, {}, {}, 0},
    {kSendFailed, kBatchGet, {"ReqErrNumPerMin", "ReadReqErrNumPerMin"}, {}, {}, 0},
    {kSendFailed, kSimpleWrite, {"ReqErrNumPerMin", "WriteReqErrNumPerMin"}, {}, {}, 0},
    {kSendFailed, kComplexWrite, {"ReqErrNumPerMin", "WriteReqErrNumPerMin"}, {}, {}, 0},
    {kSendFailed, kNeither, {"ReqErrNumPerMin"}, {}, {}, 0},

    {kBufferFull, kSimpleRead, {"ReqErrNumPerMin", "ReadReqErrNumPerMin"}, {}, {}, 0},
    {kBufferFull, kComplexRead, {"ReqErrNumPerMin", "ReadReqErrNumPerMin"}, {}, {}, 0},
    {kBufferFull, kBatchGet, {"ReqErrNumPerMin", "ReadReqErrNumPerMin"}, {}, {}, 0},
    {kBufferFull, kSimpleWrite, {"ReqErrNumPerMin", "WriteReqErrNumPerMin"}, {}, {}, 0},
    {kBufferFull, kComplexWrite, {"ReqErrNumPerMin", "WriteReqErrNumPerMin"}, {}, {}, 0},
    {kBufferFull, kNeither, {"ReqErrNumPerMin"}, {}, {}, 0},

    {kSent,
     kSimpleRead,
     {"ReqSucNumPerMin", "ReadReqSucNumPerMin"},
     {},
     {"dwRequestCountPerMin"},
     1},
    {kSent,
     kComplexRead,
     {"ReqSucNumPerMin", "ReadReqSucNumPerMin"},
     {},
     {"dwRequestCountPerMin"},
     0},
    {kSent,
     kBatchGet,
     {"ReqSucNumPerMin", "ReadReqSucNumPerMin"},
     {},
     {"dwRequestCountPerMin", "dwBatchRequestCountPerMin"},
     0},
    {kSent,
     kSimpleWrite,
     {"ReqSucNumPerMin", "WriteReqSucNumPerMin"},
     {},
     {"dwRequestCountPerMin"},
     1},
    {kSent,
     kComplexWrite,
     {"ReqSucNumPerMin", "WriteReqSucNumPerMin"},
     {},
     {"dwRequestCountPerMin"},
     0},
    {kSent, kNeither, {"ReqSucNumPerMin"}, {}, {"dwRequestCountPerMin"}, 0},
};

// What a row counts when the table is number 2.
Counters Expected(const Row& row) {
  Counters expected;
  for (const std::string& name : row.shared) {
    expected["dw" + name] = 1;
    expected["table 2: dwTable" + name] = 1;
  }
  for (const std::string& name : row.overall) {
    expected[name] = 1;
  }
  for (const std::string& name : row.accesses) {
    expected["access 0: " + name] = 1;
  }
  return expected;
}

class SendCountersRowTest : public SendCountersTest {
 protected:
  // Lets each row happen, with nothing counted before, and looks at what was.
  template <typename Look>
  void EachRow(Look look) {
    for (const Row& row : kRows) {
      SCOPED_TRACE(testing::Message() << "event " << row.event << ", command " << row.cmd);
      ForgetCounts();
      Happen(row.event, row.cmd);
      look(row);
    }
  }
};

TEST_F(SendCountersRowTest, CountsWhatTheRowSays) {
  EachRow([this](const Row& row) {
    EXPECT_EQ(Expected(row), Counted());
    EXPECT_EQ(Slot0(row.event), NonZeroCounters(first_qos)) << "though it is another table's";
    EXPECT_EQ(Counters(), NonZeroCounters(qos));
    EXPECT_EQ(row.requests_of_proxy, proxy->m_request_count);
    EXPECT_EQ(0U, other_proxy->m_request_count);
  });
}

TEST_F(SendCountersRowTest, CountsATableOutsideTheRecordOnlyOverall) {
  const struct {
    int32_t tables;
    int32_t subscript;
  } kOutside[] = {{4, 4},     {4, -1},        {4, 255},       {0, 0},         {300, 256},
                  {300, 299}, {4, 65538},     {4, INT32_MIN}, {4, INT32_MAX}, {INT32_MAX, 70000},
                  {-1, 0},    {INT32_MIN, 0}, {256, 256}};
  for (const auto& outside : kOutside) {
    SCOPED_TRACE(testing::Message() << outside.subscript << " of " << outside.tables);
    statistic->iTableCount = outside.tables;
    request.SetTableSubscript(outside.subscript);
    EachRow([this](const Row& row) { EXPECT_EQ(WithoutTables(Expected(row)), Counted()); });
  }
}

TEST_F(SendCountersRowTest, CountsTheFirstAndTheLastTable) {
  const struct {
    int32_t tables;
    int32_t subscript;
  } kInside[] = {{1, 0}, {256, 255}, {1000, 255}};
  for (const auto& inside : kInside) {
    statistic->iTableCount = inside.tables;
    request.SetTableSubscript(inside.subscript);
    EachRow([&](const Row& row) {
      const Counters counted = Counted();
      for (const std::string& name : row.shared) {
        EXPECT_EQ(1U,
                  counted.count("table " + std::to_string(inside.subscript) + ": dwTable" + name))
            << name;
      }
    });
  }
}

TEST_F(SendCountersRowTest, CountsInTheRoutersOwnWithoutAStatisticsRecord) {
  LoseTheStatistics();
  EachRow([this](const Row& row) {
    EXPECT_EQ(Counters(), Counted());
    EXPECT_EQ(Slot0(row.event), NonZeroCounters(first_qos));
    EXPECT_EQ(row.requests_of_proxy, proxy->m_request_count);
  });
}

TEST_F(SendCountersRowTest, CountsTheRestWithoutARegisteredTable) {
  LoseTheTables();
  EachRow([this](const Row& row) {
    EXPECT_EQ(Expected(row), Counted());
    EXPECT_EQ(Counters(), NonZeroCounters(first_qos));
  });
}

TEST_F(SendCountersRowTest, CountsTheRestForAProxyWithoutAccess) {
  connector->SetAddress(1, 2);
  EachRow([this](const Row& row) {
    Counters expected = Expected(row);
    for (const std::string& name : row.accesses) {
      expected.erase("access 0: " + name);
    }
    EXPECT_EQ(expected, Counted());
    EXPECT_EQ(row.requests_of_proxy, proxy->m_request_count);
  });
}

TEST_F(SendCountersTest, AddsUp) {
  for (int i = 0; i < 3; ++i) {
    Happen(kSent, kSimpleRead);
    Happen(kSendFailed, kSimpleWrite);
    Happen(kPackFailed, kSimpleRead);
  }
  EXPECT_EQ(Counters({{"dwPackErrNumPerMin", 3},
                      {"dwReqErrNumPerMin", 6},
                      {"dwWriteReqErrNumPerMin", 3},
                      {"table 2: dwTableReqErrNumPerMin", 3},
                      {"table 2: dwTableWriteReqErrNumPerMin", 3},
                      {"dwReqSucNumPerMin", 3},
                      {"dwReadReqSucNumPerMin", 3},
                      {"table 2: dwTableReqSucNumPerMin", 3},
                      {"table 2: dwTableReadReqSucNumPerMin", 3},
                      {"access 0: dwRequestCountPerMin", 3}}),
            Counted());
  EXPECT_EQ(Counters({{"iPackErrorCount", 3}, {"iSendErrorCount", 3}}), NonZeroCounters(first_qos));
  EXPECT_EQ(3U, proxy->m_request_count);
}

TEST_F(SendCountersTest, CountsForTheProxyThatTookTheRequest) {
  EXPECT_EQ(0, peer->InnerSendRequest(other_proxy, &request));
  EXPECT_EQ(Sum({Shared("ReqSucNumPerMin"),
                 Shared("ReadReqSucNumPerMin"),
                 {{"access 1: dwRequestCountPerMin", 1}}}),
            Counted());
  EXPECT_EQ(0U, proxy->m_request_count);
  EXPECT_EQ(1U, other_proxy->m_request_count);
}

TEST_F(SendCountersTest, TellsSimpleCommandsFromTheRestForTheProxysCounter) {
  const uint32_t kSimple[] = {7, 15, 83, 153, 1, 17, 155, 5, 21, 29, 157, 3, 9, 13, 19, 65};
  const uint32_t kOthers[] = {11, 23,  25,  91,   117,  129,  4225, 4227, 4239, 145,
                              89, 149, 147, 4215, 4217, 4221, 4223, 151,  27,   4233};
  uint64_t expected = 0;
  for (const uint32_t cmd : kSimple) {
    Happen(kSent, cmd);
    EXPECT_EQ(++expected, proxy->m_request_count) << cmd;
  }
  for (const uint32_t cmd : kOthers) {
    Happen(kSent, cmd);
    EXPECT_EQ(expected, proxy->m_request_count) << cmd;
  }
}

TEST_F(SendCountersTest, CountsAMetadataRequestInNeitherClass) {
  Happen(kSent, 27);
  EXPECT_EQ(Sum({Shared("ReqSucNumPerMin"), Access("dwRequestCountPerMin")}), Counted());
}

}  // namespace
}  // namespace OstrandService
