// A connection to a proxy or directory over a stream, with the frames that came over it.
//
// It never reconnects by itself. A lost connection loses what was not sent and a partly received
// frame; whole frames stay, up to one limit, the oldest dropped first, and are handed out before
// those of the next connection. When nobody takes frames it receives up to its limit and then stops
// reading, so that the peer has to wait and nothing is lost; what an older connection left does not
// count there. While it does not read, and for a moment after, a Disconnect for silence is not
// carried out: the silence is its own.
//
// After failed attempts in a row Connect waits, at random, longer and longer (kLongestPauseMs at
// most) before it tries again; it is "connecting" meanwhile, and Disconnect ends the pause.
//
// No operation runs a callback: frames are dispatched in the loop's rounds only.
// Ownership: made and destroyed by TcpConnectorMgr. Threads: the loop's owner.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/frame_queue.h"
#include "client/request_chain.h"
#include "common/relaxed.h"
#include "net/address.h"
#include "net/event_loop.h"
#include "net/net_connector_mgr.h"
#include "net/tcp_stream.h"

namespace OstrandService {

class TcpConnectorMgr;

class TcpConnector : public OSTRNET::CConnector, private OSTRNET::TcpStream::Listener {
 public:
  // A code of PeekPkg, handed on by the router: the frame at the head cannot be delivered.
  static constexpr int kErrHeadUndeliverable = -12563;
  static constexpr int kConnectTimeoutMs = 3000;
  static constexpr int kFirstPauseMs = 200;
  static constexpr int kLongestPauseMs = 5000;
  // How long after it read again a silence is still its own.
  static constexpr int kReadAgainMs = 1000;

  // limit: bytes that each direction may hold.
  TcpConnector(TcpConnectorMgr& mgr, const char* url, OSTRNET::TcpAddress address,
               OSTRNET::IPackParser* parser, size_t limit, OSTRNET::ReceiveCallback callback,
               void* arg);
  ~TcpConnector() override;

  int Connect() override;
  void Disconnect(int reserved) override;
  int GetStatus() const override { return m_status; }
  const char* GetURL() const override { return m_url.c_str(); }
  int PeekPkg(const char*& buffer, int& size, void* log_handle) override;
  void SetIncomingFlag(OstrandCommon::Relaxed<bool>* flag) override;
  void ConsumePkg() override;
  void Recover(void* log_handle) override;
  const char* GetLastErrDesc() override { return m_error; }
  int SendToQ(const char* buf, unsigned int len, void* log_handle) override;
  // ip: the IPv4 address as its four bytes lie on the wire; of any other url the CRC of its host.
  void GetIPAndPort(int& ip, int& port) override;
  unsigned int GetSendBuffDataSize() override;
  unsigned int GetRecvBuffDataSize() override;
  // Free share of the limit, per cent.
  int GetSendBuffLeftRate() override;
  int GetRecvBuffLeftRate() override;

  // Ends the connection also while it does not read.
  void Drop();

  void* arg() const { return m_arg; }
  // Number of the connection; another one with each that comes up. 0: none yet.
  uint64_t connection() const { return m_connection; }

  // The longest request that a connector of this limit can ever have room for.
  static size_t MostRoom(size_t limit);
  // Bytes that may be queued before the reserve for the router's own packages begins.
  size_t Room() const;
  // Somebody waits for Room: when half of what is queued now is gone, it is told once
  // (ConnectorEvents::OnRoom).
  void TellRoom();
  bool TellsRoom() const { return m_room_told_at != kNobodyWaits; }

  // The requests in flight on this connection: whoever keeps them chains them here.
  RequestChain in_flight;
  // Whether requests are routed to it: whoever knows the route says so.
  bool is_in_use = false;

 private:
  // TcpStream::Listener
  void OnConnected() override;
  int64_t OnInput(const char* data, size_t len) override;
  void OnClosed(const char* reason) override;

  friend class TcpConnectorMgr;
  static constexpr size_t kNobodyWaits = SIZE_MAX;

  int BeginConnecting();
  void PauseBeforeConnecting();
  int64_t NextPauseMs();
  void Lose(const char* reason);
  void KeepFramesOfOldConnection();
  void ReadAgainIfRoom();
  bool CheckRoom();
  void SetError(const char* text);

  TcpConnectorMgr& m_mgr;
  const std::string m_url;
  const OSTRNET::TcpAddress m_address;
  OSTRNET::IPackParser* const m_parser;
  const size_t m_limit;
  const OSTRNET::ReceiveCallback m_callback;
  void* const m_arg;
  const int m_ip;

  int m_status = STATUS_DISCONNECTED;
  uint64_t m_connection = 0;
  OSTRNET::TcpStream m_stream;
  OSTRNET::Timer m_pause;                // before an attempt after failed ones
  uint32_t m_failures = 0;               // attempts in a row
  int64_t m_spare_until_ms = 0;          // a silence up to then is our own
  bool m_read_stopped = false;           // no room: the stream is not read
  size_t m_room_told_at = kNobodyWaits;  // bytes of output
  bool m_is_over_half = false;           // of the output limit
  FrameQueue m_old_frames;               // of connections that are gone
  FrameQueue m_frames;                   // of this one
  // False only while both are empty.
  OstrandCommon::Relaxed<bool>* m_may_have_incoming = &m_own_flag;
  OstrandCommon::Relaxed<bool> m_own_flag = false;  // until another one is given
  char m_error[256] = {};
};

}  // namespace OstrandService
