#include "client/net_loop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>

namespace OstrandService {
namespace {

using OstrandCommon::ScopedLock;

constexpr int kMaxEventsPerRound = 256;

}  // namespace

NetLoop::NetLoop() {
  m_epoll_fd = epoll_create1(EPOLL_CLOEXEC);
  m_wake_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  Watch(m_wake_fd, EPOLLIN, nullptr);
}

NetLoop::~NetLoop() {
  Stop();
  if (m_wake_fd >= 0) {
    close(m_wake_fd);
  }
  if (m_epoll_fd >= 0) {
    close(m_epoll_fd);
  }
}

int NetLoop::Start(NetRoundListener* listener) {
  if (m_running || m_epoll_fd < 0 || m_wake_fd < 0) {
    return -1;
  }
  ScopedLock lock(m_mutex);  // the thread waits for it: it finds everything set
  m_listener = listener;
  m_stop = false;
  m_running = pthread_create(&m_thread, nullptr, &NetLoop::ThreadMain, this) == 0;
  return m_running ? 0 : -1;
}

void NetLoop::Stop() {
  if (!m_running) {
    return;
  }
  {
    ScopedLock lock(m_mutex);
    m_stop = true;
    m_changed.Broadcast();
  }
  Wake();
  pthread_join(m_thread, nullptr);
  ScopedLock lock(m_mutex);
  m_running = false;
  m_paused = 0;  // what is resumed later has nothing to resume
  m_in_round = false;
  m_round_owed = false;
  m_changed.Broadcast();
}

int NetLoop::Watch(int fd, uint32_t epoll_events, NetHandler* handler) {
  epoll_event event{};
  event.events = epoll_events;
  event.data.ptr = handler;
  return epoll_ctl(m_epoll_fd, EPOLL_CTL_ADD, fd, &event);
}

int NetLoop::Rewatch(int fd, uint32_t epoll_events, NetHandler* handler) {
  epoll_event event{};
  event.events = epoll_events;
  event.data.ptr = handler;
  m_system_calls += 1;
  return epoll_ctl(m_epoll_fd, EPOLL_CTL_MOD, fd, &event);
}

void NetLoop::Unwatch(int fd) {
  epoll_event unused{};
  epoll_ctl(m_epoll_fd, EPOLL_CTL_DEL, fd, &unused);
}

void NetLoop::Pause() {
  if (!m_running || OnNetThread()) {
    return;
  }
  ScopedLock lock(m_mutex);
  while (m_paused == 0 && m_round_owed) {
    m_changed.Wait(m_mutex);
  }
  ++m_paused;
  ++m_pauses;
  while (m_in_round) {
    m_changed.Wait(m_mutex);
  }
}

void NetLoop::Resume() {
  if (!m_running || OnNetThread()) {
    return;
  }
  ScopedLock lock(m_mutex);
  if (m_paused > 0) {
    --m_paused;
    m_changed.Broadcast();
  }
}

void NetLoop::Wake() {
  if (m_sleeping && !m_wake_pending.exchange(true)) {
    const uint64_t one = 1;
    m_system_calls += 1;
    while (write(m_wake_fd, &one, sizeof(one)) < 0 && errno == EINTR) {
    }
  }
}

bool NetLoop::OnNetThread() const {
  return m_running && pthread_equal(pthread_self(), m_thread) != 0;
}

void* NetLoop::ThreadMain(void* self) {
  static_cast<NetLoop*>(self)->Run();
  return nullptr;
}

void NetLoop::Run() {
  epoll_event events[kMaxEventsPerRound];
  int timeout_ms = 0;
  for (;;) {
    const uint64_t pauses_seen = WaitForResume(timeout_ms);
    m_sleeping = true;
    if (m_stop) {
      break;
    }
    if (m_listener != nullptr && m_listener->HasWork()) {
      timeout_ms = 0;
    }
    m_system_calls += 1;
    const int count = epoll_wait(m_epoll_fd, events, kMaxEventsPerRound, timeout_ms);
    m_sleeping = false;
    timeout_ms = 0;
    if (!BeginRound(pauses_seen)) {
      continue;
    }
    for (int i = 0; i < count; ++i) {
      if (events[i].data.ptr == nullptr) {
        DrainWake();
      } else {
        static_cast<NetHandler*>(events[i].data.ptr)->OnNetEvents(events[i].events);
      }
    }
    timeout_ms = m_listener != nullptr ? m_listener->OnRoundEnd() : -1;
    EndRound();
  }
  m_sleeping = false;
}

// Stands while paused. Returns the number of pauses so far: events fetched from here on are good as
// long as no other comes.
uint64_t NetLoop::WaitForResume(int& timeout_ms) {
  ScopedLock lock(m_mutex);
  while (m_paused > 0 && !m_stop) {
    m_round_owed = true;
    timeout_ms = 0;  // the owed round comes at once
    m_changed.Wait(m_mutex);
  }
  return m_pauses;
}

// Enters the round whose events were just fetched. False: a pause came between, so they may point
// at handlers that are gone; they are to be fetched again.
bool NetLoop::BeginRound(uint64_t pauses_seen) {
  ScopedLock lock(m_mutex);
  if (m_pauses != pauses_seen || m_stop) {
    return false;
  }
  m_in_round = true;
  return true;
}

void NetLoop::EndRound() {
  ScopedLock lock(m_mutex);
  m_in_round = false;
  m_round_owed = false;
  m_changed.Broadcast();
}

void NetLoop::DrainWake() {
  uint64_t count = 0;
  m_system_calls += 1;
  while (read(m_wake_fd, &count, sizeof(count)) < 0 && errno == EINTR) {
  }
  m_wake_pending = false;  // behind the read: a wake in between finds the thread awake
}

}  // namespace OstrandService
