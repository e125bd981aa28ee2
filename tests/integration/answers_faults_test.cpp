// Answers that come twice, late, in another order, never or without end: each request has one
// outcome all the same.
#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <set>
#include <string>

#include "integration/integration_kit.h"
#include "protocol/ostrand_protocol_cs.h"

namespace OstrandTests {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records
using OstrandFleet::AnswerFault;
using OstrandFleet::ProxyFaults;
using OstrandService::ClientResponse;

class AnswerFaults : public RuntimeTest {
 protected:
  void StartAll(size_t proxies) {
    StartFleet(proxies);
    StartClient();
    ASSERT_TRUE(m_work->Run(200));
    ASSERT_TRUE(m_work->Drain());
  }
  uint64_t Dropped() const { return m_client->Counters().dropped; }
};

TEST_F(AnswerFaults, DoubledAnswersAreHandedOutOnce) {
  StartAll(2);
  SetFaultsOfAll([](ProxyFaults& faults) { faults.answer = AnswerFault::kDuplicate; });
  ASSERT_TRUE(m_work->Run(2000));
  ASSERT_TRUE(m_work->Drain());
  EXPECT_TRUE(UpdateUntil([&] { return Dropped() >= 1900; }));
  EXPECT_EQ(m_work->tally().timed_out + m_work->tally().failed, 0u);
}

TEST_F(AnswerFaults, ReplayedAnswersAreDropped) {
  StartAll(2);
  SetFaultsOfAll([](ProxyFaults& faults) { faults.answer = AnswerFault::kReplay; });
  ASSERT_TRUE(m_work->Run(2000));
  ASSERT_TRUE(m_work->Drain());
  EXPECT_TRUE(UpdateUntil([&] { return Dropped() >= 1900; }));
  EXPECT_EQ(m_work->tally().timed_out + m_work->tally().failed, 0u);
}

TEST_F(AnswerFaults, ReorderedAnswersFindTheirRequests) {
  StartAll(2);
  SetFaultsOfAll([](ProxyFaults& faults) { faults.answer = AnswerFault::kReorder; });
  ASSERT_TRUE(m_work->Run(2000));
  ASSERT_TRUE(m_work->Drain());
  EXPECT_EQ(Dropped(), 0u);
  EXPECT_EQ(m_work->tally().timed_out + m_work->tally().failed, 0u);
}

TEST_F(AnswerFaults, LateAnswersComeBehindTheTimeOutAndAreDropped) {
  StartAll(2);
  m_work->SetTimeout(50);
  SetFaults(0, [](ProxyFaults& faults) {
    faults.answer = AnswerFault::kLate;
    faults.late_ms = 150;
    faults.answer_every = 3;
  });
  ASSERT_TRUE(m_work->RunUntil([&] { return m_work->tally().timed_out >= 20; }));
  ASSERT_TRUE(m_work->Drain());
  EXPECT_TRUE(UpdateUntil([&] { return Dropped() >= m_work->tally().timed_out; }));
}

// Without its routing context the answer is matched all the same; what the router still waits for
// times out unheard.
TEST_F(AnswerFaults, ForgedContextsDoNotBringASecondOutcome) {
  StartAll(2);
  m_work->SetTimeout(300);
  SetFaultsOfAll([](ProxyFaults& faults) {
    faults.answer = AnswerFault::kForged;
    faults.answer_every = 10;
  });
  ASSERT_TRUE(m_work->Run(500));
  ASSERT_TRUE(m_work->Drain());
  EXPECT_TRUE(UpdateUntil([&] { return Dropped() >= 40; }));
}

TEST_F(AnswerFaults, AnswersThatNeverComeTimeOutOnce) {
  StartAll(2);
  m_work->SetTimeout(60);
  SetFaultsOfAll([](ProxyFaults& faults) { faults.drop_every = 4; });
  ASSERT_TRUE(m_work->RunUntil([&] { return m_work->tally().timed_out >= 100; }));
  ASSERT_TRUE(m_work->Drain());
  EXPECT_GT(m_work->tally().answered, 200u);
  EXPECT_EQ(m_client->Counters().timed_out, m_work->tally().timed_out);
}

TEST_F(AnswerFaults, OfEveryKindAtOnce) {
  constexpr AnswerFault kFaults[] = {AnswerFault::kDuplicate, AnswerFault::kReplay,
                                     AnswerFault::kReorder,   AnswerFault::kLate,
                                     AnswerFault::kForged,    AnswerFault::kRequestCode};
  StartAll(std::size(kFaults));
  m_work->SetTimeout(150);
  for (size_t i = 0; i < std::size(kFaults); ++i) {
    SetFaults(i, [&](ProxyFaults& faults) {
      faults.answer = kFaults[i];
      faults.answer_every = 5;
      faults.late_ms = 250;
    });
  }
  ASSERT_TRUE(m_work->Run(3000, 200));
  RemoveFaults();
  ASSERT_TRUE(m_work->Run(500));
}

// The bytes that the application gives along come back with each outcome, however it came.
TEST_F(AnswerFaults, UserBuffersComeBackWithAnswersAndTimeOuts) {
  for (const bool keep : {false, true}) {
    SCOPED_TRACE(keep ? "kept here" : "travelling");
    StartFleet(1);
    auto options = Options();
    options.keep_user_buffers = keep;
    options.default_timeout_ms = 60;
    StartClient(options);
    SetFaults(0, [](ProxyFaults& faults) {
      faults.drop_every = 5;
      faults.answer = AnswerFault::kDuplicate;
    });
    std::set<uint64_t> open;
    size_t with_bytes = 0;
    for (int i = 0; i < 100; ++i) {
      m_request.Begin(OSTRAND_API_GET_REQ, kTable).Zone(kZone);
      m_request.Key("id", std::to_string(i));
      const std::string bytes = "bytes of " + std::to_string(i);
      m_request.SetSequence(i);
      m_request.SetUserBuff(bytes);
      ASSERT_EQ(m_client->Send(m_request), 0);
      open.insert(m_request.GetAsynID());
    }
    while (!open.empty()) {
      ASSERT_EQ(m_client->Receive(m_response, static_cast<int>(kPatienceMs)), 1);
      EXPECT_EQ(open.erase(m_response.GetAsynID()), 1u);
      const std::string expected = "bytes of " + std::to_string(m_response.GetSequence());
      const bool is_timed_out = m_response.GetResult() == ClientResponse::kResultTimeOut;
      const bool is_there = m_response.GetUserBuff() == expected;
      // A time-out knows the bytes only when they stayed here.
      EXPECT_TRUE(is_there || (is_timed_out && !keep)) << m_response.GetSequence();
      with_bytes += is_there ? 1 : 0;
    }
    EXPECT_GE(with_bytes, 80u);
    EXPECT_EQ(m_client->Counters().timed_out, 20u);
    m_client->Stop(0);
    m_work.reset();
    m_client.reset();
    m_fleet.reset();
  }
}

// Where the user's bytes stay here, the router itself refuses a second answer; the one behind it is
// handed out at once all the same, not with the next update.
TEST_F(AnswerFaults, RefusedPackagesDoNotHoldUpTheOnesBehindThem) {
  StartFleet(1);
  auto options = Options();
  options.keep_user_buffers = true;
  StartClient(options);
  SetFaults(0, [](ProxyFaults& faults) { faults.answer = AnswerFault::kDuplicate; });
  const uint64_t wanted = 500;
  EXPECT_TRUE(m_work->RunUntil([&] { return m_work->tally().answered >= wanted; }, 8, 5000));
  EXPECT_EQ(Dropped(), 0u) << "none came as far";
}

class LongAnswers : public AnswerFaults {
 protected:
  // A list of so many elements under the key "list".
  void MakeList(size_t elements) {
    for (size_t done = 0; done < elements;) {
      m_request.Begin(OSTRAND_API_LIST_INSERT_REQ, "lists").Zone(kZone);
      m_request.Key("id", "list");
      for (size_t i = 0; i < 100 && done < elements; ++i, ++done) {
        m_request.Element();
        m_request.Set("text", "element " + std::to_string(done));
      }
      ASSERT_EQ(m_client->Call(m_request, m_response), 0);
      ASSERT_EQ(m_response.GetResult(), 0);
    }
  }
  void StartWithList(int32_t timeout_ms) {
    OstrandFleet::TableSetup lists;
    lists.zone = kZone;
    lists.schema.name = "lists";
    lists.kind = OstrandFleet::TableKind::kLists;
    OstrandFleet::FleetOptions fleet;
    fleet.tables = {lists};
    StartFleet(fleet);
    auto options = Options();
    options.tables.push_back({"lists", kZone, nullptr});
    options.default_timeout_ms = timeout_ms;
    StartClient(options);
    MakeList(350);
  }
  void AskForList() {
    m_request.Begin(OSTRAND_API_LIST_GETALL_REQ, "lists").Zone(kZone);
    m_request.Key("id", "list");
    ASSERT_EQ(m_client->Send(m_request), 0);
  }
  bool Receive() { return m_client->Receive(m_response, static_cast<int>(kPatienceMs)) == 1; }
};

TEST_F(LongAnswers, ComePackageByPackageInOrder) {
  StartWithList(60000);
  AskForList();
  int next = 0;
  int packages = 0;
  do {
    ASSERT_TRUE(Receive());
    ASSERT_EQ(m_response.GetResult(), 0);
    RecordView record;
    FieldView text;
    while (m_response.NextRecord(record)) {
      EXPECT_EQ(record.mark.index, next);
      ASSERT_TRUE(record.FindValue("text", text));
      EXPECT_EQ(text.value, "element " + std::to_string(next));
      ++next;
    }
    ++packages;
  } while (m_response.HaveMoreResPkgs() == 1);
  EXPECT_EQ(next, 350);
  EXPECT_EQ(packages, 4);
  EXPECT_EQ(m_client->InFlight(), 0u);
}

TEST_F(LongAnswers, WithAPackageOutOfOrderEndWithACode) {
  StartWithList(60000);
  SetFaults(0, [](ProxyFaults& faults) { faults.answer = AnswerFault::kReorder; });
  const uint64_t outcomes = m_client->Counters().outcomes;
  AskForList();
  do {
    ASSERT_TRUE(Receive());
  } while (m_response.GetResult() == 0 && m_response.HaveMoreResPkgs() == 1);
  EXPECT_EQ(m_response.GetResult(), -18963);
  EXPECT_EQ(m_client->Counters().outcomes, outcomes + 1);
  EXPECT_EQ(m_client->InFlight(), 0u);
}

TEST_F(LongAnswers, WithoutEndHoldUpNobodyAndEndWithTheirConnection) {
  StartWithList(200);
  SetFaults(0, [](ProxyFaults& faults) { faults.answer = AnswerFault::kEndlessMore; });
  AskForList();
  const uint64_t list_id = m_request.GetAsynID();
  for (int i = 0; i < 50; ++i) {
    ASSERT_TRUE(Receive());
    ASSERT_EQ(m_response.GetAsynID(), list_id);
    ASSERT_EQ(m_response.HaveMoreResPkgs(), 1);
  }
  m_request.Begin(OSTRAND_API_GET_REQ, kTable).Zone(kZone);
  m_request.Key("id", "nothing");
  ASSERT_EQ(m_client->Send(m_request), 0);
  do {
    ASSERT_TRUE(Receive());
  } while (m_response.GetAsynID() == list_id);
  EXPECT_EQ(m_response.GetAsynID(), m_request.GetAsynID());
  EXPECT_EQ(m_response.GetResult(), -7949);
  m_fleet->CloseConnections(0);
  while (m_client->InFlight() != 0) {
    ASSERT_TRUE(Receive());
  }
  EXPECT_EQ(m_response.GetAsynID(), list_id);
  EXPECT_EQ(m_response.GetResult(), OstrandService::CLIENT_ERR_CONNECTION_LOST);
}

}  // namespace
}  // namespace OstrandTests
