#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "net/transport.h"

namespace OSTRNET {
namespace {

class PlainTransport final : public Transport {
 public:
  PlainTransport(EventLoop& loop, int fd) : m_loop(loop), m_fd(fd) {}

  Result Handshake() override { return Result::kDone; }

  Result Read(char* to, size_t room, size_t& got) override {
    m_loop.CountSystemCall();
    const ssize_t ret = m_loop.Sys().Receive(m_fd, to, room);
    if (ret > 0) {
      got = static_cast<size_t>(ret);
      return Result::kDone;
    }
    return ret == 0 ? Result::kClosed : Failed("receive", ret);
  }

  Result Write(const char* from, size_t len, size_t& sent) override {
    if (std::exchange(m_is_full, false)) {
      return Result::kAgain;  // as the socket would say: it did not take all of the last piece
    }
    m_loop.CountSystemCall();
    const ssize_t ret = m_loop.Sys().Send(m_fd, from, len);
    if (ret < 0) {
      return Failed("send", ret);
    }
    sent = static_cast<size_t>(ret);
    m_is_full = sent < len;
    return sent > 0 ? Result::kDone : Result::kAgain;
  }

  // Closing the descriptor tells the peer.
  void Shutdown() override {}

  bool ReadWantsWrite() const override { return false; }
  bool WriteWantsRead() const override { return false; }
  bool HandshakeWantsWrite() const override { return false; }
  bool HasInput() const override { return false; }
  const char* ErrorText() const override { return m_error; }

 private:
  Result Failed(const char* operation, ssize_t error) {
    if (error == -EAGAIN || error == -EWOULDBLOCK || error == -EINTR) {
      return Result::kAgain;
    }
    std::snprintf(m_error, sizeof(m_error), "%s: %s", operation,
                  std::strerror(static_cast<int>(-error)));
    return Result::kFailed;
  }

  EventLoop& m_loop;
  const int m_fd;
  bool m_is_full = false;
  char m_error[128] = {};
};

}  // namespace

std::unique_ptr<Transport> MakePlainTransport(EventLoop& loop, int fd, const std::string& host) {
  static_cast<void>(host);
  return std::unique_ptr<Transport>(new (std::nothrow) PlainTransport(loop, fd));
}

}  // namespace OSTRNET
