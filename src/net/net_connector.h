// One connection to one peer.
//
// Ownership: created and destroyed by a CConnectorMgr; everybody else borrows it.
// Threads: the application's thread calls every operation; GetStatus, GetURL, SendToQ and
// GetIPAndPort are called from the network thread too (inside the receive callback). A connector
// therefore locks inside; nobody else locks for it.
#pragma once

#include "common/export.h"
#include "common/relaxed.h"

namespace OSTRNET {

class OSTRAND_API CConnector {
 public:
  // Values of GetStatus. Any other value is unknown.
  enum Status : int {
    STATUS_DISCONNECTED = 0,
    STATUS_CONNECTING = 1,
    STATUS_CONNECTED = 2,
  };

  virtual ~CConnector() = default;

  // Starts, or starts again, a connection attempt and returns without waiting for it.
  // 0: the attempt was started; anything else: it was not.
  virtual int Connect() = 0;

  // Drops the connection: status 0 from now on, what waits to be sent and a partly received frame
  // are lost, whole received frames stay. The argument is reserved (the router passes 0).
  virtual void Disconnect(int reserved) = 0;

  virtual int GetStatus() const = 0;

  // The text that the connector was created with, to the letter; never null, valid while the
  // connector lives.
  virtual const char* GetURL() const = 0;

  // Hands out the next whole received frame without removing it: `buffer` and `size` (bytes) are
  // set, and stay valid until ConsumePkg. Returns the frame's length, 0 when there is none,
  // negative on an error. log_handle: the logger's native handle, may be null.
  virtual int PeekPkg(const char*& buffer, int& size, void* log_handle) = 0;

  // Gives the connector a flag to keep up, so that polling many connectors costs one atomic read
  // each: the flag may be false only while PeekPkg would answer 0. It outlives the connector. A
  // connector that does not keep it up leaves it as it is, that is true. At most once, before
  // Connect.
  virtual void SetIncomingFlag(OstrandCommon::Relaxed<bool>* flag) { (void)flag; }

  // Removes the frame that PeekPkg handed out; nothing when there is none.
  virtual void ConsumePkg() = 0;

  // Makes the receive queue usable again after a frame at its head could not be delivered: drops
  // that frame.
  virtual void Recover(void* log_handle) = 0;

  // Text of the connector's last failure, never null; valid until the next call of an operation.
  virtual const char* GetLastErrDesc() = 0;

  // Queues a copy of `len` bytes. Positive: queued; 0: the send buffer has no room for all of them,
  // nothing was queued; negative: an error. A connector that cannot send answers -1.
  virtual int SendToQ(const char* buf, unsigned int len, void* log_handle) {
    (void)buf;
    (void)len;
    (void)log_handle;
    return -1;
  }

  // The peer's address as two integers (IPv4 address as the implementation stores it; port). A
  // connector that does not know it leaves both unchanged.
  virtual void GetIPAndPort(int& ip, int& port) {
    (void)ip;
    (void)port;
  }

  // Bytes that wait in each direction.
  virtual unsigned int GetSendBuffDataSize() { return 0; }
  virtual unsigned int GetRecvBuffDataSize() { return 0; }

  // Free share of each buffer; the unit is the implementation's.
  virtual int GetSendBuffLeftRate() { return 0; }
  virtual int GetRecvBuffLeftRate() { return 0; }
};

}  // namespace OSTRNET
