// The network thread by itself, with event descriptors and sockets of one process. What the thread
// brings about is waited for with a time limit; what must not happen is looked for behind a whole
// round in which it could have happened.
#include "client/net_loop.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "fakes/sanitizers.h"

namespace OstrandService {
namespace {

using OstrandFakes::Rounds;

constexpr std::chrono::seconds kPatience(10);

// A number that one thread changes and another waits for.
class Count {
 public:
  void Add() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_value;
    m_changed.notify_all();
  }
  int Get() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_value;
  }
  // Whether it reaches the value before the patience ends.
  bool Reaches(int value) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, kPatience, [&] { return m_value >= value; });
  }

 private:
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  int m_value = 0;
};

// An event descriptor and its handler, which takes the event and does what it is told.
class Bell final : public NetHandler {
 public:
  explicit Bell(std::function<void(uint32_t)> action = {}) : m_action(std::move(action)) {}
  ~Bell() { close(m_fd); }
  Bell(const Bell&) = delete;
  Bell& operator=(const Bell&) = delete;

  int fd() const { return m_fd; }
  void Ring() { EXPECT_EQ(eventfd_write(m_fd, 1), 0); }
  Count& heard() { return m_heard; }

  void OnNetEvents(uint32_t epoll_events) override {
    eventfd_t value = 0;
    EXPECT_EQ(eventfd_read(m_fd, &value), 0);
    if (m_action) {
      m_action(epoll_events);
    }
    m_heard.Add();
  }

 private:
  const int m_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  const std::function<void(uint32_t)> m_action;
  Count m_heard;
};

// A handler that leaves its event where it is, so that it is told again in every round.
class Nag final : public NetHandler {
 public:
  explicit Nag(std::function<void()> action = {}) : m_action(std::move(action)) {}
  ~Nag() { close(m_fd); }
  Nag(const Nag&) = delete;
  Nag& operator=(const Nag&) = delete;

  int fd() const { return m_fd; }
  Count& calls() { return m_calls; }
  void OnNetEvents(uint32_t epoll_events) override {
    EXPECT_EQ(epoll_events, static_cast<uint32_t>(EPOLLIN));
    m_calls.Add();
    if (m_action) {
      m_action();
    }
  }

 private:
  const int m_fd = eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK);
  const std::function<void()> m_action;
  Count m_calls;
};

class Listener final : public NetRoundListener {
 public:
  std::function<int()> on_round_end;
  std::function<bool()> has_work;

  Count& rounds() { return m_rounds; }
  int OnRoundEnd() override {
    const int wanted_ms = on_round_end ? on_round_end() : -1;
    m_rounds.Add();
    return wanted_ms;
  }
  bool HasWork() override { return has_work && has_work(); }

 private:
  Count m_rounds;
};

// Gives the other threads a good chance to do what they must not.
void LetOthersRun() {
  for (int i = 0; i < 2000; ++i) {
    sched_yield();
  }
}

// Starts the thread, and ends it before that dies which its handlers and its listener use.
class Running {
 public:
  Running(NetLoop& loop, NetRoundListener* listener) : m_loop(loop) {
    EXPECT_EQ(m_loop.Start(listener), 0);
  }
  ~Running() { m_loop.Stop(); }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

 private:
  NetLoop& m_loop;
};

class NetLoopTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(m_loop.Watch(m_bell.fd(), EPOLLIN, &m_bell), 0); }
  void TearDown() override { m_loop.Stop(); }

  void Start() { ASSERT_EQ(m_loop.Start(&m_listener), 0); }
  // Makes whole rounds happen: every event that waited before was told when it returns.
  bool Round() {
    for (int i = 0; i < 2; ++i) {
      const int heard = m_bell.heard().Get();
      m_bell.Ring();
      if (!m_bell.heard().Reaches(heard + 1)) return false;
    }
    return true;
  }

  Listener m_listener;
  Bell m_bell;
  NetLoop m_loop;
};

TEST_F(NetLoopTest, TellsAHandlerItsEventsOnItsOwnThread) {
  uint32_t events = 0;
  bool on_net_thread = false;
  Bell bell([&](uint32_t told) {
    events = told;
    on_net_thread = m_loop.OnNetThread();
  });
  ASSERT_EQ(m_loop.Watch(bell.fd(), EPOLLIN, &bell), 0);
  const Running running(m_loop, &m_listener);
  bell.Ring();
  ASSERT_TRUE(bell.heard().Reaches(1));
  EXPECT_EQ(events, static_cast<uint32_t>(EPOLLIN));
  EXPECT_TRUE(on_net_thread);
  EXPECT_FALSE(m_loop.OnNetThread());
  m_loop.Stop();
  EXPECT_FALSE(m_loop.OnNetThread());
}

TEST_F(NetLoopTest, TellsAnEventThatWasNotTakenAgain) {
  Nag nag;
  ASSERT_EQ(m_loop.Watch(nag.fd(), EPOLLIN, &nag), 0);
  const Running running(m_loop, &m_listener);
  EXPECT_TRUE(nag.calls().Reaches(5));
}

TEST_F(NetLoopTest, EndsEachRoundWithItsListener) {
  const Running running(m_loop, &m_listener);
  const int rounds = m_listener.rounds().Get();
  m_bell.Ring();
  EXPECT_TRUE(m_bell.heard().Reaches(1));
  EXPECT_TRUE(m_listener.rounds().Reaches(rounds + 1));
}

TEST_F(NetLoopTest, RunsWithoutAListener) {
  const Running running(m_loop, nullptr);
  EXPECT_TRUE(Round());
}

TEST_F(NetLoopTest, AsksForOtherEventsAfterRewatch) {
  class Both final : public NetHandler {
   public:
    explicit Both(NetLoop& loop, int fd) : m_loop(loop), m_fd(fd) {}
    void OnNetEvents(uint32_t epoll_events) override {
      events = epoll_events;
      EXPECT_EQ(m_loop.Rewatch(m_fd, EPOLLIN, this), 0);
      told.Add();
    }
    uint32_t events = 0;
    Count told;

   private:
    NetLoop& m_loop;
    const int m_fd;
  };
  int sockets[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
  Both handler(m_loop, sockets[0]);
  ASSERT_EQ(m_loop.Watch(sockets[0], EPOLLIN, &handler), 0);
  const Running running(m_loop, &m_listener);
  ASSERT_TRUE(Round());
  EXPECT_EQ(handler.told.Get(), 0);
  ASSERT_EQ(m_loop.Rewatch(sockets[0], EPOLLOUT, &handler), 0);
  ASSERT_TRUE(handler.told.Reaches(1));
  EXPECT_EQ(handler.events, static_cast<uint32_t>(EPOLLOUT));
  ASSERT_TRUE(Round());
  EXPECT_EQ(handler.told.Get(), 1);
  m_loop.Stop();
  m_loop.Unwatch(sockets[0]);
  close(sockets[0]);
  close(sockets[1]);
}

TEST_F(NetLoopTest, AnswersMinusOneForWhatCannotBeWatched) {
  EXPECT_EQ(m_loop.Watch(-1, EPOLLIN, &m_bell), -1);
  EXPECT_EQ(m_loop.Watch(m_bell.fd(), EPOLLIN, &m_bell), -1) << "it is watched already";
  const Bell other;
  EXPECT_EQ(m_loop.Rewatch(other.fd(), EPOLLIN, &m_bell), -1);
  m_loop.Unwatch(other.fd());
  m_loop.Unwatch(-1);
}

TEST_F(NetLoopTest, TellsNothingAfterUnwatch) {
  Nag nag;
  ASSERT_EQ(m_loop.Watch(nag.fd(), EPOLLIN, &nag), 0);
  const Running running(m_loop, &m_listener);
  ASSERT_TRUE(nag.calls().Reaches(1));
  m_loop.Pause();
  m_loop.Unwatch(nag.fd());
  const int calls = nag.calls().Get();
  m_loop.Resume();
  ASSERT_TRUE(Round());
  EXPECT_EQ(nag.calls().Get(), calls);
}

TEST_F(NetLoopTest, LetsAHandlerUnwatchItself) {
  Nag* self = nullptr;
  Nag nag([&] { m_loop.Unwatch(self->fd()); });
  self = &nag;
  ASSERT_EQ(m_loop.Watch(nag.fd(), EPOLLIN, &nag), 0);
  const Running running(m_loop, &m_listener);
  ASSERT_TRUE(nag.calls().Reaches(1));
  ASSERT_TRUE(Round());
  EXPECT_EQ(nag.calls().Get(), 1);
}

TEST_F(NetLoopTest, LetsAHandlerUnwatchAllOthers) {
  constexpr size_t kNags = 50;
  std::vector<std::unique_ptr<Nag>> nags;
  nags.reserve(kNags);
  for (size_t i = 0; i < kNags; ++i) {
    nags.push_back(std::make_unique<Nag>([&] {
      for (const auto& nag : nags) {
        m_loop.Unwatch(nag->fd());
      }
    }));
  }
  for (const auto& nag : nags) {
    ASSERT_EQ(m_loop.Watch(nag->fd(), EPOLLIN, nag.get()), 0);
  }
  const Running running(m_loop, &m_listener);
  ASSERT_TRUE(m_listener.rounds().Reaches(1));
  ASSERT_TRUE(Round());
  for (const auto& nag : nags) {
    EXPECT_LE(nag->calls().Get(), 1) << "that which came with the same round";
  }
}

TEST_F(NetLoopTest, LetsAHandlerWatchAnother) {
  Bell second;
  Bell first([&](uint32_t) { EXPECT_EQ(m_loop.Watch(second.fd(), EPOLLIN, &second), 0); });
  ASSERT_EQ(m_loop.Watch(first.fd(), EPOLLIN, &first), 0);
  const Running running(m_loop, &m_listener);
  second.Ring();
  first.Ring();
  EXPECT_TRUE(second.heard().Reaches(1));
}

TEST_F(NetLoopTest, ReturnsFromPauseWhenTheRoundIsOver) {
  std::promise<void> entered;
  std::promise<void> release;
  bool finished = false;
  Bell slow([&](uint32_t) {
    entered.set_value();
    release.get_future().wait();
    LetOthersRun();
    finished = true;
  });
  ASSERT_EQ(m_loop.Watch(slow.fd(), EPOLLIN, &slow), 0);
  bool ended = false;
  m_listener.on_round_end = [&] {
    ended = finished;
    return -1;
  };
  const Running running(m_loop, &m_listener);
  slow.Ring();
  entered.get_future().wait();
  std::thread releasing([&] { release.set_value(); });
  m_loop.Pause();
  EXPECT_TRUE(finished);
  EXPECT_TRUE(ended);
  m_loop.Resume();
  releasing.join();
}

TEST_F(NetLoopTest, RunsNothingUntilEveryPauseIsResumed) {
  const Running running(m_loop, &m_listener);
  ASSERT_TRUE(Round());
  const int heard = m_bell.heard().Get();
  m_loop.Pause();
  m_loop.Pause();
  m_loop.Pause();
  m_bell.Ring();
  const int rounds = m_listener.rounds().Get();
  for (int i = 0; i < 2; ++i) {
    LetOthersRun();
    m_loop.Resume();
  }
  LetOthersRun();
  EXPECT_EQ(m_bell.heard().Get(), heard);
  EXPECT_EQ(m_listener.rounds().Get(), rounds);
  m_loop.Resume();
  EXPECT_TRUE(m_bell.heard().Reaches(heard + 1));
}

TEST_F(NetLoopTest, StandsForEachThreadThatPausesIt) {
  const Running running(m_loop, &m_listener);
  int touched = 0;  // by the network thread, and read while it stands
  Bell bell([&](uint32_t) { ++touched; });
  ASSERT_EQ(m_loop.Watch(bell.fd(), EPOLLIN, &bell), 0);
  m_loop.Pause();
  bell.Ring();
  std::thread other([&] {
    m_loop.Pause();  // is granted beside the first
    m_loop.Resume();
  });
  other.join();
  LetOthersRun();
  EXPECT_EQ(touched, 0);
  m_loop.Resume();
  ASSERT_TRUE(bell.heard().Reaches(1));
  EXPECT_EQ(touched, 1);
}

TEST_F(NetLoopTest, IgnoresAResumeTooMany) {
  const Running running(m_loop, &m_listener);
  m_loop.Resume();
  m_loop.Resume();
  m_loop.Pause();
  m_bell.Ring();
  LetOthersRun();
  EXPECT_EQ(m_bell.heard().Get(), 0);
  m_loop.Resume();
  EXPECT_TRUE(m_bell.heard().Reaches(1));
}

TEST_F(NetLoopTest, TakesNoNoticeOfPausesOnItsOwnThread) {
  Bell bell([&](uint32_t) {
    m_loop.Pause();
    m_loop.Pause();
    m_loop.Resume();
  });
  ASSERT_EQ(m_loop.Watch(bell.fd(), EPOLLIN, &bell), 0);
  const Running running(m_loop, &m_listener);
  bell.Ring();
  ASSERT_TRUE(bell.heard().Reaches(1));
  EXPECT_TRUE(Round());
}

TEST_F(NetLoopTest, DoesNotLetItsOwnThreadEndThePauseOfAnother) {
  std::promise<void> entered;
  std::promise<void> release;
  Bell bell([&](uint32_t) {
    entered.set_value();
    release.get_future().wait();
    m_loop.Resume();
  });
  ASSERT_EQ(m_loop.Watch(bell.fd(), EPOLLIN, &bell), 0);
  const Running running(m_loop, &m_listener);
  bell.Ring();
  entered.get_future().wait();
  std::thread releasing([&] { release.set_value(); });
  m_loop.Pause();
  const int heard = m_bell.heard().Get();
  m_bell.Ring();
  LetOthersRun();
  EXPECT_EQ(m_bell.heard().Get(), heard);
  m_loop.Resume();
  EXPECT_TRUE(m_bell.heard().Reaches(heard + 1));
  releasing.join();
}

TEST_F(NetLoopTest, TakesNoNoticeOfPausesWhileItDoesNotRun) {
  m_loop.Pause();
  Start();
  EXPECT_TRUE(Round());
  m_loop.Stop();
  m_loop.Pause();
  m_loop.Pause();
  m_loop.Resume();
  Start();
  EXPECT_TRUE(Round());
}

// An application that only pauses and resumes does not starve the thread: once it was kept waiting
// it gets a round. An event is told for each few pauses at the most, however fast they come.
TEST_F(NetLoopTest, GetsARoundThatAPauseKeptItFrom) {
  const Running running(m_loop, &m_listener);
  const int events = Rounds(200);
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  for (int i = 1; i <= events; ++i) {
    m_bell.Ring();
    while (m_bell.heard().Get() < i) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline);
      const ScopedPause pause(m_loop);
    }
  }
}

TEST_F(NetLoopTest, GrantsPausesInsideAPauseThoughARoundIsOwed) {
  const Running running(m_loop, &m_listener);
  m_loop.Pause();
  m_bell.Ring();
  LetOthersRun();  // it found the event and waits
  m_loop.Pause();
  m_loop.Pause();
  EXPECT_EQ(m_bell.heard().Get(), 0);
  m_loop.Resume();
  m_loop.Resume();
  m_loop.Resume();
  EXPECT_TRUE(m_bell.heard().Reaches(1));
}

// A pause that finds the thread asleep owes it nothing.
TEST_F(NetLoopTest, GrantsPauseAfterPauseWhileItSleeps) {
  const Running running(m_loop, &m_listener);
  ASSERT_TRUE(Round());
  for (int i = 0; i < 10000; ++i) {
    const ScopedPause pause(m_loop);
  }
  SUCCEED() << "none of them waited for an event";
}

// Events that were fetched when a pause came are fetched again behind it: those of handlers that
// died in between are never told. What is told too late touches freed memory.
TEST_F(NetLoopTest, TellsNoEventToAHandlerThatDiedInAPause) {
  const Running running(m_loop, &m_listener);
  for (int round = 0; round < Rounds(300); ++round) {
    std::vector<std::unique_ptr<Bell>> bells;
    for (int i = 0; i < 20; ++i) {
      bells.push_back(std::make_unique<Bell>());
      ASSERT_EQ(m_loop.Watch(bells.back()->fd(), EPOLLIN, bells.back().get()), 0);
      bells.back()->Ring();
    }
    if (round % 2 == 0) {
      ASSERT_TRUE(bells[0]->heard().Reaches(1));
    }
    const ScopedPause pause(m_loop);
    for (const auto& bell : bells) {
      m_loop.Unwatch(bell->fd());
    }
    bells.clear();
  }
}

TEST_F(NetLoopTest, LosesNoWakeThatTellsOfWork) {
  std::atomic<bool> work{false};
  Count done;
  m_listener.has_work = [&] { return work.load(); };
  m_listener.on_round_end = [&] {
    if (work.exchange(false)) {
      done.Add();
    }
    return -1;
  };
  const Running running(m_loop, &m_listener);
  for (int i = 1; i <= Rounds(2000); ++i) {
    work = true;
    m_loop.Wake();
    ASSERT_TRUE(done.Reaches(i)) << i;
  }
}

TEST_F(NetLoopTest, WakesWithOneSystemCallHoweverOftenItIsCalled) {
  int asked = 0;
  uint64_t calls = 0;
  m_listener.has_work = [&] {
    if (++asked == 2) {  // it is about to sleep until somebody wakes it
      const uint64_t before = m_loop.SystemCalls();
      for (int i = 0; i < 10; ++i) {
        m_loop.Wake();
      }
      calls = m_loop.SystemCalls() - before;
    }
    return false;
  };
  const Running running(m_loop, &m_listener);
  EXPECT_TRUE(m_listener.rounds().Reaches(2));
  m_loop.Stop();
  EXPECT_EQ(calls, 1u);
}

TEST_F(NetLoopTest, WakesForNothingWhileItIsAwake) {
  std::promise<void> entered;
  std::promise<void> release;
  Bell bell([&](uint32_t) {
    entered.set_value();
    release.get_future().wait();
  });
  ASSERT_EQ(m_loop.Watch(bell.fd(), EPOLLIN, &bell), 0);
  const Running running(m_loop, &m_listener);
  bell.Ring();
  entered.get_future().wait();
  const uint64_t before = m_loop.SystemCalls();
  for (int i = 0; i < 10; ++i) {
    m_loop.Wake();
  }
  EXPECT_EQ(m_loop.SystemCalls(), before);
  release.set_value();
}

TEST_F(NetLoopTest, ComesBackWhenItsListenerWantsTo) {
  int wanted = 0;
  m_listener.on_round_end = [&] { return ++wanted < 10 ? wanted % 2 : -1; };
  const Running running(m_loop, &m_listener);
  EXPECT_TRUE(m_listener.rounds().Reaches(10));
}

TEST_F(NetLoopTest, DoesNothingWhileNothingHappens) {
  const Running running(m_loop, &m_listener);
  ASSERT_TRUE(Round());
  LetOthersRun();
  const uint64_t calls = m_loop.SystemCalls();
  const int rounds = m_listener.rounds().Get();
  LetOthersRun();
  EXPECT_EQ(m_loop.SystemCalls(), calls);
  EXPECT_EQ(m_listener.rounds().Get(), rounds);
}

TEST_F(NetLoopTest, StopsAfterTheRoundItIsIn) {
  std::promise<void> entered;
  bool finished = false;
  Bell bell([&](uint32_t) {
    entered.set_value();
    LetOthersRun();
    finished = true;
  });
  ASSERT_EQ(m_loop.Watch(bell.fd(), EPOLLIN, &bell), 0);
  const Running running(m_loop, &m_listener);
  bell.Ring();
  entered.get_future().wait();
  m_loop.Stop();
  EXPECT_TRUE(finished);
  bell.Ring();
  LetOthersRun();
  EXPECT_EQ(bell.heard().Get(), 1);
}

TEST_F(NetLoopTest, StopsThoughAPauseIsHeld) {
  const Running running(m_loop, &m_listener);
  ASSERT_TRUE(Round());
  m_loop.Pause();
  m_bell.Ring();
  m_loop.Stop();
  m_loop.Resume();
  EXPECT_EQ(m_bell.heard().Get(), 2);
}

TEST_F(NetLoopTest, RunsWhenItIsStartedAgainAfterAPauseWasHeldWhenItStopped) {
  Start();
  ASSERT_TRUE(Round());
  m_loop.Pause();
  m_bell.Ring();
  m_loop.Stop();
  m_loop.Resume();
  Start();
  EXPECT_TRUE(Round());
}

TEST_F(NetLoopTest, LetsAPauseGoThatWaitsWhenItStops) {
  std::promise<void> entered;
  std::promise<void> release;
  Bell bell([&](uint32_t) {
    entered.set_value();
    release.get_future().wait();
  });
  ASSERT_EQ(m_loop.Watch(bell.fd(), EPOLLIN, &bell), 0);
  const Running running(m_loop, &m_listener);
  bell.Ring();
  entered.get_future().wait();
  std::thread pausing([&] {
    m_loop.Pause();
    m_loop.Resume();
  });
  LetOthersRun();
  std::thread releasing([&] { release.set_value(); });
  m_loop.Stop();
  pausing.join();
  releasing.join();
}

TEST_F(NetLoopTest, StartsOnceAtATimeAndStopsAsOftenAsItIsTold) {
  m_loop.Stop();
  Start();
  EXPECT_EQ(m_loop.Start(nullptr), -1);
  m_loop.Stop();
  m_loop.Stop();
  for (int i = 0; i < Rounds(200); ++i) {
    Start();
    if (i % 2 == 0) {
      ASSERT_TRUE(Round());
    }
    m_loop.Stop();
  }
}

TEST(NetLoop, EndsItsThreadWhenItDies) {
  Listener listener;
  {
    NetLoop loop;
    ASSERT_EQ(loop.Start(&listener), 0);
  }
  const int rounds = listener.rounds().Get();
  LetOthersRun();
  EXPECT_EQ(listener.rounds().Get(), rounds);
}

TEST(NetLoop, DoesNotStartWithoutDescriptors) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = before;
  none.rlim_cur = 3;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  NetLoop loop;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(loop.Start(nullptr), -1);
  EXPECT_EQ(loop.Watch(0, EPOLLIN, nullptr), -1);
  loop.Unwatch(0);
  loop.Wake();
  loop.Pause();
  loop.Resume();
  loop.Stop();
}

}  // namespace
}  // namespace OstrandService
