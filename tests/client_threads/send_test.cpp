// Send of Client: callbacks, futures, the executor, bounds, Cancel.
#include <deque>
#include <future>
#include <thread>
#include <vector>

#include "client_threads/threads_kit.h"
#include "common/clock.h"

namespace OstrandTests {
namespace {

using namespace OstrandService;  // NOLINT: the library under test

using ClientSend = ClientThreads;

// Runs tasks when it is told to, on threads of its own; refuses what it has no room for.
class Tasks {
 public:
  explicit Tasks(size_t room) : m_room(room) {}

  bool Add(std::function<void()> task) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_tasks.size() >= m_room) {
      return false;
    }
    m_tasks.push_back(std::move(task));
    m_condition.notify_all();
    return true;
  }

  // Waits for a task and runs it.
  void RunOne() {
    std::function<void()> task;
    {
      std::unique_lock<std::mutex> lock(m_mutex);
      m_condition.wait(lock, [this] { return !m_tasks.empty(); });
      task = std::move(m_tasks.front());
      m_tasks.pop_front();
    }
    task();
  }

 private:
  const size_t m_room;
  std::mutex m_mutex;
  std::condition_variable m_condition;
  std::deque<std::function<void()>> m_tasks;
};

TEST_F(ClientSend, CallbacksRunOnOneThreadThatIsNotTheCallers) {
  StartFleet(2);
  StartClient();
  Tally outcomes;
  std::vector<std::thread::id> threads;
  ClientRequest request;
  for (int i = 0; i < 100; ++i) {
    request.Replace(kTable).Key("id", i).Set("name", "Ada").SetSequence(i);
    ASSERT_EQ(m_client->Send(request,
                             [&](ClientResponse& response) {
                               EXPECT_EQ(response.GetResult(), 0);
                               threads.push_back(std::this_thread::get_id());
                               outcomes.Add();
                             }),
              0);
    EXPECT_NE(request.GetAsynID(), 0u);
  }
  outcomes.WaitFor(100);
  for (const std::thread::id& thread : threads) {
    EXPECT_EQ(thread, threads.front());
    EXPECT_NE(thread, std::this_thread::get_id());
  }
}

TEST_F(ClientSend, ACallbackIsToldOfEachPackageInOrder) {
  StartFleet(1, 3);
  StartClient();
  WriteList(10, 20);
  std::vector<std::pair<uint32_t, int>> packages;  // number, whether more follow
  Tally whole;
  ClientRequest request = ReadList();
  ASSERT_EQ(m_client->Send(request,
                           [&](ClientResponse& response) {
                             EXPECT_EQ(response.GetAsynID(), request.GetAsynID());
                             packages.emplace_back(response.GetSubCmd(),
                                                   response.HaveMoreResPkgs());
                             if (response.HaveMoreResPkgs() == 0) {
                               whole.Add();
                             }
                           }),
            0);
  whole.WaitFor(1);
  EXPECT_EQ(packages, (std::vector<std::pair<uint32_t, int>>{{0, 1}, {1, 1}, {2, 1}, {3, 0}}));
}

TEST_F(ClientSend, ForWholeCallsBackOnceWithAllPackages) {
  StartFleet(1, 3);
  StartClient();
  WriteList(10, 20);
  Tally whole;
  int packages = 1;
  ASSERT_EQ(m_client->SendForWhole(ReadList(),
                                   [&](ClientResponse& response) {
                                     while (response.NextPackage()) {
                                       ++packages;
                                     }
                                     whole.Add();
                                   }),
            0);
  whole.WaitFor(1);
  EXPECT_EQ(packages, 4);
}

TEST_F(ClientSend, AFutureHoldsTheWholeAnswer) {
  StartFleet(1, 3);
  StartClient();
  WriteList(7, 20);
  std::future<ClientResponse> list = m_client->Send(ReadList());
  std::future<ClientResponse> record = m_client->Send(Write(1));
  EXPECT_EQ(record.get().GetResult(), 0);
  ClientResponse answer = list.get();
  uint32_t records = 0;
  do {
    records += answer.GetRecordCount();
  } while (answer.NextPackage());
  EXPECT_EQ(records, 7u);
}

TEST_F(ClientSend, AFutureOfARefusedRequestIsReadyAtOnce) {
  StartFleet();
  StartClient();
  EXPECT_EQ(m_client->Send(Get("nobody's").Key("id", 1)).get().GetResult(), CLIENT_ERR_TABLE);
  m_client->Stop(0);
  EXPECT_EQ(m_client->Send(Read(1)).get().GetResult(), CLIENT_ERR_NOT_STARTED);
}

TEST_F(ClientSend, OverMaxInFlightItAnswersAtOnce) {
  StartFleet();
  ClientOptions options = Options();
  options.max_in_flight = 2;
  StartClient(options);
  KeepAnswersBack();
  const auto ignore = [](ClientResponse&) {};
  EXPECT_EQ(m_client->Send(Write(1), ignore), 0);
  EXPECT_EQ(m_client->Send(Write(2), ignore), 0);
  EXPECT_EQ(m_client->Send(Write(3), ignore), CLIENT_ERR_TOO_MANY);
  EXPECT_EQ(m_client->Send(Write(4)).get().GetResult(), CLIENT_ERR_TOO_MANY);
  EXPECT_EQ(m_client->InFlight(), 2u);
}

TEST_F(ClientSend, WhatIsNotTakenHasABound) {
  StartFleet();
  ClientOptions options = Options();
  options.max_kept_bytes = size_t{1} << 30;
  StartClient(options);
  Gate gate;
  Tally running;
  ASSERT_EQ(m_client->Send(Write(0),
                           [&](ClientResponse&) {
                             running.Add();
                             gate.Pass();
                           }),
            0);
  running.WaitFor(1);  // the background thread takes nothing now
  const std::string mebibyte(size_t{1000} * 1000, 'x');
  int accepted = 0;
  while (m_client->Send(Write(1, mebibyte), [](ClientResponse&) {}) == 0) {
    ASSERT_LT(++accepted, 100);
  }
  EXPECT_EQ(accepted, static_cast<int>(Client::kMostPosted / mebibyte.size()));
  gate.Open();
}

TEST_F(ClientSend, TheTimeOutCountsFromSend) {
  StartFleet();
  StartClient();
  Gate gate;
  Tally outcomes;
  ASSERT_EQ(m_client->Send(Write(0),
                           [&](ClientResponse&) {
                             outcomes.Add();
                             gate.Pass();
                           }),
            0);
  outcomes.WaitFor(1);
  int32_t result = 0;
  ASSERT_EQ(m_client->Send(Write(1).SetTimeout(1),
                           [&](ClientResponse& response) {
                             result = response.GetResult();
                             outcomes.Add();
                           }),
            0);
  const int64_t sent_ms = OstrandCommon::GetMonotonicMilliseconds();
  while (OstrandCommon::GetMonotonicMilliseconds() <= sent_ms + 1) {
  }
  gate.Open();
  outcomes.WaitFor(2);
  EXPECT_EQ(result, ClientResponse::kResultTimeOut);
}

TEST_F(ClientSend, CancelIsTheOutcomeOfWhateverWaits) {
  StartFleet();
  StartClient();
  KeepAnswersBack();
  Tally outcomes;
  int32_t result = 0;
  ClientRequest request = Write(1);
  ASSERT_EQ(m_client->Send(request,
                           [&](ClientResponse& response) {
                             result = response.GetResult();
                             outcomes.Add();
                           }),
            0);
  ClientRequest promised = Write(2);
  std::future<ClientResponse> future = m_client->Send(promised);
  ClientRequest called = Write(3);
  Tally calling;
  int code = 0;
  std::thread caller([&] {
    calling.Add();
    code = m_client->Call(called, m_response);
  });
  WaitForRequests(3);
  EXPECT_TRUE(m_client->Cancel(request.GetAsynID()));
  EXPECT_FALSE(m_client->Cancel(request.GetAsynID()));
  EXPECT_TRUE(m_client->Cancel(promised.GetAsynID()));
  EXPECT_TRUE(m_client->Cancel(called.GetAsynID()));
  outcomes.WaitFor(1);
  caller.join();
  EXPECT_EQ(result, CLIENT_ERR_CANCELLED);
  EXPECT_EQ(future.get().GetResult(), CLIENT_ERR_CANCELLED);
  EXPECT_EQ(code, CLIENT_ERR_CANCELLED);
  EXPECT_EQ(m_client->InFlight(), 0u);
  EXPECT_EQ(m_client->Counters().cancelled, 3u);
}

TEST_F(ClientSend, CancelOfWhatHadItsOutcomeIsRefused) {
  StartFleet();
  StartClient();
  ClientRequest request = Write(1);
  EXPECT_EQ(m_client->Send(request).get().GetResult(), 0);
  EXPECT_FALSE(m_client->Cancel(request.GetAsynID()));
  EXPECT_FALSE(m_client->Cancel(0));
  EXPECT_FALSE(m_client->Cancel(UINT64_MAX));
}

TEST_F(ClientSend, AnExecutorRunsCallbacksInOrder) {
  StartFleet(1, 1);
  Tasks tasks(1000);
  ClientOptions options = Options();
  options.executor = [&tasks](std::function<void()> task) { return tasks.Add(std::move(task)); };
  StartClient(options);
  WriteList(8, 20);
  std::vector<uint32_t> packages;
  std::thread::id thread;
  bool is_whole = false;
  ASSERT_EQ(m_client->Send(ReadList(),
                           [&](ClientResponse& response) {
                             packages.push_back(response.GetSubCmd());
                             thread = std::this_thread::get_id();
                             is_whole = response.HaveMoreResPkgs() == 0;
                           }),
            0);
  while (!is_whole) {
    tasks.RunOne();
  }
  EXPECT_EQ(packages, (std::vector<uint32_t>{0, 1, 2, 3, 4, 5, 6, 7}));
  EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST_F(ClientSend, WhatTheExecutorRefusesRunsOnTheBackgroundThread) {
  StartFleet();
  Tasks tasks(0);
  ClientOptions options = Options();
  options.executor = [&tasks](std::function<void()> task) { return tasks.Add(std::move(task)); };
  StartClient(options);
  Tally outcomes;
  int code = 0;
  ASSERT_EQ(m_client->Send(Write(1),
                           [&](ClientResponse&) {
                             code = m_client->Call(Write(2), m_response);
                             outcomes.Add();
                           }),
            0);
  outcomes.WaitFor(1);
  EXPECT_EQ(code, CLIENT_ERR_IN_CALLBACK);
}

TEST_F(ClientSend, OnTheExecutorCallbacksMayCall) {
  StartFleet();
  Tasks tasks(1);
  ClientOptions options = Options();
  options.executor = [&tasks](std::function<void()> task) { return tasks.Add(std::move(task)); };
  StartClient(options);
  int code = -1;
  ASSERT_EQ(m_client->Send(Write(1),
                           [&](ClientResponse&) { code = m_client->Call(Write(2), m_response); }),
            0);
  tasks.RunOne();
  EXPECT_EQ(code, 0);
}

TEST_F(ClientSend, ATaskOfTheExecutorMayOutliveTheClient) {
  StartFleet();
  Tasks tasks(1);
  ClientOptions options = Options();
  options.executor = [&tasks](std::function<void()> task) { return tasks.Add(std::move(task)); };
  StartClient(options);
  int32_t result = -1;
  ASSERT_EQ(
      m_client->Send(Write(1), [&](ClientResponse& response) { result = response.GetResult(); }),
      0);
  EXPECT_EQ(m_client->Stop(kPatienceMs), 0);
  m_client.reset();
  tasks.RunOne();
  EXPECT_EQ(result, 0);
}

}  // namespace
}  // namespace OstrandTests
