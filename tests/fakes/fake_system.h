// The kernel's system, but for time, names and random numbers, which a test says.
//
//   FakeSystem system;
//   OSTRNET::EventLoop loop(system);
//   system.AdvanceMs(3000);            // nothing else moves its clocks
//   loop.RunOnce(0);
//
// Sockets are the kernel's. Its clocks stand still while somebody waits, so a wait ends after a
// millisecond or with the first event: who waits for a peer asks again and again.
// Threads: any.
#pragma once

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "fakes/forwarding_system.h"

namespace OstrandFakes {

class FakeSystem : public ForwardingSystem {
 public:
  static constexpr int64_t kStartMs = 1000000;            // monotonic
  static constexpr int64_t kStartWallMs = 1700000000000;  // since the epoch

  // Moves both clocks.
  void AdvanceMs(int64_t ms);
  // Moves the wall clock alone.
  void StepWallMs(int64_t ms);
  int64_t NowMs() const { return m_monotonic_ns.load() / 1000000; }

  // The next random numbers; after them come numbers that are the same in each run.
  void ScriptRandom(std::vector<uint64_t> numbers);

  // Names; others have no address. Held ones are answered when they are released.
  void SetName(const std::string& host, std::vector<Endpoint> addresses);
  void HoldNames() { m_holds_names = true; }
  void ReleaseNames();

  // Every new socket fails so; 0: none does.
  void FailSockets(int negative_errno) { m_socket_error = negative_errno; }

  int Connects() const { return m_connects; }
  // What the last wait was asked to last at most; -1: without limit.
  int LastWaitMs() const { return m_last_wait_ms; }
  // What was written to the log's standard error.
  std::string Log() const;

  int OpenSocket(Endpoint::Family family) override;
  int Connect(int fd, const Endpoint& peer) override;
  int PollWait(int poll, epoll_event* events, int max_events, int timeout_ms) override;
  int SetTimer(int fd, int64_t monotonic_ns) override;
  int64_t MonotonicNanoseconds() override { return m_monotonic_ns; }
  int64_t WallMicroseconds() override { return m_wall_us; }
  uint64_t RandomNumber() override;
  void LookUp(const std::string& host, std::shared_ptr<OSTRNET::NameListener> listener) override;
  ssize_t WriteLog(const char* text, size_t len) override;

 private:
  struct Question {
    std::string host;
    std::shared_ptr<OSTRNET::NameListener> listener;
  };
  void Answer(const Question& question);

  std::atomic<int64_t> m_monotonic_ns{kStartMs * 1000000};
  std::atomic<int64_t> m_wall_us{kStartWallMs * 1000};
  std::atomic<int> m_connects{0};
  std::atomic<int> m_last_wait_ms{0};
  std::atomic<int> m_socket_error{0};
  std::atomic<bool> m_holds_names{false};
  mutable std::mutex m_mutex;  // what follows
  std::deque<uint64_t> m_random;
  std::mt19937_64 m_further_random{20240501};
  std::map<std::string, std::vector<Endpoint>> m_names;
  std::vector<Question> m_held;
  std::string m_log;
};

}  // namespace OstrandFakes
