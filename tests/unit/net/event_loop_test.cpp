#include "net/event_loop.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "common/clock.h"
#include "unit/net/net_test_kit.h"

namespace OSTRNET {
namespace {

constexpr int64_t kNsPerMs = 1000000;

bool IsReadable(int fd, int timeout_ms = 0) {
  pollfd poll_fd{fd, POLLIN, 0};
  return poll(&poll_fd, 1, timeout_ms) == 1;
}

class Counting : public EventHandler {
 public:
  void OnEvents(uint32_t epoll_events) override {
    ++count;
    last = epoll_events;
    if (on_events) {
      on_events();
    }
  }
  int count = 0;
  uint32_t last = 0;
  std::function<void()> on_events;
};

// A descriptor that is readable from the start.
class ReadyFd {
 public:
  ReadyFd() : fd(System::Kernel().OpenEvent()) { System::Kernel().RaiseEvent(fd); }
  ~ReadyFd() { System::Kernel().Close(fd); }
  ReadyFd(const ReadyFd&) = delete;
  ReadyFd& operator=(const ReadyFd&) = delete;
  const int fd;
};

class EventLoopTest : public testing::Test {
 protected:
  void Advance(int64_t ms) { system.ahead_ns += ms * kNsPerMs; }

  TestSystem system;
  EventLoop loop{system};
};

TEST_F(EventLoopTest, TellsAWatchedDescriptorsEvents) {
  const ReadyFd ready;
  Counting handler;
  ASSERT_EQ(0, loop.Error());
  ASSERT_EQ(0, loop.Watch(ready.fd, EPOLLIN, &handler));
  EXPECT_TRUE(loop.RunOnce(0));
  EXPECT_EQ(1, handler.count);
  EXPECT_EQ(uint32_t{EPOLLIN}, handler.last);
  EXPECT_EQ(0, loop.Rewatch(ready.fd, 0, &handler));
  EXPECT_FALSE(loop.RunOnce(0));
  EXPECT_EQ(1, handler.count);
  loop.Unwatch(ready.fd, &handler);
  EXPECT_EQ(-EBADF, loop.Watch(-1, EPOLLIN, &handler));
}

TEST_F(EventLoopTest, DoesNotDeliverAnEventOfWhoWasUnwatchedInTheSameRound) {
  const ReadyFd first_fd;
  const ReadyFd second_fd;
  Counting first;
  Counting second;
  first.on_events = [&] { loop.Unwatch(second_fd.fd, &second); };
  second.on_events = [&] { loop.Unwatch(first_fd.fd, &first); };
  loop.Watch(first_fd.fd, EPOLLIN, &first);
  loop.Watch(second_fd.fd, EPOLLIN, &second);
  loop.RunOnce(0);
  EXPECT_EQ(1, first.count + second.count);
}

TEST_F(EventLoopTest, DeliversEventsAgainInTheNextRoundWithoutWaiting) {
  Counting handler;
  handler.on_events = [&] {
    if (handler.count == 1) {
      loop.EventsAgain(&handler);
    }
  };
  loop.EventsAgain(&handler);
  EXPECT_TRUE(loop.RunOnce(-1));
  EXPECT_EQ(1, handler.count);
  EXPECT_TRUE(loop.RunOnce(-1));
  EXPECT_EQ(2, handler.count);
  loop.EventsAgain(&handler);
  loop.ForgetEventsAgain(&handler);
  EXPECT_FALSE(loop.RunOnce(0));
  EXPECT_EQ(2, handler.count);
}

TEST_F(EventLoopTest, ForgetsEventsAgainOfTheRoundThatGoesOn) {
  Counting first;
  Counting second;
  first.on_events = [&] { loop.ForgetEventsAgain(&second); };
  loop.EventsAgain(&first);
  loop.EventsAgain(&second);
  loop.RunOnce(0);
  EXPECT_EQ(1, first.count);
  EXPECT_EQ(0, second.count);
}

TEST_F(EventLoopTest, RunsTimersInTheOrderOfTheirTimesAndOfTheirSettings) {
  std::string order;
  Timer c(loop, [&] { order += 'c'; });
  Timer a(loop, [&] { order += 'a'; });
  Timer d(loop, [&] { order += 'd'; });
  Timer b(loop, [&] { order += 'b'; });
  c.SetIn(20);
  a.SetIn(10);
  d.SetIn(30);
  b.SetIn(10);
  EXPECT_EQ(a.At(), loop.NextTimerMs());
  Advance(9);
  loop.RunOnce(0);
  EXPECT_EQ("", order);
  Advance(100);
  EXPECT_TRUE(loop.RunOnce(0));
  EXPECT_EQ("abcd", order);
  EXPECT_FALSE(a.IsSet());
  EXPECT_EQ(INT64_MAX, loop.NextTimerMs());
}

TEST_F(EventLoopTest, DoesNotRunACancelledOrDestroyedTimer) {
  int ran = 0;
  auto destroyed = std::make_unique<Timer>(loop, [&] { ++ran; });
  Timer cancelled(loop, [&] { ++ran; });
  Timer first(loop, [&] {
    destroyed.reset();
    cancelled.Cancel();
  });
  first.SetIn(1);
  destroyed->SetIn(2);
  cancelled.SetIn(2);
  Advance(10);
  loop.RunOnce(0);  // all three are due in this round
  EXPECT_EQ(0, ran);
  EXPECT_FALSE(cancelled.IsSet());
}

TEST_F(EventLoopTest, RunsATimerThatWasSetAnewAtItsLaterTimeOnly) {
  int ran = 0;
  Timer timer(loop, [&] { ++ran; });
  timer.SetIn(5);
  timer.SetIn(50);
  Advance(10);
  loop.RunOnce(0);
  EXPECT_EQ(0, ran);
  Advance(50);
  loop.RunOnce(0);
  EXPECT_EQ(1, ran);
}

TEST_F(EventLoopTest, KeepsTimersThatATimerSetsForTheNextRound) {
  int ran = 0;
  Timer timer(loop, [&] {
    ++ran;
    timer.SetIn(0);
  });
  timer.SetIn(0);
  EXPECT_TRUE(loop.RunOnce(-1));
  EXPECT_EQ(1, ran);
  EXPECT_TRUE(loop.RunOnce(-1));
  EXPECT_EQ(2, ran);
}

TEST_F(EventLoopTest, WaitsForTheEarliestTimer) {
  bool ran = false;
  Timer timer(loop, [&] { ran = true; });
  timer.SetIn(20);
  RunUntil(loop, [&] { return ran; });
  EXPECT_GE(loop.NowMs(), timer.At());
}

// A model: the plain list of what is set, over random settings, cancellations and advances.
TEST_F(EventLoopTest, RunsTimersAsAListWould) {
  system.frozen = true;
  std::minstd_rand random(7);
  std::vector<int> ran;
  std::vector<std::unique_ptr<Timer>> timers;
  std::vector<std::pair<int64_t, int>> set(100, {-1, 0});  // time, order of setting
  for (int i = 0; i < 100; ++i) {
    timers.push_back(std::make_unique<Timer>(loop, [&ran, i] { ran.push_back(i); }));
  }
  for (int step = 1; step < 5000; ++step) {
    const size_t at = random() % timers.size();
    if (random() % 4 == 0) {
      timers[at]->Cancel();
      set[at].first = -1;
    } else {
      timers[at]->SetIn(static_cast<int64_t>(random() % 50));
      set[at] = {timers[at]->At(), step};
    }
    if (random() % 10 == 0) {
      Advance(static_cast<int64_t>(random() % 20));
      ran.clear();
      loop.RunOnce(0);
      std::vector<std::pair<std::pair<int64_t, int>, int>> due;
      for (int i = 0; i < 100; ++i) {
        auto& entry = set[static_cast<size_t>(i)];
        if (entry.first >= 0 && entry.first <= loop.NowMs()) {
          due.push_back({entry, i});
          entry.first = -1;
        }
      }
      std::sort(due.begin(), due.end());
      std::vector<int> expected;
      for (const auto& entry : due) {
        expected.push_back(entry.second);
      }
      ASSERT_EQ(expected, ran);
    }
  }
}

TEST_F(EventLoopTest, RunsPostedTasksInOrderAndThoseOfATaskInTheNextRound) {
  std::string order;
  loop.Post([&] {
    order += '1';
    loop.Post([&] { order += '3'; });
  });
  loop.Post([&] { order += '2'; });
  EXPECT_TRUE(loop.RunOnce(-1));
  EXPECT_EQ("12", order);
  EXPECT_TRUE(loop.RunOnce(-1));
  EXPECT_EQ("123", order);
}

TEST_F(EventLoopTest, WritesNoEventForTasksThatArePostedWhileItIsAwake) {
  int ran = 0;
  loop.Post([&] {
    for (int i = 0; i < 1000; ++i) {
      loop.Post([&] { ++ran; });
    }
  });
  for (int i = 0; i < 1000; ++i) {
    loop.Post([&] { ++ran; });
  }
  loop.RunOnce(-1);
  loop.RunOnce(-1);
  EXPECT_EQ(2000, ran);
  EXPECT_EQ(0, system.event_raises.load());
}

TEST_F(EventLoopTest, DropsTasksThatNeverRan) {
  const auto held = std::make_shared<int>(1);
  {
    EventLoop other(system);
    other.Post([held] { FAIL(); });
    EXPECT_EQ(2, held.use_count());
  }
  EXPECT_EQ(1, held.use_count());
}

TEST_F(EventLoopTest, ThatWasWokenBeforeItSleepsDoesNotSleep) {
  loop.Wake();
  EXPECT_FALSE(loop.RunOnce(-1));
  EXPECT_EQ(0, system.event_raises.load());
}

TEST_F(EventLoopTest, AsksForWorkBeforeItSleeps) {
  int asked = 0;
  loop.SetWorkQuestion([&] {
    ++asked;
    return true;
  });
  EXPECT_FALSE(loop.RunOnce(-1));
  EXPECT_EQ(1, asked);
  loop.RunOnce(0);
  EXPECT_EQ(1, asked);
}

TEST_F(EventLoopTest, StopsOnceForEachStop) {
  loop.Stop();
  loop.Run();
  int rounds = 0;
  Timer timer(loop, [&] {
    ++rounds;
    loop.Stop();
  });
  timer.SetIn(1);
  loop.Run();
  EXPECT_EQ(1, rounds);
}

// Threads post while the loop goes to sleep and wakes: each task is an answer that its thread waits
// for, so that a lost wake would stop both for good.
TEST(EventLoopThreads, LoseNoWake) {
  EventLoop loop(System::Kernel());
  std::thread runner([&] { loop.Run(); });
  std::vector<std::thread> posters;
  for (int i = 0; i < 3; ++i) {
    posters.emplace_back([&] {
      for (int n = 0; n < 5000; ++n) {
        std::atomic<bool> done{false};
        loop.Post([&] { done = true; });
        const int64_t until_ms = OstrandCommon::GetMonotonicMilliseconds() + kPatienceMs;
        while (!done) {
          if (OstrandCommon::GetMonotonicMilliseconds() > until_ms) {
            ADD_FAILURE() << "a wake was lost";
            std::abort();
          }
          std::this_thread::yield();
        }
      }
    });
  }
  for (std::thread& poster : posters) {
    poster.join();
  }
  loop.Stop();
  runner.join();
}

TEST(EventLoopThreads, AreToldBySleepingLoopsOnly) {
  TestSystem system;
  EventLoop loop(system);
  std::atomic<int> ran{0};
  std::thread runner([&] { loop.Run(); });
  std::vector<std::thread> posters;
  for (int i = 0; i < 4; ++i) {
    posters.emplace_back([&] {
      for (int n = 0; n < 2000; ++n) {
        loop.Post([&] { ++ran; });
      }
    });
  }
  for (std::thread& poster : posters) {
    poster.join();
  }
  loop.Post([&] { loop.Stop(); });
  runner.join();
  EXPECT_EQ(8000, ran.load());
  EXPECT_LE(system.event_raises.load(), system.poll_waits);
}

class NotingFlushable : public Flushable {
 public:
  explicit NotingFlushable(std::function<void()> flush) : m_flush(std::move(flush)) {}
  void FlushNow() override { m_flush(); }

 private:
  std::function<void()> m_flush;
};

TEST_F(EventLoopTest, FlushesEachOnceARoundHoweverOftenItAsked) {
  int flushes = 0;
  NotingFlushable flushable([&] { ++flushes; });
  loop.Post([&] {
    for (int i = 0; i < 10; ++i) {
      loop.FlushLater(&flushable);
    }
    EXPECT_EQ(0, flushes);
  });
  loop.RunOnce(0);
  EXPECT_EQ(1, flushes);
  loop.FlushLater(&flushable);
  loop.FlushLater(&flushable);
  EXPECT_TRUE(loop.RunOnce(0));
  EXPECT_EQ(2, flushes);
  EXPECT_FALSE(loop.RunOnce(0));
}

TEST_F(EventLoopTest, DoesNotFlushWhoWasForgottenAlsoByOneThatIsFlushed) {
  int flushes = 0;
  NotingFlushable forgotten([&] { ++flushes; });
  NotingFlushable later([&] { ++flushes; });
  NotingFlushable first([&] { loop.ForgetFlush(&later); });
  loop.FlushLater(&first);
  loop.FlushLater(&forgotten);
  loop.FlushLater(&later);
  loop.ForgetFlush(&forgotten);
  loop.ForgetFlush(&forgotten);
  loop.FlushAll();
  EXPECT_EQ(0, flushes);
}

TEST_F(EventLoopTest, KeepsWhatAFlushQueuesForTheNextTime) {
  int flushes = 0;
  NotingFlushable flushable([&] {
    if (++flushes < 3) {
      loop.FlushLater(&flushable);
    }
  });
  loop.FlushLater(&flushable);
  loop.FlushAll();
  EXPECT_EQ(1, flushes);
  loop.RunOnce(-1);  // does not sleep with something to send
  EXPECT_EQ(3, flushes);
}

TEST_F(EventLoopTest, GivesItsTimeToTheThreadThatItRunsOn) {
  TestSystem frozen;
  frozen.frozen = true;
  EventLoop frozen_loop(frozen);
  frozen_loop.Post([&] {
    EXPECT_EQ(1700000000000000, OstrandCommon::GetCurrentMicroseconds());
    EXPECT_EQ(1700000000000, OstrandCommon::GetCurrentMilliseconds());
    EXPECT_EQ(frozen_loop.NowMs(), OstrandCommon::GetMonotonicMilliseconds());
    EXPECT_GT(OstrandCommon::GetMonotonicNanoseconds(), 0);
    frozen.frozen_ns += 5 * kNsPerMs;
    frozen.wall_us += 5000;
    EXPECT_EQ(1700000000000000, OstrandCommon::GetCurrentMicroseconds());
    EXPECT_EQ(1700000000005000, OstrandCommon::ReadCurrentMicroseconds());
    EXPECT_EQ(1700000000005000, OstrandCommon::GetCurrentMicroseconds());
    EXPECT_EQ(1700000000005000, frozen_loop.NowUs());
  });
  frozen_loop.RunOnce(0);
  EXPECT_NE(1700000000005000, OstrandCommon::GetCurrentMicroseconds());
  const LoopScope scope(frozen_loop);
  EXPECT_EQ(1700000000005000, OstrandCommon::GetCurrentMicroseconds());
  EventLoop inner(System::Kernel());
  {
    const LoopScope inner_scope(inner);
    EXPECT_EQ(inner.NowUs(), OstrandCommon::GetCurrentMicroseconds());
  }
  EXPECT_EQ(1700000000005000, OstrandCommon::GetCurrentMicroseconds());
}

TEST_F(EventLoopTest, TimeNeverGoesBack) {
  TestSystem frozen;
  frozen.frozen = true;
  EventLoop frozen_loop(frozen);
  const int64_t before_us = frozen_loop.NowUs();
  const int64_t before_ms = frozen_loop.NowMs();
  frozen.frozen_ns -= 500 * kNsPerMs;
  frozen.wall_us -= 500000;
  frozen_loop.LookAtClock();
  EXPECT_EQ(before_us, frozen_loop.NowUs());
  EXPECT_EQ(before_ms, frozen_loop.NowMs());
}

TEST_F(EventLoopTest, WithoutDescriptorsSaysSoAndDoesNothing) {
  class NoEvents : public OstrandFakes::ForwardingSystem {
   public:
    int OpenEvent() override { return -EMFILE; }
  };
  NoEvents poor;
  EventLoop other(poor);
  EXPECT_EQ(-EMFILE, other.Error());
  EXPECT_FALSE(other.RunOnce(-1));
  EXPECT_EQ(-EMFILE, other.Fd());
}

class LoopFd : public EventLoopTest {
 protected:
  LoopFd() : fd(loop.Fd()) { system.event_raises = 0; }
  const int fd;
};

TEST_F(LoopFd, IsQuietWhileThereIsNothingToDo) {
  ASSERT_GE(fd, 0);
  EXPECT_EQ(fd, loop.Fd());
  EXPECT_FALSE(IsReadable(fd));
  loop.RunOnce(0);
  EXPECT_FALSE(IsReadable(fd));
}

TEST_F(LoopFd, IsReadableForEventsOfDescriptors) {
  const ReadyFd ready;
  Counting handler;
  loop.Watch(ready.fd, EPOLLIN, &handler);
  EXPECT_TRUE(IsReadable(fd));
  loop.Unwatch(ready.fd, &handler);
  EXPECT_FALSE(IsReadable(fd));
}

TEST_F(LoopFd, IsReadableForTasksAndQuietWhenTheyAreDone) {
  for (int i = 0; i < 1000; ++i) {
    loop.Post([] {});
  }
  EXPECT_TRUE(IsReadable(fd));
  EXPECT_EQ(1, system.event_raises.load());
  loop.RunOnce(0);
  EXPECT_FALSE(IsReadable(fd));
  loop.Post([&] { loop.Post([] {}); });
  loop.RunOnce(0);
  EXPECT_TRUE(IsReadable(fd)) << "the task's task";
  loop.RunOnce(0);
  EXPECT_FALSE(IsReadable(fd));
}

TEST_F(LoopFd, IsReadableForBytesThatWaitAndForWhatIsToBeFlushed) {
  Counting handler;
  loop.EventsAgain(&handler);
  EXPECT_TRUE(IsReadable(fd));
  loop.RunOnce(0);
  EXPECT_FALSE(IsReadable(fd));
  NotingFlushable flushable([] {});
  loop.FlushLater(&flushable);
  EXPECT_TRUE(IsReadable(fd));
  loop.RunOnce(0);
  EXPECT_FALSE(IsReadable(fd));
}

TEST_F(LoopFd, IsReadableWhenATimerIsDue) {
  int ran = 0;
  Timer timer(loop, [&] { ++ran; });
  timer.SetIn(5);
  EXPECT_FALSE(IsReadable(fd));
  EXPECT_TRUE(IsReadable(fd, 10000));
  loop.RunOnce(0);
  EXPECT_EQ(1, ran);
  EXPECT_FALSE(IsReadable(fd));
}

TEST_F(LoopFd, ArmsItsTimerOnlyForEarlierTimes) {
  Timer one(loop, [] {});
  Timer two(loop, [] {});
  one.SetIn(1000);
  EXPECT_EQ(1, system.timer_sets);
  two.SetIn(2000);
  one.SetIn(3000);
  one.SetIn(1500);
  EXPECT_EQ(1, system.timer_sets);
  two.SetIn(500);
  EXPECT_EQ(2, system.timer_sets);
}

TEST_F(EventLoopTest, ArmsNoTimerDescriptorBeforeItsFdWasAskedFor) {
  Timer timer(loop, [] {});
  timer.SetIn(1);
  EXPECT_EQ(0, system.timer_sets);
  loop.Fd();
  EXPECT_EQ(1, system.timer_sets);
}

TEST_F(LoopFd, IsReadableWhileItIsSaidToBe) {
  loop.SetReady(true);
  loop.SetReady(true);
  EXPECT_TRUE(IsReadable(fd));
  loop.RunOnce(-1);
  EXPECT_TRUE(IsReadable(fd));
  loop.SetReady(false);
  EXPECT_FALSE(IsReadable(fd));
}

TEST_F(EventLoopTest, RemembersThatItIsReadyUntilItsFdIsAskedFor) {
  loop.SetReady(true);
  EXPECT_TRUE(IsReadable(loop.Fd()));
}

TEST(LoopFdThreads, TellAnotherLoopOfEachTask) {
  EventLoop loop(System::Kernel());
  const int fd = loop.Fd();
  std::atomic<int> ran{0};
  std::thread poster([&] {
    for (int i = 0; i < 3000; ++i) {
      loop.Post([&] { ++ran; });
      const int64_t until_ms = OstrandCommon::GetMonotonicMilliseconds() + kPatienceMs;
      while (ran <= i && OstrandCommon::GetMonotonicMilliseconds() < until_ms) {
        std::this_thread::yield();
      }
    }
  });
  while (ran < 3000 && IsReadable(fd, static_cast<int>(kPatienceMs))) {
    loop.RunOnce(0);
  }
  poster.join();
  EXPECT_EQ(3000, ran.load());
}

}  // namespace
}  // namespace OSTRNET
