// The other end of a connection, for tests: a listener on loopback and blocking sockets.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

namespace OstrandTests {

// One accepted connection. Reads give up after five seconds, so that a broken test ends.
class PeerConnection {
 public:
  explicit PeerConnection(int fd) : m_fd(fd) {
    const timeval patience{5, 0};
    setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    setsockopt(m_fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
  }
  PeerConnection(PeerConnection&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
  ~PeerConnection() { Close(); }
  PeerConnection(const PeerConnection&) = delete;
  PeerConnection& operator=(const PeerConnection&) = delete;

  bool Send(const std::string& bytes) {
    size_t sent = 0;
    while (sent < bytes.size()) {
      const ssize_t n = send(m_fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (n <= 0) {
        return false;
      }
      sent += static_cast<size_t>(n);
    }
    return true;
  }

  // Exactly `len` bytes, fewer when the other side ended.
  std::string Read(size_t len) {
    std::string bytes(len, '\0');
    size_t got = 0;
    while (got < len) {
      const ssize_t n = recv(m_fd, &bytes[got], len - got, 0);
      if (n <= 0) {
        break;
      }
      got += static_cast<size_t>(n);
    }
    bytes.resize(got);
    return bytes;
  }

  // Whether the other side ended the connection.
  bool ReadsTheEnd() {
    char byte = 0;
    const ssize_t n = recv(m_fd, &byte, 1, 0);
    return n == 0 || (n < 0 && errno == ECONNRESET);
  }

  // Ends with a reset instead of an orderly close.
  void Reset() {
    const linger at_once{1, 0};
    setsockopt(m_fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
    Close();
  }

  void Close() {
    if (m_fd >= 0) {
      close(m_fd);
      m_fd = -1;
    }
  }

 private:
  int m_fd;
};

class PeerListener {
 public:
  PeerListener() {
    m_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    listen(m_fd, 16);
    socklen_t len = sizeof(address);
    getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &len);
    m_port = ntohs(address.sin_port);
  }
  ~PeerListener() { Close(); }
  PeerListener(const PeerListener&) = delete;
  PeerListener& operator=(const PeerListener&) = delete;

  int port() const { return m_port; }
  std::string url() const { return "tcp://127.0.0.1:" + std::to_string(m_port); }
  PeerConnection Accept() { return PeerConnection(accept(m_fd, nullptr, nullptr)); }
  // From here on connections are refused.
  void Close() {
    if (m_fd >= 0) {
      close(m_fd);
      m_fd = -1;
    }
  }

 private:
  int m_fd = -1;
  int m_port = 0;
};

}  // namespace OstrandTests
