// The network thread enters accesses while the application's thread counts, judges, prints and ends
// minutes. The thread sanitizer watches; what is looked at here is that nothing counted is lost and
// that no record is seen half entered.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "client/judge.h"
#include "client/statistic_mgr.h"

namespace OstrandService {
namespace {

constexpr int64_t kApp = 7;
constexpr int32_t kZone = 3;

std::string UrlOf(int address) { return "tcp://10.0.0.1:" + std::to_string(address); }

// Enters the accesses of a route, over and over, until `done`.
void EnterRoutes(StatisticMgr& mgr, int routes, int proxies, const std::atomic<bool>& done) {
  for (int route = 0; !done.load(); route = (route + 1) % routes) {
    for (int i = 0; i < proxies; ++i) {
      const int address = route * proxies + i;
      mgr.AddAccess(kApp, kZone, UrlOf(address).c_str(), address, 9000, "id");
    }
  }
}

TEST(StatisticThreads, NothingCountedIsLostBesideAddAccess) {
  constexpr int kProxies = 1000;
  StatisticMgr mgr;
  mgr.RegisterApp(kApp, kZone);
  tagServiceApiStatistic& record = *mgr.GetServiceApiStatistic(kApp, kZone);
  std::atomic<bool> done{false};
  std::thread network([&mgr, &done] { EnterRoutes(mgr, 1, kProxies, done); });
  std::vector<uint64_t> counted(kProxies, 0);
  std::vector<uint64_t> moved(kProxies, 0);
  int found_last = 0;
  for (int round = 0; round < 300 || found_last < kProxies; ++round) {
    found_last = 0;
    for (int address = 0; address < kProxies; ++address) {
      tagAccessRunStatus* const access = mgr.GetAccessRunStatus(record, address, 9000);
      if (access != nullptr) {
        ++found_last;
        ASSERT_EQ(UrlOf(address), access->szAccessUrl);
        access->dwRequestCountPerMin += 1;
        ++counted[static_cast<size_t>(address)];
      }
    }
    if (round % 10 == 0) {
      mgr.RollMinute();
      const tagServiceApiStatistic& last = *mgr.GetLastMinute(kApp, kZone);
      for (int32_t i = 0; i < last.iAccessCount; ++i) {
        moved[static_cast<size_t>(last.astAccessStatistic[i].iIp)] +=
            last.astAccessStatistic[i].dwRequestCountPerMin;
      }
    }
  }
  done = true;
  network.join();
  for (int address = 0; address < kProxies; ++address) {
    const auto i = static_cast<size_t>(address);
    ASSERT_EQ(counted[i],
              moved[i] + mgr.GetAccessRunStatus(record, address, 9000)->dwRequestCountPerMin);
  }
}

TEST(StatisticThreads, ARouteThatFlapsIsEnteredWhileOthersAreCountedJudgedAndPrinted) {
  constexpr int kRoutes = 20;
  constexpr int kProxies = 200;
  StatisticMgr mgr;
  mgr.RegisterApp(kApp, kZone);
  Judge judge;
  tagServiceApiStatistic& record = *mgr.GetServiceApiStatistic(kApp, kZone);
  std::atomic<bool> done{false};
  std::thread network([&mgr, &done] { EnterRoutes(mgr, kRoutes, kProxies, done); });
  bool seen[kRoutes] = {};
  int routes_seen = 0;
  for (int round = 0; round < 200 || routes_seen < kRoutes; ++round) {
    mgr.ReuseIdleAccesses();
    for (int address = 0; address < kRoutes * kProxies; ++address) {
      tagAccessRunStatus* const access = mgr.GetAccessRunStatus(record, address, 9000);
      if (access == nullptr) {
        continue;
      }
      ASSERT_EQ(address, access->iIp);
      ASSERT_EQ(UrlOf(address), access->szAccessUrl);
      access->dwTimeOutCountPerMin += 1;
      if (!seen[address / kProxies]) {
        seen[address / kProxies] = true;
        ++routes_seen;
      }
    }
    judge.Update(kApp, kZone, mgr);
    if (round % 50 == 0) {
      mgr.RollMinute();
      std::string text;
      mgr.PrintStatistics(text);
    }
  }
  done = true;
  network.join();
}

TEST(StatisticThreads, ZonesAreRegisteredBesideAddAccess) {
  StatisticMgr mgr;
  std::atomic<bool> done{false};
  std::thread network([&mgr, &done] {
    while (!done.load()) {
      for (int32_t zone = 0; zone < 60; ++zone) {
        mgr.AddAccess(kApp, zone, "tcp://10.0.0.1:1", 1, 1, "id");
      }
    }
  });
  for (int32_t zone = 0; zone < 60; ++zone) {
    ASSERT_EQ(0, mgr.RegisterApp(kApp, zone));
    tagServiceApiStatistic& record = *mgr.GetServiceApiStatistic(kApp, zone);
    while (mgr.GetAccessRunStatus(record, 1, 1) == nullptr) {
      std::this_thread::yield();
    }
  }
  done = true;
  network.join();
}

}  // namespace
}  // namespace OstrandService
