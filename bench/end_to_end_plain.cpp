#include "end_to_end_plain.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

#include "client/client_request.h"
#include "client/router_request.h"
#include "common/clock.h"
#include "net/address.h"
#include "protocol/codec.h"
#include "service_api/proxy_pack_parser.h"

namespace ostrand_bench {
namespace {

using ostrand_protocol_cs::OStrandPkg;

constexpr size_t kBufferSize = size_t{1} << 20;
constexpr size_t kContextLen = 14;  // what the library sends along with each request
constexpr size_t kSendTogether = 32;

double Microseconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
}

rusage Usage() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage;
}

std::string SignUpFrame() {
  const std::unique_ptr<OStrandPkg> pkg = ostrand_protocol_cs::NewOStrandPkg();
  pkg->stHead.dwCmd = ostrand_protocol_cs::OSTRAND_API_APP_SIGNUP_REQ;
  pkg->stBody.construct(ostrand_protocol_cs::OSTRAND_API_APP_SIGNUP_REQ);
  std::string frame(4096, '\0');
  size_t len = frame.size();
  ostrand_protocol_cs::PackWholeCsPkgMaybeCompress(frame.data(), len, nullptr, 0, *pkg,
                                                   pkg->stHead.wVersion, nullptr);
  frame.resize(len);
  return frame;
}

std::string RequestFrame(uint32_t cmd, size_t value_len) {
  OstrandService::ClientRequest request;
  request.Begin(cmd, "bench").Zone(1).Key("k", std::string(16, 'k'));
  if (cmd == ostrand_protocol_cs::OSTRAND_API_REPLACE_REQ) {
    request.Set("value", std::string(value_len, 'v'));
  }
  request.SetUserBuff(std::string(kContextLen, 'c'));
  OstrandService::RouterRequest routed;
  routed.Load(request.Head(), request.Bytes());
  std::string frame(4096 + value_len, '\0');
  size_t len = frame.size();
  routed.Pack(frame.data(), len);
  frame.resize(len);
  return frame;
}

// One connection: what waits to be sent, what came, when the requests in flight were sent.
struct Connection {
  int fd = -1;
  std::string out;
  std::string in;
  std::vector<int64_t> sent_at;  // answers come in order
  size_t answered = 0;
};

class PlainClient {
 public:
  PlainClient(Figures& figures, size_t value_len)
      : m_figures(figures), m_scratch(kBufferSize, '\0') {
    m_frames[0] = RequestFrame(ostrand_protocol_cs::OSTRAND_API_GET_REQ, value_len);
    m_frames[1] = RequestFrame(ostrand_protocol_cs::OSTRAND_API_REPLACE_REQ, value_len);
  }
  ~PlainClient() {
    for (const Connection& connection : m_connections) {
      close(connection.fd);
    }
    if (m_epoll_fd >= 0) {
      close(m_epoll_fd);
    }
  }
  PlainClient(const PlainClient&) = delete;
  PlainClient& operator=(const PlainClient&) = delete;

  bool Connect(const std::vector<std::string>& urls) {
    m_epoll_fd = epoll_create1(EPOLL_CLOEXEC);
    m_connections.resize(urls.size() - 1);
    for (size_t i = 0; i < m_connections.size(); ++i) {
      OSTRNET::TcpAddress parsed;
      sockaddr_in address{};
      Connection& connection = m_connections[i];
      connection.fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
      const int on = 1;
      setsockopt(connection.fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
      epoll_event event{};
      event.events = EPOLLIN;
      event.data.u64 = i;
      const bool is_url = OSTRNET::ParseTcpUrl(urls[i + 1], parsed);
      address.sin_family = AF_INET;
      address.sin_port = htons(parsed.endpoint.port);
      std::memcpy(&address.sin_addr, parsed.endpoint.bytes, sizeof(address.sin_addr));
      if (!is_url ||
          connect(connection.fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
              0 ||
          epoll_ctl(m_epoll_fd, EPOLL_CTL_ADD, connection.fd, &event) != 0) {
        std::fprintf(stderr, "end_to_end: %s: %s\n", urls[i + 1].c_str(), std::strerror(errno));
        return false;
      }
      connection.out = SignUpFrame();
      connection.sent_at.push_back(NowNs());
      m_in_flight += 1;
    }
    FlushAll();
    while (m_in_flight > 0) {
      if (!ReceiveRound()) {
        return false;
      }
    }
    return true;
  }

  bool Run(uint64_t requests, uint64_t window) {
    uint64_t sent = 0;
    while (sent < requests || m_in_flight > 0) {
      size_t waiting = 0;
      for (; sent < requests && m_in_flight < window; ++sent, ++waiting) {
        if (waiting == kSendTogether) {
          FlushAll();
          waiting = 0;
        }
        // As a hash spreads them.
        Connection& connection =
            m_connections[(sent * 0x9E3779B97F4A7C15u >> 32) % m_connections.size()];
        connection.out += m_frames[sent % 2];
        connection.sent_at.push_back(NowNs());
        m_in_flight += 1;
      }
      FlushAll();
      if (!ReceiveRound()) {
        return false;
      }
    }
    return true;
  }

  uint64_t SystemCalls() const { return m_system_calls; }

 private:
  void FlushAll() {
    for (Connection& connection : m_connections) {
      for (size_t done = 0; done < connection.out.size();) {
        m_system_calls += 1;
        const ssize_t sent =
            send(connection.fd, connection.out.data() + done, connection.out.size() - done, 0);
        if (sent < 0) {
          break;  // the next read tells why
        }
        done += static_cast<size_t>(sent);
      }
      connection.out.clear();
    }
  }

  bool ReceiveRound() {
    std::array<epoll_event, 256> events;
    m_system_calls += 1;
    const int count = epoll_wait(m_epoll_fd, events.data(), static_cast<int>(events.size()), 10000);
    for (int i = 0; i < count; ++i) {
      Connection& connection = m_connections[events[static_cast<size_t>(i)].data.u64];
      m_system_calls += 1;
      const ssize_t got = recv(connection.fd, m_scratch.data(), m_scratch.size(), 0);
      if (got <= 0 || !TakeFrames(connection, m_scratch.data(), static_cast<size_t>(got))) {
        std::fprintf(stderr, "end_to_end: a proxy closed the connection or sent no frame\n");
        return false;
      }
    }
    return count > 0;
  }

  bool TakeFrames(Connection& connection, const char* data, size_t size) {
    if (!connection.in.empty()) {
      connection.in.append(data, size);
      data = connection.in.data();
      size = connection.in.size();
    }
    size_t used = 0;
    const int64_t now_ns = NowNs();
    for (;;) {
      const int len = m_parser.ParsePackLength(data + used, static_cast<unsigned int>(size - used));
      if (len < 0) {
        return false;
      }
      if (len == 0 || static_cast<size_t>(len) > size - used) {
        break;
      }
      used += static_cast<size_t>(len);
      TakeAnswer(connection, now_ns);
    }
    connection.in = std::string(data + used, size - used);
    return true;
  }

  void TakeAnswer(Connection& connection, int64_t now_ns) {
    if (connection.answered == connection.sent_at.size()) {
      return;  // nobody asked
    }
    m_figures.latency_ns.Add(
        static_cast<uint64_t>(now_ns - connection.sent_at[connection.answered]));
    connection.answered += 1;
    if (connection.answered == connection.sent_at.size()) {
      connection.sent_at.clear();
      connection.answered = 0;
    }
    m_in_flight -= 1;
  }

  Figures& m_figures;
  OstrandService::ProxyPackParser m_parser{nullptr, 0};
  int m_epoll_fd = -1;
  std::vector<Connection> m_connections;
  std::string m_scratch;
  std::string m_frames[2];
  uint64_t m_in_flight = 0;
  uint64_t m_system_calls = 0;
};

}  // namespace

int64_t NowNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

Meter::Meter() {
  const rusage usage = Usage();
  m_user_us = Microseconds(usage.ru_utime);
  m_system_us = Microseconds(usage.ru_stime);
  m_switches = usage.ru_nvcsw;
  m_began_ns = NowNs();
}

void Meter::Stop(Figures& figures) const {
  figures.seconds = static_cast<double>(NowNs() - m_began_ns) / 1e9;
  const rusage usage = Usage();
  figures.user_us = Microseconds(usage.ru_utime) - m_user_us;
  figures.system_us = Microseconds(usage.ru_stime) - m_system_us;
  figures.voluntary_switches = static_cast<uint64_t>(usage.ru_nvcsw - m_switches);
}

bool MeasurePlain(const std::vector<std::string>& urls, const Configuration& configuration,
                  Figures& figures) {
  PlainClient client(figures, configuration.value_len);
  if (!client.Connect(urls) || !client.Run(configuration.requests / 10, configuration.window)) {
    return false;
  }
  figures.latency_ns = OstrandCli::LatencyHistogram();
  const uint64_t calls_before = client.SystemCalls();
  const Meter meter;
  const bool done = client.Run(configuration.requests, configuration.window);
  meter.Stop(figures);
  figures.system_calls = client.SystemCalls() - calls_before;
  return done;
}

}  // namespace ostrand_bench
