#include "fakes/fake_system.h"

#include <algorithm>

namespace OstrandFakes {

void FakeSystem::AdvanceMs(int64_t ms) {
  m_monotonic_ns.fetch_add(ms * 1000000);
  m_wall_us.fetch_add(ms * 1000);
}

void FakeSystem::StepWallMs(int64_t ms) { m_wall_us.fetch_add(ms * 1000); }

void FakeSystem::ScriptRandom(std::vector<uint64_t> numbers) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_random.assign(numbers.begin(), numbers.end());
}

uint64_t FakeSystem::RandomNumber() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  if (m_random.empty()) {
    return m_further_random();
  }
  const uint64_t number = m_random.front();
  m_random.pop_front();
  return number;
}

void FakeSystem::SetName(const std::string& host, std::vector<Endpoint> addresses) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_names[host] = std::move(addresses);
}

void FakeSystem::LookUp(const std::string& host, std::shared_ptr<OSTRNET::NameListener> listener) {
  if (m_holds_names) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_held.push_back({host, std::move(listener)});
    return;
  }
  Answer({host, std::move(listener)});
}

void FakeSystem::ReleaseNames() {
  m_holds_names = false;
  std::vector<Question> held;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    held.swap(m_held);
  }
  for (const Question& question : held) {
    Answer(question);
  }
}

void FakeSystem::Answer(const Question& question) {
  std::vector<Endpoint> addresses;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    addresses = m_names[question.host];
  }
  const bool is_known = !addresses.empty();
  question.listener->OnAddresses(std::move(addresses), is_known ? nullptr : "no such name");
}

int FakeSystem::OpenSocket(Endpoint::Family family) {
  const int error = m_socket_error;
  return error != 0 ? error : ForwardingSystem::OpenSocket(family);
}

int FakeSystem::Connect(int fd, const Endpoint& peer) {
  ++m_connects;
  return ForwardingSystem::Connect(fd, peer);
}

int FakeSystem::PollWait(int poll, epoll_event* events, int max_events, int timeout_ms) {
  m_last_wait_ms = timeout_ms;
  return ForwardingSystem::PollWait(poll, events, max_events, timeout_ms == 0 ? 0 : 1);
}

// The kernel's timer follows the kernel's clock.
int FakeSystem::SetTimer(int fd, int64_t monotonic_ns) {
  if (monotonic_ns == 0) {
    return ForwardingSystem::SetTimer(fd, 0);
  }
  const int64_t left_ns = monotonic_ns - MonotonicNanoseconds();
  return ForwardingSystem::SetTimer(
      fd, std::max<int64_t>(ForwardingSystem::MonotonicNanoseconds() + left_ns, 1));
}

ssize_t FakeSystem::WriteLog(const char* text, size_t len) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_log.append(text, len);
  return static_cast<ssize_t>(len);
}

std::string FakeSystem::Log() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_log;
}

}  // namespace OstrandFakes
