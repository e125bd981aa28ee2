// The system, with a book of the descriptors that are open: what the child of a fork closes.
//
// A fork may find the thread that owns a client inside any operation, so that the child can trust
// nothing of the client's but this book, whose entries are single numbers: written after a
// descriptor was opened, taken out before it is closed.
//
// Ownership: borrows the system behind it. Threads: opening and closing: one at a time; CloseAll:
// in the child. All else as the system behind it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "net/system.h"

namespace OstrandService {

class DescriptorBook : public OSTRNET::System {
 public:
  using Endpoint = OSTRNET::Endpoint;

  explicit DescriptorBook(OSTRNET::System& system) : m_to(system) {}
  ~DescriptorBook() override;

  // Closes all that is open, without a lock and without freeing anything.
  void CloseAll();

  // OSTRNET::System
  int OpenSocket(Endpoint::Family family) override { return Enter(m_to.OpenSocket(family)); }
  int Accept(int fd) override { return Enter(m_to.Accept(fd)); }
  int OpenPoll() override { return Enter(m_to.OpenPoll()); }
  int OpenEvent() override { return Enter(m_to.OpenEvent()); }
  int OpenTimer() override { return Enter(m_to.OpenTimer()); }
  int Close(int fd) override;

  int Connect(int fd, const Endpoint& peer) override { return m_to.Connect(fd, peer); }
  int SocketError(int fd) override { return m_to.SocketError(fd); }
  int Bind(int fd, const Endpoint& local) override { return m_to.Bind(fd, local); }
  int Listen(int fd, int backlog) override { return m_to.Listen(fd, backlog); }
  int LocalEndpoint(int fd, Endpoint& local) override { return m_to.LocalEndpoint(fd, local); }
  int PeerEndpoint(int fd, Endpoint& peer) override { return m_to.PeerEndpoint(fd, peer); }
  int SetNoDelay(int fd) override { return m_to.SetNoDelay(fd); }
  int SetReuseAddress(int fd) override { return m_to.SetReuseAddress(fd); }
  int SetResetOnClose(int fd) override { return m_to.SetResetOnClose(fd); }
  ssize_t Send(int fd, const char* data, size_t len) override { return m_to.Send(fd, data, len); }
  ssize_t Receive(int fd, char* data, size_t len) override { return m_to.Receive(fd, data, len); }
  int PollAdd(int poll, int fd, uint32_t events, void* handler) override {
    return m_to.PollAdd(poll, fd, events, handler);
  }
  int PollChange(int poll, int fd, uint32_t events, void* handler) override {
    return m_to.PollChange(poll, fd, events, handler);
  }
  int PollRemove(int poll, int fd) override { return m_to.PollRemove(poll, fd); }
  int PollWait(int poll, epoll_event* events, int max_events, int timeout_ms) override {
    return m_to.PollWait(poll, events, max_events, timeout_ms);
  }
  int RaiseEvent(int fd) override { return m_to.RaiseEvent(fd); }
  int ClearEvent(int fd) override { return m_to.ClearEvent(fd); }
  int SetTimer(int fd, int64_t monotonic_ns) override { return m_to.SetTimer(fd, monotonic_ns); }
  int64_t MonotonicNanoseconds() override { return m_to.MonotonicNanoseconds(); }
  int64_t WallMicroseconds() override { return m_to.WallMicroseconds(); }
  uint64_t RandomNumber() override { return m_to.RandomNumber(); }
  void LookUp(const std::string& host, std::shared_ptr<OSTRNET::NameListener> listener) override {
    m_to.LookUp(host, std::move(listener));
  }
  int HostName(char* name, size_t size) override { return m_to.HostName(name, size); }
  ssize_t WriteLog(const char* text, size_t len) override { return m_to.WriteLog(text, len); }

 private:
  static constexpr size_t kEntries = 256;
  static constexpr int kNone = -1;

  // A page of the book. Pages are only ever added.
  struct Page {
    Page();
    std::atomic<int> entries[kEntries];
    std::atomic<Page*> next{nullptr};
  };

  int Enter(int fd);

  OSTRNET::System& m_to;
  Page m_first;
};

}  // namespace OstrandService
