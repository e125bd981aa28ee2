// What carries the bytes of a stream over a connected socket: plain TCP, or something that wraps
// them.
//
// A transport says what it wants of the descriptor independently of what its user wants: an
// encrypted read may have to wait until the descriptor takes bytes. Bytes may lie ready in it while
// the descriptor is not readable.
//
// Ownership: of its stream; borrows the loop and the descriptor, which the stream closes after it.
// Threads: the loop's.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "net/event_loop.h"

namespace OSTRNET {

class Transport {
 public:
  enum class Result {
    kDone,    // done; of Read and Write: at least one byte
    kAgain,   // nothing now: again when WantsRead or WantsWrite is given
    kClosed,  // the peer ended the stream in order
    kFailed,  // broken; ErrorText says why
  };

  virtual ~Transport() = default;

  // Until kDone, before anything else.
  virtual Result Handshake() = 0;
  // REQUIRES: room and len above 0. got, sent: set with kDone only.
  virtual Result Read(char* to, size_t room, size_t& got) = 0;
  virtual Result Write(const char* from, size_t len, size_t& sent) = 0;
  // Tells the peer that nothing more comes; tried once, before the descriptor is closed in order.
  virtual void Shutdown() = 0;

  // What of the descriptor the operation that said kAgain waits for.
  virtual bool ReadWantsWrite() const = 0;  // else it waits for bytes
  virtual bool WriteWantsRead() const = 0;  // else it waits for room
  virtual bool HandshakeWantsWrite() const = 0;
  // Whether Read would give bytes without the descriptor's being readable.
  virtual bool HasInput() const = 0;

  // Of the last kFailed: "receive: Connection reset by peer". Valid until the next operation.
  virtual const char* ErrorText() const = 0;
};

// Makes the transport of a new connection. host: of the url, empty for an accepted one. Null: out
// of memory.
using TransportFactory =
    std::function<std::unique_ptr<Transport>(EventLoop& loop, int fd, const std::string& host)>;

// Plain TCP.
OSTRAND_API std::unique_ptr<Transport> MakePlainTransport(EventLoop& loop, int fd,
                                                          const std::string& host);

}  // namespace OSTRNET
