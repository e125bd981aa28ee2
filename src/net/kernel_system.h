// The kernel's side of the way out (net/system.h): the only file of net, with the resolver of names
// beside it, that calls the operating system.
//
// Ownership, threads: as System. Tests derive from it to change one thing of the world.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "common/export.h"
#include "net/system.h"

namespace OSTRNET {

class OSTRAND_API KernelSystem : public System {
 public:
  int OpenSocket(Endpoint::Family family) override;
  int Close(int fd) override;
  int Connect(int fd, const Endpoint& peer) override;
  int SocketError(int fd) override;
  int Bind(int fd, const Endpoint& local) override;
  int Listen(int fd, int backlog) override;
  int Accept(int fd) override;
  int LocalEndpoint(int fd, Endpoint& local) override;
  int PeerEndpoint(int fd, Endpoint& peer) override;
  int SetNoDelay(int fd) override;
  int SetReuseAddress(int fd) override;
  int SetResetOnClose(int fd) override;
  ssize_t Send(int fd, const char* data, size_t len) override;
  ssize_t Receive(int fd, char* data, size_t len) override;
  int OpenPoll() override;
  int PollAdd(int poll, int fd, uint32_t events, void* handler) override;
  int PollChange(int poll, int fd, uint32_t events, void* handler) override;
  int PollRemove(int poll, int fd) override;
  int PollWait(int poll, epoll_event* events, int max_events, int timeout_ms) override;
  int OpenEvent() override;
  int RaiseEvent(int fd) override;
  int ClearEvent(int fd) override;
  int OpenTimer() override;
  int SetTimer(int fd, int64_t monotonic_ns) override;
  int64_t MonotonicNanoseconds() override;
  int64_t WallMicroseconds() override;
  uint64_t RandomNumber() override;
  void LookUp(const std::string& host, std::shared_ptr<NameListener> listener) override;
  int HostName(char* name, size_t size) override;
  ssize_t WriteLog(const char* text, size_t len) override;
};

}  // namespace OSTRNET
