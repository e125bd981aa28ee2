// Clients that come and go, descriptors that run out, signals that interrupt.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "fakes/sanitizers.h"
#include "integration/integration_kit.h"
#include "protocol/ostrand_protocol_cs.h"
#include "service_api/ostrand_router.h"

namespace OstrandTests {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands
using OstrandService::CLIENT_ERR_NOT_STARTED;
using OstrandService::PollingClient;

class Life : public RuntimeTest {
 protected:
  void StartWithProcess(size_t proxies) {
    StartFleetProcess(proxies);
    StartClient();
    ASSERT_TRUE(m_work->Run(200));
    ASSERT_TRUE(m_work->Drain());
  }
};

TEST_F(Life, AThousandStartsAndStops) {
  StartFleet(1);
  auto options = Options();
  for (int i = 0; i < OstrandFakes::Rounds(1000); ++i) {
    PollingClient client(options);
    ASSERT_EQ(client.Start(), 0) << i;
    if (i % 50 == 0) {
      ASSERT_EQ(client.WaitReady(static_cast<int>(kPatienceMs)), 0);
      m_request.Begin(OSTRAND_API_REPLACE_REQ, kTable).Zone(kZone);
      m_request.Key("id", "1");
      ASSERT_EQ(client.Call(m_request, m_response), 0);
      ASSERT_EQ(m_response.GetResult(), 0);
    } else if (i % 5 == 0) {
      ASSERT_EQ(client.Update(), 0);
    }
    if (i % 2 == 0) {
      ASSERT_EQ(client.Stop(0), 0u);
    }
  }
  EXPECT_TRUE(
      m_fleet->WaitFor(kPatienceMs, [&] { return m_fleet->Counters(0).connections_open == 0; }));
}

TEST_F(Life, StartsAgainAfterAStop) {
  StartFleet(2);
  StartClient();
  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(m_work->Run(100));
    ASSERT_TRUE(m_work->Drain());
    ASSERT_EQ(m_client->Stop(0), 0u);
    EXPECT_EQ(m_client->Stop(0), 0u) << "a second is harmless";
    EXPECT_EQ(Do(OSTRAND_API_GET_REQ, "1"), CLIENT_ERR_NOT_STARTED);
    ASSERT_EQ(m_client->Start(), 0);
    ASSERT_EQ(m_client->WaitReady(static_cast<int>(kPatienceMs)), 0);
  }
}

// At each step of becoming ready, with a proxy that goes no further.
TEST_F(Life, StopsBeforeItIsReady) {
  StartFleet(2);
  using OstrandFleet::ProxyFaults;
  void (*const kFaults[])(ProxyFaults&) = {
      [](ProxyFaults& faults) { faults.ignore_connects = true; },
      [](ProxyFaults& faults) { faults.silent = true; },
      [](ProxyFaults& faults) { faults.ignore_sign_up = true; },
      [](ProxyFaults& faults) { faults.refuse_sign_up = -9233; },
  };
  for (const auto fault : kFaults) {
    SetFaultsOfAll(fault);
    PollingClient client(Options());
    ASSERT_EQ(client.Start(), 0);
    EXPECT_NE(client.WaitReady(50), 0);
    EXPECT_EQ(client.Stop(0), 0u);
  }
}

TEST_F(Life, IsDestroyedWithRequestsInFlight) {
  StartFleet(2);
  StartClient();
  SetFaultsOfAll([](OstrandFleet::ProxyFaults& faults) { faults.drop_every = 1; });
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(m_work->SendOne(), 0);
  }
  m_work.reset();
  m_client.reset();
}

TEST_F(Life, TwoClientsInOneProcessDoNotMeet) {
  StartFleet(2);
  StartClient();
  auto second = std::make_unique<PollingClient>(Options());
  ASSERT_EQ(second->Start(), 0);
  ASSERT_EQ(second->WaitReady(static_cast<int>(kPatienceMs)), 0);
  ASSERT_TRUE(m_work->Run(200));
  second.reset();
  ASSERT_TRUE(m_work->Run(200));
  EXPECT_EQ(m_work->tally().timed_out, 0u);
}

// Each zone has a route and a fate of its own.
TEST_F(Life, AZoneWhoseProxiesAreGoneLeavesTheOtherAlone) {
  WarpedClock clock(10);
  StartFleet(4);
  const auto urls = m_fleet->ProxyUrls();
  m_fleet->SetRoute(kZone, {urls[0], urls[1], urls[2]});
  m_fleet->SetRoute(kZone + 1, std::vector<std::string>{urls[3]});
  auto options = Options();
  options.zones = {kZone + 1, kZone};
  options.tables.push_back({"other", kZone + 1, nullptr});
  StartClient(options);
  const auto get_other = [&] {
    m_request.Begin(OSTRAND_API_GET_REQ, "other").Zone(kZone + 1);
    m_request.Key("id", "1");
    m_request.SetTimeout(1000);
    const int ret = m_client->Call(m_request, m_response);
    return ret != 0 ? ret : m_response.GetResult();
  };
  EXPECT_EQ(get_other(), -7949);
  m_fleet->Kill(3);
  ASSERT_TRUE(m_work->RunUntil([&] { return IsLogged("Connection refused"); }));
  ASSERT_TRUE(m_work->Run(500));
  ASSERT_TRUE(m_work->Drain());
  EXPECT_EQ(m_work->tally().timed_out + m_work->tally().failed, 0u);
  EXPECT_EQ(get_other(), OstrandService::ROUTER_ERR_NO_ROUTE);
  ASSERT_EQ(m_fleet->Restart(3), 0);
  ASSERT_TRUE(UpdateUntil([&] { return get_other() == -7949; }));
}

// No descriptor above those that are open can be had until it is destroyed.
class DescriptorsUsedUp {
 public:
  DescriptorsUsedUp() {
    getrlimit(RLIMIT_NOFILE, &m_before);
    const int lowest_free = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(lowest_free);
    const rlimit limit{static_cast<rlim_t>(lowest_free), m_before.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  }
  ~DescriptorsUsedUp() { setrlimit(RLIMIT_NOFILE, &m_before); }
  DescriptorsUsedUp(const DescriptorsUsedUp&) = delete;
  DescriptorsUsedUp& operator=(const DescriptorsUsedUp&) = delete;

 private:
  rlimit m_before{};
};

TEST_F(Life, WithoutDescriptorsStartAnswersACode) {
  StartFleetProcess(2);
  const auto options = Options();
  StartClient(options);  // once with: what a sanitizer looks up by way of a pipe it then knows
  m_client->Stop(0);
  {
    const DescriptorsUsedUp used_up;
    PollingClient client(options);
    EXPECT_EQ(client.Start(), OstrandService::ROUTER_ERR_FAILED);
    EXPECT_EQ(client.WaitReady(0), CLIENT_ERR_NOT_STARTED);
  }
  StartClient(options);
}

TEST_F(Life, WithoutDescriptorsWhatStandsServesAndTheRestFollowsLater) {
  WarpedClock clock(10);
  StartWithProcess(2);
  std::string route = "zone 1\n";
  for (const std::string& url : m_process->ProxyUrls()) {
    route += "proxy " + url + " p" + std::to_string(route.find("p0") != std::string::npos) + "\n";
  }
  m_work->SetTimeout(1000);
  m_process->WriteFleetFile(route + "down p0\n");
  ASSERT_TRUE(m_work->RunUntil([&] { return !IsServing(m_process->ProxyUrls()[0]); }));
  ASSERT_TRUE(m_work->Drain());
  m_process->PrepareFleetFile(route);
  {
    const DescriptorsUsedUp used_up;
    m_process->PublishFleetFile();
    ASSERT_TRUE(m_work->RunUntil([&] { return IsLogged("Connect proxy failed."); }));
    ASSERT_TRUE(m_work->Run(500));
    EXPECT_FALSE(IsServing(m_process->ProxyUrls()[0]));
  }
  ASSERT_TRUE(m_work->RunUntil([&] { return IsServing(m_process->ProxyUrls()[0]); }));
}

// A write to a connection that was reset raises no signal that would end the process.
TEST_F(Life, ABrokenPipeEndsNothing) {
  WarpedClock clock(10);
  const auto before = signal(SIGPIPE, SIG_DFL);
  StartFleet(2);
  StartClient();
  m_work->SetTimeout(1000);
  m_work->SetValueSize(5000);
  for (int i = 0; i < 10; ++i) {
    for (int sent = 0; sent < 50; ++sent) {
      m_work->SendOne();
    }
    m_fleet->CloseConnections(0, OstrandFleet::CloseKind::kReset);
    ASSERT_TRUE(m_work->Run(100));
  }
  signal(SIGPIPE, before);
}

std::atomic<uint64_t> g_interrupts{0};

void CountInterrupt(int) { g_interrupts.fetch_add(1, std::memory_order_relaxed); }

// Sends a signal to every other thread of the process, again and again, while it lives. System
// calls that it interrupts are not restarted.
class Interrupter {
 public:
  Interrupter() {
    struct sigaction action {};
    action.sa_handler = CountInterrupt;  // no SA_RESTART
    sigaction(SIGUSR1, &action, nullptr);
    m_thread = std::thread([this] { Run(); });
  }
  ~Interrupter() {
    m_stop = true;
    m_thread.join();
    signal(SIGUSR1, SIG_IGN);  // one may still be on its way
  }
  Interrupter(const Interrupter&) = delete;
  Interrupter& operator=(const Interrupter&) = delete;

 private:
  void Run() {
    const auto self = static_cast<pid_t>(syscall(SYS_gettid));
    while (!m_stop) {
      DIR* const dir = opendir("/proc/self/task");
      while (const dirent* const entry = readdir(dir)) {
        const auto thread = static_cast<pid_t>(std::atoi(entry->d_name));
        if (thread > 0 && thread != self) {
          syscall(SYS_tgkill, getpid(), thread, SIGUSR1);
        }
      }
      closedir(dir);
      poll(nullptr, 0, 1);  // the others need time, too
    }
  }

  std::atomic<bool> m_stop{false};
  std::thread m_thread;
};

TEST_F(Life, InterruptedSystemCallsLoseNothing) {
  StartFleetProcess(3);
  g_interrupts = 0;
  {
    const Interrupter interrupter;
    StartClient();
    ASSERT_TRUE(m_work->Run(2000));
    ASSERT_TRUE(m_work->RunUntil([] { return g_interrupts > 500; }, 1));
    ASSERT_TRUE(m_work->Drain());
  }
  EXPECT_EQ(m_work->tally().timed_out + m_work->tally().failed, 0u);
  EXPECT_FALSE(IsLogged("Interrupted"));
  EXPECT_FALSE(IsLogged("closed"));
}

}  // namespace
}  // namespace OstrandTests
