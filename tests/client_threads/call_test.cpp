// Call of Client: it blocks its caller only, collects packages, waits for room.
#include <atomic>
#include <thread>
#include <vector>

#include "client_threads/threads_kit.h"

namespace OstrandTests {
namespace {

using namespace OstrandService;  // NOLINT: the library under test

using ClientCall = ClientThreads;

TEST_F(ClientCall, SixteenThreadsEachGetTheirOwnAnswers) {
  StartFleet(3);
  StartClient();
  std::atomic<int> right{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 16; ++thread) {
    threads.emplace_back([this, thread, &right] {
      ClientResponse response;
      for (int i = 0; i < 50; ++i) {
        const int id = thread * 1000 + i;
        const std::string name = "of " + std::to_string(id);
        FieldView value;
        right += m_client->Call(Write(id, name), response) == 0 && response.GetResult() == 0 &&
                         m_client->Call(Read(id), response) == 0 &&
                         response.GetValue("name", value) && value.value == name
                     ? 1
                     : 0;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(right.load(), 16 * 50);
  EXPECT_EQ(m_client->Counters().accepted, 2u * 16 * 50);
}

TEST_F(ClientCall, BlocksItsCallerOnly) {
  StartFleet();
  StartClient();
  KeepAnswersBack();
  ClientRequest kept = Write(1);
  ClientResponse cut_off;
  int cut_off_code = 0;
  std::thread blocked([&] { cut_off_code = m_client->Call(kept, cut_off); });
  WaitForRequests(1);
  SetFaults([](OstrandFleet::ProxyFaults&) {});
  EXPECT_EQ(m_client->Call(Write(2), m_response), 0);
  EXPECT_EQ(m_response.GetResult(), 0);
  EXPECT_EQ(m_client->InFlight(), 1u);
  EXPECT_EQ(m_client->Stop(0), 1);
  blocked.join();
  EXPECT_EQ(cut_off_code, CLIENT_ERR_CANCELLED);
}

TEST_F(ClientCall, IsOverWhenItsTimeIs) {
  StartFleet();
  StartClient();
  KeepAnswersBack();
  EXPECT_EQ(m_client->Call(Write(1).SetTimeout(30), m_response), 0);
  EXPECT_EQ(m_response.GetResult(), ClientResponse::kResultTimeOut);
}

TEST_F(ClientCall, TellsTheRequestsOwnFaultAtOnce) {
  StartFleet();
  StartClient();
  EXPECT_EQ(m_client->Call(Get("nobody's").Key("id", 1), m_response), CLIENT_ERR_TABLE);
  EXPECT_EQ(m_client->Call(Get(kTable), m_response), CLIENT_ERR_KEY);
  EXPECT_EQ(m_client->Call(ClientRequest(), m_response), CLIENT_ERR_REQUEST);
}

TEST_F(ClientCall, CollectsAllPackagesOfAnAnswer) {
  StartFleet(1, 3);
  StartClient();
  WriteList(10, 20);
  ASSERT_EQ(m_client->Call(ReadList(), m_response), 0);
  ASSERT_EQ(m_response.GetResult(), 0);
  int packages = 0;
  std::vector<int> places;
  do {
    ++packages;
    for (RecordView record; m_response.NextRecord(record);) {
      places.push_back(record.mark.index);
    }
  } while (m_response.NextPackage());
  EXPECT_EQ(packages, 4);
  EXPECT_EQ(places, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
  EXPECT_EQ(m_response.HaveMoreResPkgs(), 0);

  ASSERT_EQ(m_client->Call(Read(1), m_response), 0);
  EXPECT_FALSE(m_response.NextPackage()) << "nothing is left of the answer before";
}

TEST_F(ClientCall, AnswersOverTheLimitAreACode) {
  StartFleet(1, 3);
  ClientOptions options = Options();
  options.max_answer_bytes = 5000;
  StartClient(options);
  WriteList(9, 1000);
  EXPECT_EQ(m_client->Call(ReadList(), m_response), CLIENT_ERR_ANSWER_TOO_LARGE);
  EXPECT_EQ(m_response.GetResult(), CLIENT_ERR_ANSWER_TOO_LARGE);
  EXPECT_EQ(m_client->Call(Write(1), m_response), 0);
}

TEST_F(ClientCall, WaitsForRoomWithinItsTime) {
  StartFleet();
  ClientOptions options = Options();
  options.max_in_flight = 1;
  StartClient(options);
  KeepAnswersBack();
  Tally outcomes;
  ClientRequest kept = Write(1);
  ASSERT_EQ(m_client->Send(kept, [&outcomes](ClientResponse&) { outcomes.Add(); }), 0);
  WaitForRequests(1);
  SetFaults([](OstrandFleet::ProxyFaults&) {});

  EXPECT_EQ(m_client->Call(Write(2).SetTimeout(20), m_response), CLIENT_ERR_TOO_MANY);
  EXPECT_EQ(m_response.GetResult(), CLIENT_ERR_TOO_MANY);

  int code = -1;
  ClientResponse response;
  std::thread waiting([&] { code = m_client->Call(Write(3), response); });
  while (m_client->InFlight() < 2) {
    std::this_thread::yield();
  }
  EXPECT_EQ(outcomes.Count(), 0);
  EXPECT_TRUE(m_client->Cancel(kept.GetAsynID()));
  waiting.join();
  EXPECT_EQ(code, 0);
  EXPECT_EQ(response.GetResult(), 0);
  outcomes.WaitFor(1);
}

TEST_F(ClientCall, WaitsForRoomAmongWaitingRequests) {
  StartFleet();
  ClientOptions options = Options();
  options.max_waiting = 1;
  StartClient(options);
  m_fleet->Kill(0);
  ASSERT_EQ(m_client->Call(Write(0).SetTimeout(1), m_response), 0);  // the loss is known then
  EXPECT_NE(m_response.GetResult(), 0);
  Tally outcomes;
  int32_t refused = 0;
  ASSERT_EQ(m_client->Send(Write(1), [&outcomes](ClientResponse&) { outcomes.Add(); }), 0);
  ASSERT_EQ(m_client->Send(Write(2),
                           [&](ClientResponse& response) {
                             refused = response.GetResult();
                             outcomes.Add();
                           }),
            0);
  outcomes.WaitFor(1);
  EXPECT_EQ(refused, CLIENT_ERR_TOO_MANY);
  std::thread back([this] { EXPECT_EQ(m_fleet->Restart(0), 0); });
  EXPECT_EQ(m_client->Call(Write(3), m_response), 0);
  EXPECT_EQ(m_response.GetResult(), 0);
  back.join();
  outcomes.WaitFor(2);
}

}  // namespace
}  // namespace OstrandTests
