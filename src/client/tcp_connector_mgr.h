// Makes TCP connectors and drives them with one network thread.
//
// What connectors queue leaves when somebody calls Flush, and at the end of each round of the
// network thread: frames that wait for the same peer leave in one system call. Whoever sends calls
// Flush at the end of its own round.
//
// Ownership: owns its connectors and the network thread; borrows the logger.
// Threads: Start and Stop, CreateConnector and RemoveConnector, WaitForFrames on the application's
// thread; Flush on any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/net_loop.h"
#include "client/tcp_connector.h"
#include "common/logger.h"
#include "common/mutex.h"
#include "net/net_connector_mgr.h"

namespace OstrandService {

class TcpConnectorMgr : public OSTRNET::CConnectorMgr, private NetRoundListener {
 public:
  static constexpr size_t kDefaultLimit = size_t{16} * 1024 * 1024;

  // default_limit: bytes that each direction of a connector may hold.
  TcpConnectorMgr(OstrandCommon::Logger* logger, int module_id,
                  size_t default_limit = kDefaultLimit);
  ~TcpConnectorMgr() override;

  // 0, or -1 when the system gives no thread or descriptor.
  int Start();
  void Stop();

  OSTRNET::CConnector* CreateConnector(const char* url, OSTRNET::IPackParser* parser,
                                       int buffer_size, OSTRNET::ReceiveCallback callback,
                                       void* arg) override;
  int RemoveConnector(OSTRNET::CConnector* connector) override;
  const char* GetLastErrDesc() override { return m_error.c_str(); }

  NetLoop& Loop() { return m_loop; }

  // Sends what connectors have queued.
  void Flush();

  // Number of times that frames became ready. Read it, poll the connectors, then wait with it.
  uint64_t FramesSeen() const { return m_frames_seen.load(std::memory_order_acquire); }

  // Waits until FramesSeen is no longer `seen` or the deadline (monotonic clock, ms) is reached.
  // Flushes first.
  void WaitForFrames(uint64_t seen, int64_t monotonic_deadline_ms);

  // Frames that the application's thread consumed so far.
  uint64_t FramesConsumed() const { return m_frames_consumed; }

  // System calls so far on sockets and of the loop; for benchmarks.
  uint64_t SystemCalls() const { return m_socket_calls + m_loop.SystemCalls(); }

 private:
  friend class TcpConnector;

  static constexpr size_t kScratchSize = size_t{256} * 1024;

  int OnRoundEnd() override;
  bool HasWork() override { return m_has_dirty; }
  void AddDirty(TcpConnector* connector) OSTRAND_EXCLUDES(m_mutex);
  void AddConnecting() { m_connecting = true; }
  void LogClosed(const char* url, const char* reason);
  int CheckConnectTimeouts();

  OstrandCommon::Logger* const m_logger;
  const int m_module_id;
  const size_t m_default_limit;
  NetLoop m_loop;
  std::string m_error;             // application's thread
  uint64_t m_frames_consumed = 0;  // as above

  OstrandCommon::Mutex m_mutex;                             // taken behind a connector's own
  std::vector<std::unique_ptr<TcpConnector>> m_connectors;  // changed while the thread stands
  std::vector<TcpConnector*> m_dirty OSTRAND_GUARDED_BY(m_mutex);
  std::atomic<bool> m_has_dirty{false};
  OstrandCommon::Relaxed<bool> m_connecting = false;  // an attempt may be under way

  std::atomic<uint64_t> m_frames_seen{0};
  std::atomic<bool> m_waiting{false};
  OstrandCommon::Mutex m_wait_mutex;
  OstrandCommon::Condition m_frames_came;

  OstrandCommon::Relaxed<uint64_t> m_socket_calls = 0;

  // Network thread.
  std::unique_ptr<char[]> m_scratch;
  bool m_published = false;  // in this round
};

}  // namespace OstrandService
