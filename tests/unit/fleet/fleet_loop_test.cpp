#include "fleet/fleet_loop.h"

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <thread>

namespace OstrandFleet {
namespace {

constexpr int64_t kPatience = 20000;

TEST(FleetLoop, TasksRunOnItsThreadAndAreDoneOnReturn) {
  FleetLoop loop;
  ASSERT_EQ(loop.Start(), 0);
  std::thread::id runner;
  loop.Run([&] { runner = std::this_thread::get_id(); });
  EXPECT_NE(runner, std::thread::id());
  EXPECT_NE(runner, std::this_thread::get_id());
}

TEST(FleetLoop, WithoutThreadTasksRunOnTheCallersAndMayNest) {
  FleetLoop loop;
  std::thread::id runner;
  loop.Run([&] { loop.Run([&] { runner = std::this_thread::get_id(); }); });
  EXPECT_EQ(runner, std::this_thread::get_id());
}

TEST(FleetLoop, TasksMayNestOnTheThread) {
  FleetLoop loop;
  ASSERT_EQ(loop.Start(), 0);
  bool inner = false;
  bool met = false;
  loop.Run([&] {
    loop.Run([&] { inner = true; });
    met = loop.WaitFor(kPatience, [] { return false; });
  });
  EXPECT_TRUE(inner);
  EXPECT_FALSE(met) << "nobody waits on the thread itself";
}

TEST(FleetLoop, StartsOnceAndStopsAnyNumberOfTimes) {
  FleetLoop loop;
  loop.Stop();
  EXPECT_EQ(loop.Start(), 0);
  EXPECT_EQ(loop.Start(), -1);
  loop.Stop();
  loop.Stop();
  EXPECT_EQ(loop.Start(), 0);
}

TEST(FleetLoop, TimersFireInTheOrderOfTheirTimes) {
  FleetLoop loop;
  std::vector<int> fired;
  Timer late(loop.net(), [&] { fired.push_back(3); });
  Timer early(loop.net(), [&] { fired.push_back(1); });
  Timer cancelled(loop.net(), [&] { fired.push_back(9); });
  Timer same(loop.net(), [&] { fired.push_back(2); });
  loop.Run([&] {
    // Far apart: time goes by between these lines, too.
    late.SetIn(240);
    early.SetIn(3600 * 1000);
    early.SetIn(1);
    cancelled.SetIn(1);
    same.SetIn(120);
    cancelled.Cancel();
    EXPECT_TRUE(early.IsSet());
    EXPECT_FALSE(cancelled.IsSet());
  });
  ASSERT_EQ(loop.Start(), 0);
  EXPECT_TRUE(loop.WaitFor(kPatience, [&] { return fired.size() == 3; }));
  loop.Stop();
  EXPECT_EQ(fired, (std::vector<int>{1, 2, 3}));
}

TEST(FleetLoop, ATimerThatSetsItselfAgainLetsOthersRun) {
  FleetLoop loop;
  int rounds = 0;
  Timer* self = nullptr;
  Timer again(loop.net(), [&] {
    ++rounds;
    self->SetIn(0);
  });
  self = &again;
  loop.Run([&] { again.SetIn(0); });
  ASSERT_EQ(loop.Start(), 0);
  EXPECT_TRUE(loop.WaitFor(kPatience, [&] { return rounds > 10; }));
  loop.Run([&] { again.Cancel(); });
}

TEST(FleetLoop, WhatIsDeletedLaterLivesUntilTheRoundEnds) {
  struct Object : LoopObject {
    explicit Object(bool& flag) : gone(flag) {}
    ~Object() override { gone = true; }
    bool& gone;
  };
  FleetLoop loop;
  ASSERT_EQ(loop.Start(), 0);
  bool gone = false;
  bool gone_at_once = true;
  loop.Run([&] {
    loop.DeleteLater(std::make_unique<Object>(gone));
    gone_at_once = gone;
  });
  EXPECT_FALSE(gone_at_once);
  EXPECT_TRUE(loop.WaitFor(kPatience, [&] { return gone; }));
}

TEST(FleetLoop, EventsGoToTheirHandlerUntilItIsUnwatched) {
  struct Handler : EventHandler {
    void OnEvents(uint32_t /*epoll_events*/) override {
      char byte = 0;
      bytes += read(fd, &byte, 1) == 1 ? 1 : 0;
    }
    int fd = -1;
    int bytes = 0;
  };
  FleetLoop loop;
  ASSERT_EQ(loop.Start(), 0);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  Handler handler;
  handler.fd = ends[0];
  loop.Run([&] { EXPECT_EQ(loop.net().Watch(ends[0], EPOLLIN, &handler), 0); });
  EXPECT_EQ(write(ends[1], "abc", 3), 3);
  EXPECT_TRUE(loop.WaitFor(kPatience, [&] { return handler.bytes == 3; }));
  loop.Run([&] { loop.net().Unwatch(ends[0], &handler); });
  EXPECT_EQ(write(ends[1], "d", 1), 1);
  loop.Run([] {});
  EXPECT_EQ(handler.bytes, 3);
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
}  // namespace OstrandFleet
