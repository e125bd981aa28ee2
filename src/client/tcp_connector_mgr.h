// Makes TCP connectors on a loop, and tells who runs the loop what became of them.
//
// What connectors queue leaves with the loop's flush: at the beginning and the end of its rounds,
// all frames for the same peer in one system call.
//
// Ownership: owns its connectors; borrows loop, logger and listener. Threads: the loop's owner.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/tcp_connector.h"
#include "common/logger.h"
#include "net/event_loop.h"
#include "net/net_connector_mgr.h"

namespace OstrandService {

// What becomes of connections. Told inside the loop's rounds and inside operations of connectors:
// whoever listens notes it and does nothing else.
class ConnectorEvents {
 public:
  // One came up, or was lost, or an attempt failed.
  virtual void OnConnectionChanged() {}
  // in_flight: the connector's chain, which is to be emptied. answered: asynchronous ids of
  // requests whose whole answers lie in its queue; sorted.
  virtual void OnConnectionLost(RequestChain& /*in_flight*/,
                                const std::vector<uint64_t>& /*answered*/) {}
  // Whole answers that lay in the queue are gone: it was full of old ones, or the connector is.
  virtual void OnAnswersDropped(const std::vector<uint64_t>& /*asyn_ids*/) {}
  // A connector that TellsRoom has it.
  virtual void OnRoom() {}
  // A frame came, before the receive callback has it. True: it was taken.
  virtual bool TakeFrame(const TcpConnector& /*connector*/, const char* /*frame*/, size_t /*len*/) {
    return false;
  }
  // The receive callback took a frame of this command.
  virtual void OnFrameHandled(uint32_t /*cmd*/) {}
  // Whether its frames will be taken, so that reading may stop while the queue is full; else the
  // connection is given up.
  virtual bool MayStopReading(const TcpConnector& /*connector*/) { return true; }
  // Whether a Disconnect of a connector that does not read is for its silence alone.
  virtual bool IsForSilence(const TcpConnector& /*connector*/) { return false; }

 protected:
  ~ConnectorEvents() = default;
};

class TcpConnectorMgr : public OSTRNET::CConnectorMgr {
 public:
  static constexpr size_t kDefaultLimit = size_t{16} * 1024 * 1024;

  // default_limit: bytes that each direction of a connector may hold.
  TcpConnectorMgr(OSTRNET::EventLoop& loop, OstrandCommon::Logger* logger, int module_id,
                  ConnectorEvents& events, size_t default_limit = kDefaultLimit);
  ~TcpConnectorMgr() override;

  OSTRNET::CConnector* CreateConnector(const char* url, OSTRNET::IPackParser* parser,
                                       int buffer_size, OSTRNET::ReceiveCallback callback,
                                       void* arg) override;
  int RemoveConnector(OSTRNET::CConnector* connector) override;
  const char* GetLastErrDesc() override { return m_error.c_str(); }

  // Connect tries at once, also after failed attempts: whoever calls it rests between them itself.
  void LeavePausesToOthers() { m_has_pauses = false; }

  const std::vector<std::unique_ptr<TcpConnector>>& Connectors() const { return m_connectors; }
  TcpConnector* Find(const OSTRNET::CConnector* connector) const;

  // The connector that something was queued on last; null when it is gone.
  TcpConnector* LastQueuedOn() const { return m_last_queued_on; }
  // Connectors whose output filled more than half of its limit when CheckRoom last looked, or
  // since.
  size_t OverHalf() const { return m_over_half; }
  // Looks for room in those, and tells it to who waits. Call it after each round and flush. Whether
  // there was somebody to tell.
  bool CheckRoom() { return !m_watched.empty() && CheckWatched(); }
  // Frames that came, and that were taken, so far.
  uint64_t FramesIn() const { return m_frames_in; }
  uint64_t FramesTaken() const { return m_frames_taken; }
  // Frames of old connections that were dropped for want of room.
  uint64_t FramesDropped() const { return m_frames_dropped; }

 private:
  friend class TcpConnector;

  void Watch(TcpConnector* connector);
  bool CheckWatched();
  void LogClosed(const char* url, const char* reason);

  OSTRNET::EventLoop& m_loop;
  OstrandCommon::Logger* const m_logger;
  const int m_module_id;
  ConnectorEvents& m_events;
  const size_t m_default_limit;
  bool m_has_pauses = true;
  std::string m_error;
  std::vector<std::unique_ptr<TcpConnector>> m_connectors;
  std::vector<TcpConnector*> m_watched;  // over half, or with somebody waiting for room
  TcpConnector* m_last_queued_on = nullptr;
  uint64_t m_last_connection = 0;
  size_t m_over_half = 0;
  uint64_t m_frames_in = 0;
  uint64_t m_frames_taken = 0;
  uint64_t m_frames_dropped = 0;
};

}  // namespace OstrandService
