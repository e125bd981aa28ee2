// A connection over TCP (IPv4, non-blocking), driven by a network thread.
//
// It never reconnects by itself. A lost connection loses what was not sent and a partly received
// frame; whole frames stay until they are consumed. When nobody consumes, it receives up to its
// limit and then stops reading, so that the peer has to wait and nothing is lost.
//
// Ownership: made and destroyed by TcpConnectorMgr. Threads: SendToQ, GetStatus, GetURL and
// GetIPAndPort on any thread; the other operations on the application's thread.
#pragma once

#include <netinet/in.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "client/net_loop.h"
#include "common/mutex.h"
#include "common/relaxed.h"
#include "net/byte_buffer.h"
#include "net/net_connector_mgr.h"

namespace OstrandService {

using OSTRNET::ByteBuffer;

class TcpConnectorMgr;

class TcpConnector : public OSTRNET::CConnector, private NetHandler {
 public:
  // A code of PeekPkg, handed on by the router: the frame at the head cannot be delivered.
  static constexpr int kErrHeadUndeliverable = -12563;
  static constexpr int kConnectTimeoutMs = 3000;

  // limit: bytes that each direction may hold.
  TcpConnector(TcpConnectorMgr& mgr, const char* url, const sockaddr_in& address,
               OSTRNET::IPackParser* parser, size_t limit, OSTRNET::ReceiveCallback callback,
               void* arg);
  ~TcpConnector() override;  // REQUIRES: the network thread stands or is gone

  int Connect() override;
  void Disconnect(int reserved) override;
  int GetStatus() const override { return m_status; }
  const char* GetURL() const override { return m_url.c_str(); }
  int PeekPkg(const char*& buffer, int& size, void* log_handle) override;
  void SetIncomingFlag(OstrandCommon::Relaxed<bool>* flag) override;
  void ConsumePkg() override;
  void Recover(void* log_handle) override;
  const char* GetLastErrDesc() override;
  int SendToQ(const char* buf, unsigned int len, void* log_handle) override;
  // ip: the address as its four bytes lie on the wire.
  void GetIPAndPort(int& ip, int& port) override;
  unsigned int GetSendBuffDataSize() override;
  unsigned int GetRecvBuffDataSize() override;
  // Free share of the limit, per cent.
  int GetSendBuffLeftRate() override;
  int GetRecvBuffLeftRate() override;

  // Sends what is queued, as far as the socket takes it.
  void Flush();

  // Gives up a connection attempt that has lasted too long. Returns the ms that it may still last,
  // -1 when none is under way. Network thread.
  int CheckConnectTimeout(int64_t monotonic_now_ms);

 private:
  void OnNetEvents(uint32_t epoll_events) override;
  bool FinishConnect() OSTRAND_REQUIRES(m_mutex);
  void FlushLocked() OSTRAND_REQUIRES(m_mutex);
  void Receive();
  bool ReadSome(char*& data, size_t& size, uint64_t& connection);
  bool Dispatch(const char* data, size_t size, uint64_t connection, size_t& used);
  void KeepRest(const char* rest, size_t size);
  void Publish();
  void CloseLocked(const char* reason) OSTRAND_REQUIRES(m_mutex);
  void CloseWithReason(uint64_t connection, const char* reason);
  void WatchLocked(uint32_t epoll_events) OSTRAND_REQUIRES(m_mutex);

  TcpConnectorMgr& m_mgr;
  const std::string m_url;
  const sockaddr_in m_address;
  OSTRNET::IPackParser* const m_parser;
  const size_t m_limit;
  const OSTRNET::ReceiveCallback m_callback;
  void* const m_arg;

  OstrandCommon::Relaxed<int> m_status = STATUS_DISCONNECTED;  // written under m_mutex
  // False only while m_ready and m_incoming are empty. Written under m_mutex; the pointer by the
  // application's thread alone.
  OstrandCommon::Relaxed<bool>* m_may_have_incoming = &m_own_flag;
  OstrandCommon::Relaxed<bool> m_own_flag = false;  // until another one is given
  // Whoever changes one of these looks at the other behind it; sequentially consistent, so that a
  // full queue that is emptied just now does not stay unread.
  std::atomic<size_t> m_recv_size{0};       // bytes of whole frames not consumed
  std::atomic<bool> m_read_stopped{false};  // no room: the socket is not read

  OstrandCommon::Mutex m_mutex;
  int m_fd OSTRAND_GUARDED_BY(m_mutex) = -1;
  uint64_t m_connection OSTRAND_GUARDED_BY(m_mutex) = 0;  // number of the connection
  uint32_t m_watched OSTRAND_GUARDED_BY(m_mutex) = 0;     // events asked for
  int64_t m_connect_deadline_ms OSTRAND_GUARDED_BY(m_mutex) = 0;
  bool m_dirty OSTRAND_GUARDED_BY(m_mutex) = false;  // in the manager's list of those to flush
  ByteBuffer m_send OSTRAND_GUARDED_BY(m_mutex);
  ByteBuffer m_incoming OSTRAND_GUARDED_BY(m_mutex);  // whole frames, each behind its length
  char m_error[256] OSTRAND_GUARDED_BY(m_mutex) = {};

  // Application's thread.
  ByteBuffer m_ready;  // as m_incoming, being consumed
  char m_error_copy[256] = {};

  // Network thread.
  ByteBuffer m_partial;  // the beginning of a frame
  uint64_t m_partial_connection = 0;
  ByteBuffer m_staged;  // frames of this round that stay
};

}  // namespace OstrandService
