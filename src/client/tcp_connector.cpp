#include "client/tcp_connector.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "client/frame_scan.h"
#include "client/tcp_connector_mgr.h"
#include "common/crc.h"

namespace OstrandService {
namespace {

using OSTRNET::Endpoint;
using OSTRNET::TcpAddress;
using OSTRNET::TcpStream;

// Kept free of the application's requests, for the router's own packages: sign-up, heartbeats of a
// minute, stop answer.
constexpr size_t kOwnReserve = size_t{16} * 1024;

int FreeShare(size_t used, size_t limit) {
  return used >= limit ? 0 : static_cast<int>((limit - used) * 100 / limit);
}

unsigned int SaturateToUint(size_t value) {
  return static_cast<unsigned int>(std::min<size_t>(value, UINT_MAX));
}

int IpNumber(const TcpAddress& address) {
  uint32_t number = OstrandCommon::CRC(address.host.data(), address.host.size());
  if (address.is_numeric && address.endpoint.family == Endpoint::Family::kIpv4) {
    std::memcpy(&number, address.endpoint.bytes, sizeof(number));
  }
  return static_cast<int>(number);
}

TcpStream::Limits LimitsOf(size_t limit) {
  TcpStream::Limits limits;
  limits.max_input = limit;
  limits.max_output = limit;
  limits.connect_timeout_ms = TcpConnector::kConnectTimeoutMs;
  return limits;
}

// The ids of requests whose whole answers are among the frames; sorted. Without memory none.
std::vector<uint64_t> AnsweredBy(const FrameQueue& old_frames, const FrameQueue& frames) {
  std::vector<uint64_t> ids;
  try {
    const auto note = [&ids](const char* frame, size_t len) {
      if (len >= ostrand_protocol_cs::OSTRAND_FIXED_HEAD_LEN && IsLastPackage(frame, len)) {
        ids.push_back(AsynIdOf(frame));
      }
    };
    old_frames.ForEach(note);
    frames.ForEach(note);
  } catch (const std::bad_alloc&) {
    ids.clear();
  }
  std::sort(ids.begin(), ids.end());
  return ids;
}

}  // namespace

TcpConnector::TcpConnector(TcpConnectorMgr& mgr, const char* url, TcpAddress address,
                           OSTRNET::IPackParser* parser, size_t limit,
                           OSTRNET::ReceiveCallback callback, void* arg)
    : m_mgr(mgr),
      m_url(url),
      m_address(std::move(address)),
      m_parser(parser),
      m_limit(limit),
      m_callback(callback),
      m_arg(arg),
      m_ip(IpNumber(m_address)),
      m_stream(mgr.m_loop, *this, LimitsOf(limit)),
      m_pause(mgr.m_loop, [this] {
        if (BeginConnecting() != 0) {
          Lose(nullptr);
        }
      }) {}

TcpConnector::~TcpConnector() {
  Drop();
  const std::vector<uint64_t> dropped = AnsweredBy(m_old_frames, m_frames);
  if (!dropped.empty()) {
    m_mgr.m_events.OnAnswersDropped(dropped);
  }
}

int TcpConnector::Connect() {
  if (m_status != STATUS_DISCONNECTED) {
    return 0;  // under way, or there already
  }
  if (m_failures > 0 && m_mgr.m_has_pauses) {
    PauseBeforeConnecting();
    return 0;
  }
  return BeginConnecting();
}

void TcpConnector::PauseBeforeConnecting() {
  m_status = STATUS_CONNECTING;
  m_pause.SetIn(NextPauseMs());
}

// Doubles with every failure; half of it is left to chance, so that many clients do not come back
// in step.
int64_t TcpConnector::NextPauseMs() {
  constexpr uint32_t kMostDoublings = 5;
  const int64_t longest = std::min<int64_t>(
      int64_t{kFirstPauseMs} << std::min(m_failures - 1, kMostDoublings), kLongestPauseMs);
  const uint64_t random = m_mgr.m_loop.Sys().RandomNumber();
  return longest / 2 + static_cast<int64_t>(random % static_cast<uint64_t>(longest / 2 + 1));
}

int TcpConnector::BeginConnecting() {
  if (m_stream.Connect(m_address) != 0) {
    SetError(m_stream.ErrorText());
    ++m_failures;
    return -1;
  }
  m_status = STATUS_CONNECTING;
  return 0;
}

void TcpConnector::Disconnect(int reserved) {
  (void)reserved;
  if (m_read_stopped || m_mgr.m_loop.NowMs() < m_spare_until_ms) {
    if (m_mgr.m_events.IsForSilence(*this)) {
      return;
    }
  }
  Drop();
}

void TcpConnector::Drop() {
  if (m_status == STATUS_DISCONNECTED) {
    return;
  }
  m_pause.Cancel();
  m_stream.Close();
  Lose(nullptr);
}

// reason: logged; null for a wanted end.
void TcpConnector::Lose(const char* reason) {
  m_status = STATUS_DISCONNECTED;
  m_read_stopped = false;
  m_stream.SetReading(true);
  m_spare_until_ms = 0;
  if (reason != nullptr) {
    SetError(reason);
    m_mgr.LogClosed(m_url.c_str(), reason);
  }
  if (!in_flight.empty()) {
    m_mgr.m_events.OnConnectionLost(in_flight, AnsweredBy(m_old_frames, m_frames));
  }
  KeepFramesOfOldConnection();
  m_mgr.m_events.OnConnectionChanged();
}

// Within one limit: the oldest go.
void TcpConnector::KeepFramesOfOldConnection() {
  if (m_frames.empty()) {
    return;
  }
  FrameQueue dropped;
  const char* frame = nullptr;
  size_t len = 0;
  bool has_all = true;
  while (m_old_frames.bytes() + m_frames.bytes() > m_limit && m_old_frames.Front(frame, len)) {
    has_all = has_all && dropped.Push(frame, len);
    m_old_frames.Take();
    ++m_mgr.m_frames_dropped;
  }
  if (!m_old_frames.TakeAllOf(m_frames)) {
    SetError("out of memory: answers of the lost connection were dropped");
    m_mgr.LogClosed(m_url.c_str(), m_error);
    m_frames.ForEach([&dropped, &has_all, this](const char* lost, size_t size) {
      has_all = has_all && dropped.Push(lost, size);
      ++m_mgr.m_frames_dropped;
    });
    m_frames.Clear();
  }
  const std::vector<uint64_t> ids = AnsweredBy(dropped, m_frames);
  if (!ids.empty()) {
    m_mgr.m_events.OnAnswersDropped(ids);
  }
}

void TcpConnector::OnConnected() {
  m_status = STATUS_CONNECTED;
  m_connection = ++m_mgr.m_last_connection;
  m_failures = 0;
  m_mgr.m_events.OnConnectionChanged();
}

void TcpConnector::OnClosed(const char* reason) {
  if (m_status == STATUS_CONNECTING) {
    ++m_failures;
  }
  Lose(reason);
}

// Hands the whole frames to the callback and keeps those that stay.
int64_t TcpConnector::OnInput(const char* data, size_t len) {
  size_t used = 0;
  while (used < len) {
    const char* const frame = data + used;
    const auto there = static_cast<unsigned int>(std::min<size_t>(len - used, INT_MAX));
    const int frame_len = m_parser->ParsePackLength(frame, there);
    if (frame_len < 0 || static_cast<size_t>(frame_len) > m_limit) {
      Lose(frame_len < 0 ? "receive: no frame begins like this"
                         : "receive: the frame is longer than the buffer may grow");
      return kClose;
    }
    if (frame_len == 0 || static_cast<unsigned int>(frame_len) > there) {
      break;
    }
    const auto size = static_cast<size_t>(frame_len);
    used += size;
    if (m_mgr.m_events.TakeFrame(*this, frame, size)) {
      continue;
    }
    if (m_callback(m_url.c_str(), frame, frame_len, m_arg) != 0) {
      m_mgr.m_events.OnFrameHandled(size > kCmdOffset + 3 ? CmdOf(frame) : 0);
    } else if (m_frames.Push(frame, size)) {
      *m_may_have_incoming = true;
      ++m_mgr.m_frames_in;
    } else {
      Lose("receive: out of memory");
      return kClose;
    }
  }
  if (m_frames.bytes() + (len - used) < m_limit) {
    return static_cast<int64_t>(used);
  }
  if (!m_mgr.m_events.MayStopReading(*this)) {
    Lose("receive: the buffer is full before the sign-up is answered");
    return kClose;
  }
  m_read_stopped = true;
  m_stream.SetReading(false);
  return static_cast<int64_t>(used);
}

void TcpConnector::ReadAgainIfRoom() {
  if (m_read_stopped && m_frames.bytes() <= m_limit / 2) {
    m_read_stopped = false;
    m_spare_until_ms = m_mgr.m_loop.NowMs() + kReadAgainMs;
    m_stream.SetReading(true);
  }
}

int TcpConnector::PeekPkg(const char*& buffer, int& size, void* log_handle) {
  (void)log_handle;
  size_t len = 0;
  if (!m_old_frames.Front(buffer, len) && !m_frames.Front(buffer, len)) {
    *m_may_have_incoming = false;
    return 0;
  }
  size = static_cast<int>(len);
  return size;
}

void TcpConnector::SetIncomingFlag(OstrandCommon::Relaxed<bool>* flag) {
  *flag = !m_old_frames.empty() || !m_frames.empty();
  m_may_have_incoming = flag;
}

void TcpConnector::ConsumePkg() {
  FrameQueue& queue = m_old_frames.empty() ? m_frames : m_old_frames;
  if (queue.empty()) {
    return;
  }
  queue.Take();
  ++m_mgr.m_frames_taken;
  ReadAgainIfRoom();
}

void TcpConnector::Recover(void* log_handle) {
  (void)log_handle;
  ConsumePkg();
}

int TcpConnector::SendToQ(const char* buf, unsigned int len, void* log_handle) {
  (void)log_handle;
  if (m_status != STATUS_CONNECTED) {
    SetError("not connected");
    return -1;
  }
  if (len > static_cast<unsigned int>(INT_MAX)) {
    return 0;
  }
  const int ret = m_stream.Queue(buf, len);
  if (ret <= 0) {
    SetError(ret < 0 ? "out of memory" : "the send buffer is full");
    return ret;
  }
  m_mgr.m_last_queued_on = this;
  if (!m_is_over_half && m_stream.OutputSize() > m_limit / 2) {
    m_is_over_half = true;
    ++m_mgr.m_over_half;
    m_mgr.Watch(this);
  }
  return static_cast<int>(len);
}

size_t TcpConnector::MostRoom(size_t limit) { return limit - std::min(kOwnReserve, limit / 4); }

size_t TcpConnector::Room() const {
  const size_t reserve = m_limit - MostRoom(m_limit);
  const size_t room = m_stream.OutputRoom();
  return room > reserve ? room - reserve : 0;
}

void TcpConnector::TellRoom() {
  const bool is_watched = m_is_over_half || TellsRoom();
  m_room_told_at = m_stream.OutputSize() / 2;
  if (!is_watched) {
    m_mgr.Watch(this);
  }
}

// Whether there is still something to look for.
bool TcpConnector::CheckRoom() {
  const size_t size = m_stream.OutputSize();
  if (m_is_over_half && size <= m_limit / 2) {
    m_is_over_half = false;
    --m_mgr.m_over_half;
  }
  if (TellsRoom() && size <= m_room_told_at) {
    m_room_told_at = kNobodyWaits;
    m_mgr.m_events.OnRoom();
  }
  return m_is_over_half || TellsRoom();
}

void TcpConnector::GetIPAndPort(int& ip, int& port) {
  ip = m_ip;
  port = m_address.endpoint.port;
}

unsigned int TcpConnector::GetSendBuffDataSize() { return SaturateToUint(m_stream.OutputSize()); }

unsigned int TcpConnector::GetRecvBuffDataSize() {
  return SaturateToUint(m_old_frames.bytes() + m_frames.bytes());
}

int TcpConnector::GetSendBuffLeftRate() { return FreeShare(m_stream.OutputSize(), m_limit); }

int TcpConnector::GetRecvBuffLeftRate() { return FreeShare(GetRecvBuffDataSize(), m_limit); }

void TcpConnector::SetError(const char* text) {
  std::snprintf(m_error, sizeof(m_error), "%s", text);
}

}  // namespace OstrandService
