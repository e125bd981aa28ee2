// Creates and destroys connectors.
//
// Ownership: owns every connector that it created until RemoveConnector; outlives its users.
// Threads: CreateConnector and RemoveConnector are called from the application's thread.
#pragma once

#include "common/export.h"
#include "net/net_connector.h"
#include "net/net_parser.h"

namespace OSTRNET {

// Called on the network thread for each whole received frame. url: the connector's; data, len: the
// frame, valid during the call; arg: what CreateConnector was given.
// 0: the frame stays queued for PeekPkg. Anything else: it was consumed and is dropped.
using ReceiveCallback = int (*)(const char* url, const char* data, int len, void* arg);

class OSTRAND_API CConnectorMgr {
 public:
  virtual ~CConnectorMgr() = default;

  // Creates a connector for `url` ("tcp://host:port"); it does not connect yet.
  // buffer_size: limit in bytes of each of its buffers, -1 for the manager's default.
  // Null on failure; GetLastErrDesc then tells why.
  virtual CConnector* CreateConnector(const char* url, IPackParser* parser, int buffer_size,
                                      ReceiveCallback callback, void* arg) = 0;

  // Destroys a connector. On return no callback of it runs or will run. The caller may hold a lock
  // during the call that callbacks must then never take. Null is ignored. 0, or a negative code.
  virtual int RemoveConnector(CConnector* connector) = 0;

  // Text of the last failure; valid until the next call.
  virtual const char* GetLastErrDesc() = 0;
};

}  // namespace OSTRNET
