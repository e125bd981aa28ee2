// A system whose operations are another one's: tests derive from it and change one thing.
//
//   class NoMoreSockets : public ForwardingSystem {
//     int OpenSocket(OSTRNET::Endpoint::Family) override { return -EMFILE; }
//   };
//
// Threads: as the other one's.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "net/system.h"

namespace OstrandFakes {

class ForwardingSystem : public OSTRNET::System {
 public:
  using Endpoint = OSTRNET::Endpoint;

  explicit ForwardingSystem(OSTRNET::System& to = OSTRNET::System::Kernel()) : m_to(to) {}

  int OpenSocket(Endpoint::Family family) override { return m_to.OpenSocket(family); }
  int Close(int fd) override { return m_to.Close(fd); }
  int Connect(int fd, const Endpoint& peer) override { return m_to.Connect(fd, peer); }
  int SocketError(int fd) override { return m_to.SocketError(fd); }
  int Bind(int fd, const Endpoint& local) override { return m_to.Bind(fd, local); }
  int Listen(int fd, int backlog) override { return m_to.Listen(fd, backlog); }
  int Accept(int fd) override { return m_to.Accept(fd); }
  int LocalEndpoint(int fd, Endpoint& local) override { return m_to.LocalEndpoint(fd, local); }
  int PeerEndpoint(int fd, Endpoint& peer) override { return m_to.PeerEndpoint(fd, peer); }
  int SetNoDelay(int fd) override { return m_to.SetNoDelay(fd); }
  int SetReuseAddress(int fd) override { return m_to.SetReuseAddress(fd); }
  int SetResetOnClose(int fd) override { return m_to.SetResetOnClose(fd); }
  ssize_t Send(int fd, const char* data, size_t len) override { return m_to.Send(fd, data, len); }
  ssize_t Receive(int fd, char* data, size_t len) override { return m_to.Receive(fd, data, len); }
  int OpenPoll() override { return m_to.OpenPoll(); }
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
  int OpenEvent() override { return m_to.OpenEvent(); }
  int RaiseEvent(int fd) override { return m_to.RaiseEvent(fd); }
  int ClearEvent(int fd) override { return m_to.ClearEvent(fd); }
  int OpenTimer() override { return m_to.OpenTimer(); }
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
  OSTRNET::System& m_to;
};

}  // namespace OstrandFakes
