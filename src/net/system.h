// The one way out of the library into the world: sockets, waiting, clocks, random numbers, names,
// the host's name and the log's standard error.
//
// Whatever net, client and fleet want of the operating system they ask here, so that a simulated
// world can stand in its place. Threads, memory and files stay outside.
//
// Results: 0 or more is success, a negative number is -errno. Descriptors are non-blocking, closed
// on exec, and never 0, 1 or 2: those belong to the program.
// Ownership: a system outlives every loop that uses it; the kernel's lives as long as the process.
// Threads: any, every operation.
#pragma once

#include <sys/epoll.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/export.h"
#include "net/address.h"

namespace OSTRNET {

// Who waits for the addresses of a name. Shared: whoever looks the name up may outlive whoever
// asked.
class NameListener {
 public:
  virtual ~NameListener() = default;
  // error: null, or a sentence why there is no address. Called once, on any thread.
  virtual void OnAddresses(std::vector<Endpoint> addresses, const char* error) = 0;
};

class OSTRAND_API System {
 public:
  System() = default;
  virtual ~System() = default;
  System(const System&) = delete;
  System& operator=(const System&) = delete;

  // The kernel's.
  static System& Kernel();

  // Sockets: TCP over the endpoint's family.
  virtual int OpenSocket(Endpoint::Family family) = 0;
  virtual int Close(int fd) = 0;
  virtual int Connect(int fd, const Endpoint& peer) = 0;  // -EINPROGRESS: under way
  virtual int SocketError(int fd) = 0;                    // takes the pending error; 0: none
  virtual int Bind(int fd, const Endpoint& local) = 0;
  virtual int Listen(int fd, int backlog) = 0;
  virtual int Accept(int fd) = 0;
  virtual int LocalEndpoint(int fd, Endpoint& local) = 0;
  virtual int PeerEndpoint(int fd, Endpoint& peer) = 0;
  virtual int SetNoDelay(int fd) = 0;
  virtual int SetReuseAddress(int fd) = 0;
  virtual int SetResetOnClose(int fd) = 0;  // Close then tells the peer of a broken connection
  virtual ssize_t Send(int fd, const char* data, size_t len) = 0;  // never raises a signal
  virtual ssize_t Receive(int fd, char* data, size_t len) = 0;

  // Waiting. events are those of epoll; handler comes back in the event's data.ptr.
  virtual int OpenPoll() = 0;
  virtual int PollAdd(int poll, int fd, uint32_t events, void* handler) = 0;
  virtual int PollChange(int poll, int fd, uint32_t events, void* handler) = 0;
  virtual int PollRemove(int poll, int fd) = 0;
  // -1: no limit. The number of events; 0 also when a signal ended the wait.
  virtual int PollWait(int poll, epoll_event* events, int max_events, int timeout_ms) = 0;
  // A descriptor that is readable from RaiseEvent to ClearEvent.
  virtual int OpenEvent() = 0;
  virtual int RaiseEvent(int fd) = 0;
  virtual int ClearEvent(int fd) = 0;
  // A descriptor that is readable from a time on (monotonic; 0: never).
  virtual int OpenTimer() = 0;
  virtual int SetTimer(int fd, int64_t monotonic_ns) = 0;

  // Clocks.
  virtual int64_t MonotonicNanoseconds() = 0;  // only forward, from an unknown start
  virtual int64_t WallMicroseconds() = 0;      // from the epoch; may step

  // Wall-clock time that never goes back and never steps: it starts as the wall clock's and then
  // follows it by at most 1 ms in 100. One base for all loops of this system. monotonic_ns: now.
  int64_t SteadyWallMicroseconds(int64_t monotonic_ns);

  virtual uint64_t RandomNumber() = 0;  // all 64 bits

  // Looks a host name up without keeping the caller waiting; `listener` is told once, perhaps
  // before this returns.
  virtual void LookUp(const std::string& host, std::shared_ptr<NameListener> listener) = 0;

  // Writes the machine's name with its NUL, cut to `size`. 0, or -errno.
  virtual int HostName(char* name, size_t size) = 0;

  // Writes a piece of log to standard error, as much as it takes at once. Bytes, or -errno.
  virtual ssize_t WriteLog(const char* text, size_t len) = 0;

 private:
  static constexpr int64_t kUnknown = INT64_MIN;

  void FollowWall(int64_t monotonic_ns);

  // Steady wall time. Written by whoever looks; lock-free.
  std::atomic<int64_t> m_base_us{kUnknown};          // less monotonic time
  std::atomic<int64_t> m_off_us{0};                  // how far the wall's base is from it
  std::atomic<int64_t> m_followed_at_ns{0};          // monotonic time of the last step to the wall
  std::atomic<int64_t> m_wall_read_at_ns{kUnknown};  // monotonic too
  std::atomic<int64_t> m_latest_us{kUnknown};        // the latest that anybody was given
};

}  // namespace OSTRNET
