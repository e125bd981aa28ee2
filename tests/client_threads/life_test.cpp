// The life of a Client: readiness, what goes on by itself, Stop, callbacks that stop, forks.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <future>
#include <iterator>
#include <thread>
#include <vector>

#include "client_threads/threads_kit.h"
#include "common/clock.h"
#include "fakes/forwarding_system.h"
#include "fakes/sanitizers.h"

namespace OstrandTests {
namespace {

using namespace OstrandService;  // NOLINT: the library under test

using ClientLife = ClientThreads;

TEST_F(ClientLife, BeforeStartAndAfterStopNothingIsTaken) {
  StartFleet();
  Client client(Options());
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(client.Call(Write(1), m_response), CLIENT_ERR_NOT_STARTED);
    EXPECT_EQ(client.Send(Write(1), [](ClientResponse&) {}), CLIENT_ERR_NOT_STARTED);
    EXPECT_EQ(client.WaitReady(0), CLIENT_ERR_NOT_STARTED);
    EXPECT_FALSE(client.Cancel(1));
    EXPECT_EQ(client.StatusText(), "");
    EXPECT_EQ(client.Stop(0), 0);
    ASSERT_EQ(client.Start(), 0);  // the second time anew
    EXPECT_EQ(client.Start(), CLIENT_ERR_NOT_STARTED);
    ASSERT_EQ(client.WaitReady(kPatienceMs), 0);
    EXPECT_EQ(client.Call(Write(1), m_response), 0);
    EXPECT_EQ(client.Counters().outcomes, 1u);
    EXPECT_EQ(client.Stop(0), 0);
    EXPECT_EQ(client.Counters().outcomes, 1u);
  }
}

TEST_F(ClientLife, OptionsAreChecked) {
  StartFleet();
  ClientOptions options = Options();
  options.max_answer_bytes = 0;
  Client client(options);
  EXPECT_STREQ(client.OptionsError(), "max_answer_bytes must be at least 1");
  EXPECT_EQ(client.Start(), CLIENT_ERR_OPTIONS);
  EXPECT_EQ(client.WaitReady(0), CLIENT_ERR_NOT_STARTED);
}

TEST_F(ClientLife, HeartbeatsGoOnWhileNobodyCalls) {
  StartFleet();
  ClientOptions options = Options();
  options.heartbeat_ms = 20;
  StartClient(options);
  const uint64_t before = m_fleet->Counters(0).heartbeats;
  EXPECT_TRUE(m_fleet->WaitFor(kPatienceMs, [this, before] {
    return m_fleet->Counters(0).heartbeats >= before + 100;  // two seconds
  }));
  EXPECT_EQ(m_fleet->Counters(0).connections_accepted, 1u);
}

TEST_F(ClientLife, LostConnectionsAndRouteChangesAreFollowedWhileNobodyCalls) {
  StartFleet(2);
  StartClient();
  m_fleet->CloseConnections(0);
  EXPECT_TRUE(m_fleet->WaitFor(kPatienceMs,
                               [this] { return m_fleet->Counters(0).sign_ups_accepted >= 2; }));
  const int added = m_fleet->AddProxy();
  ASSERT_EQ(added, 2);
  EXPECT_TRUE(
      m_fleet->WaitFor(kPatienceMs, [this] { return m_fleet->Counters(2).signed_up >= 1; }));
}

TEST_F(ClientLife, SeveralThreadsWaitUntilItIsReady) {
  StartFleet();
  m_fleet->SetDirectoryFault(OstrandFleet::DirectoryFault::kAbsent);
  m_client = std::make_unique<Client>(Options());
  ASSERT_EQ(m_client->Start(), 0);
  EXPECT_EQ(m_client->WaitReady(0), CLIENT_ERR_NOT_READY_IN_TIME);
  EXPECT_EQ(m_client->WaitReady(5), CLIENT_ERR_NOT_READY_IN_TIME);
  std::future<ClientResponse> pending = m_client->Send(Write(1));
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this] { EXPECT_EQ(m_client->WaitReady(kPatienceMs), 0); });
  }
  ASSERT_EQ(m_fleet->SetDirectoryFault(OstrandFleet::DirectoryFault::kNone), 0);
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(pending.get().GetResult(), 0) << "it waited, and was sent";
}

TEST_F(ClientLife, WhoWaitsForReadinessLearnsOfStop) {
  StartFleet();
  m_fleet->SetDirectoryFault(OstrandFleet::DirectoryFault::kAbsent);
  m_client = std::make_unique<Client>(Options());
  ASSERT_EQ(m_client->Start(), 0);
  std::thread waiting(
      [this] { EXPECT_EQ(m_client->WaitReady(kPatienceMs), CLIENT_ERR_NOT_STARTED); });
  m_client->Stop(0);
  waiting.join();
}

TEST_F(ClientLife, AnyThreadMayAskAndCallbacksAreAnsweredDirectly) {
  StartFleet();
  StartClient();
  Tally outcomes;
  std::string in_callback;
  ASSERT_EQ(m_client->Send(Write(1),
                           [&](ClientResponse&) {
                             int32_t code = -1;
                             std::string text;
                             m_client->GetLastError(code, text);
                             EXPECT_EQ(code, 0);
                             EXPECT_NE(m_client->StatusText(), "");
                             EXPECT_EQ(m_client->Counters().outcomes, 1u);
                             EXPECT_EQ(m_client->InFlight(), 0u);
                             EXPECT_EQ(m_client->WaitReady(kPatienceMs), 0);
                             EXPECT_GT(m_client->SystemCalls(), 0u);
                             in_callback = m_client->UsedProxyUrl(kZone);
                             outcomes.Add();
                           }),
            0);
  outcomes.WaitFor(1);
  EXPECT_EQ(in_callback, m_fleet->ProxyUrl(0));
  EXPECT_EQ(m_client->UsedProxyUrl(kZone), in_callback);
  EXPECT_EQ(m_client->UsedProxyUrl(kZone + 1), "");
  EXPECT_NE(m_client->StatusText(), "");
}

TEST_F(ClientLife, StopDrainsAndGivesEveryCallItsOutcome) {
  StartFleet();
  StartClient();
  SetFaults([](OstrandFleet::ProxyFaults& faults) { faults.delay_ms = 30; });
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this, i] {
      ClientResponse response;
      EXPECT_EQ(m_client->Call(Write(i), response), 0);
      EXPECT_EQ(response.GetResult(), 0);
    });
  }
  WaitForRequests(4);
  EXPECT_EQ(m_client->Stop(kPatienceMs), 0);
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST_F(ClientLife, StopEndsBlockedCalls) {
  StartFleet();
  ClientOptions options = Options();
  options.max_in_flight = 2;  // of four: the others wait for room
  StartClient(options);
  KeepAnswersBack();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this, i] {
      ClientResponse response;
      EXPECT_EQ(m_client->Call(Write(i), response), CLIENT_ERR_CANCELLED);
      EXPECT_EQ(response.GetResult(), CLIENT_ERR_CANCELLED);
    });
  }
  while (m_client->InFlight() < 4) {
    std::this_thread::yield();
  }
  EXPECT_EQ(m_client->Stop(0), 4);
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST_F(ClientLife, SeveralThreadsMayStop) {
  StartFleet();
  StartClient();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this] { EXPECT_EQ(m_client->Stop(10), 0); });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST_F(ClientLife, CallAndStopInACallbackAreRefused) {
  StartFleet();
  StartClient();
  Tally outcomes;
  ASSERT_EQ(m_client->Send(Write(1),
                           [&](ClientResponse&) {
                             EXPECT_EQ(m_client->Call(Write(2), m_response),
                                       CLIENT_ERR_IN_CALLBACK);
                             EXPECT_EQ(m_client->Stop(0), CLIENT_ERR_IN_CALLBACK);
                             EXPECT_EQ(m_client->Start(), CLIENT_ERR_NOT_STARTED);
                             EXPECT_EQ(m_client->Send(Write(3),
                                                      [&](ClientResponse& response) {
                                                        EXPECT_EQ(response.GetResult(), 0);
                                                        outcomes.Add();
                                                      }),
                                       0);
                           }),
            0);
  outcomes.WaitFor(1);
}

TEST_F(ClientLife, DestroyedInACallbackItsThreadEndsByItself) {
  StartFleet();
  const size_t threads = CountEntries("/proc/self/task");
  ClientOptions options = Options();
  options.logger = nullptr;  // the thread may log when the test is over
  StartClient(options);
  KeepAnswersBack();
  Tally outcomes;
  int32_t other_result = 0;
  ASSERT_EQ(m_client->Send(Write(1),
                           [&](ClientResponse& response) {
                             other_result = response.GetResult();
                             outcomes.Add();
                           }),
            0);
  WaitForRequests(1);
  SetFaults([](OstrandFleet::ProxyFaults&) {});
  Client* const client = m_client.release();
  ASSERT_EQ(client->Send(Write(2),
                         [&outcomes, client](ClientResponse&) {
                           delete client;
                           outcomes.Add();
                         }),
            0);
  outcomes.WaitFor(2);
  EXPECT_EQ(other_result, CLIENT_ERR_CANCELLED);
  const int64_t deadline_ms = OstrandCommon::GetMonotonicMilliseconds() + kPatienceMs;
  while (CountEntries("/proc/self/task") > threads &&
         OstrandCommon::GetMonotonicMilliseconds() < deadline_ms) {
  }
  EXPECT_LE(CountEntries("/proc/self/task"), threads);
}

// The signals that the calling thread blocks, as the kernel prints them.
std::string BlockedSignals() {
  std::ifstream status("/proc/thread-self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("SigBlk:", 0) == 0) {
      return line.substr(8);
    }
  }
  return "";
}

TEST_F(ClientLife, TheBackgroundThreadTakesNoSignals) {
  StartFleet();
  StartClient();
  std::promise<std::string> blocked;
  ASSERT_EQ(m_client->Send(Write(1),
                           [&blocked](ClientResponse&) { blocked.set_value(BlockedSignals()); }),
            0);
  const uint64_t mask = std::stoull(blocked.get_future().get(), nullptr, 16);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGALRM, SIGPIPE, SIGCHLD}) {
    EXPECT_NE(mask & (uint64_t{1} << (signal - 1)), 0u) << signal;
  }
}

// Counts the descriptors that are open.
class CountingSystem : public OstrandFakes::ForwardingSystem {
 public:
  int OpenSocket(Endpoint::Family family) override {
    return Count(ForwardingSystem::OpenSocket(family));
  }
  int OpenPoll() override { return Count(ForwardingSystem::OpenPoll()); }
  int OpenEvent() override { return Count(ForwardingSystem::OpenEvent()); }
  int OpenTimer() override { return Count(ForwardingSystem::OpenTimer()); }
  int Close(int fd) override {
    m_open.fetch_sub(1);
    return ForwardingSystem::Close(fd);
  }

  int Open() const { return m_open.load(); }

 private:
  int Count(int fd) {
    m_open.fetch_add(fd >= 0 ? 1 : 0);
    return fd;
  }

  std::atomic<int> m_open{0};
};

// Runs in the child; answers the number of the first expectation that did not hold, 0: none.
int UseInChild(std::unique_ptr<Client>& client, const CountingSystem& system) {
  ClientResponse response;
  int32_t code = 0;
  std::string text;
  const bool held[] = {
      client->Call(Write(1), response) == CLIENT_ERR_FORKED,
      client->Send(Write(1), [](ClientResponse&) {}) == CLIENT_ERR_FORKED,
      client->Send(Write(1)).get().GetResult() == CLIENT_ERR_FORKED,
      client->Start() == CLIENT_ERR_FORKED,
      client->WaitReady(0) == CLIENT_ERR_FORKED,
      client->Stop(0) == CLIENT_ERR_FORKED,
      !client->Cancel(1),
      client->StatusText().empty(),
      client->Counters().accepted == 0,
      client->InFlight() == 0,
  };
  client->GetLastError(code, text);
  for (size_t i = 0; i < std::size(held); ++i) {
    if (!held[i]) {
      return static_cast<int>(i) + 1;
    }
  }
  if (system.Open() < 4) {  // poll, event, two proxies
    return 99;
  }
  client.reset();
  return system.Open() == 0 ? 0 : 100;
}

TEST_F(ClientLife, AForkedChildIsRefusedAndLeavesTheParentAlone) {
  StartFleet(2);
  CountingSystem system;
  ClientOptions options = Options();
  options.directory_refresh_ms = kPatienceMs;
  m_client = std::make_unique<Client>(options, system);
  ASSERT_EQ(m_client->Start(), 0);
  ASSERT_EQ(m_client->WaitReady(kPatienceMs), 0);
  // While requests go to and fro, so that a fork finds the thread inside anything.
  for (int round = 0; round < 10; ++round) {
    std::vector<std::future<ClientResponse>> pending;
    for (int i = 0; i < 50; ++i) {
      pending.push_back(m_client->Send(Write(i)));
    }
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      _exit(UseInChild(m_client, system));
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    for (std::future<ClientResponse>& answer : pending) {
      EXPECT_EQ(answer.get().GetResult(), 0);
    }
  }
  EXPECT_EQ(m_client->Counters().lost, 0u);
  EXPECT_EQ(m_client->Counters().outcomes, 500u);
  m_client.reset();  // before its system
}

TEST_F(ClientLife, AChildForkedInACallbackEndsWithIt) {
  if (OstrandFakes::kAddressSanitizer || OstrandFakes::kThreadSanitizer) {
    GTEST_SKIP() << "what such a child leaves behind is a fault to them";
  }
  StartFleet();
  StartClient();
  Tally outcomes;
  pid_t child = -1;
  ASSERT_EQ(m_client->Send(Write(1),
                           [&](ClientResponse&) {
                             child = fork();
                             if (child != 0) {
                               outcomes.Add();
                             }
                           }),
            0);
  outcomes.WaitFor(1);
  ASSERT_GT(child, 0);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status)) << WTERMSIG(status);
  EXPECT_EQ(m_client->Call(Write(2), m_response), 0);
  EXPECT_EQ(m_response.GetResult(), 0);
}

using ClientLifeDeathTest = ClientThreads;

TEST_F(ClientLifeDeathTest, AnExceptionOutOfACallbackEndsTheProgram) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";  // a process with threads of its own
  StartFleet();
  StartClient();
  const auto throw_in_callback = [this] {
    Gate never;
    m_client->Send(Write(1), [](ClientResponse&) { throw 1; });
    never.Pass();
  };
  EXPECT_DEATH(throw_in_callback(), "terminate");
}

}  // namespace
}  // namespace OstrandTests
