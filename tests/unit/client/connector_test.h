// Connectors on a loop with a clock of the test's, against real sockets on loopback.
//
// Frames look to a connector as a proxy's do: their whole length (in the first four bytes, here),
// the head's length in the next four, the asynchronous id at 12, the command at 24, text from 28
// on.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client/tcp_connector_mgr.h"
#include "fakes/fake_system.h"
#include "fakes/recording_logger.h"
#include "protocol/ostrand_protocol_cs.h"
#include "unit/client/tcp_peer.h"

namespace OstrandTests {

using OstrandService::TcpConnector;

constexpr size_t kHeadLen = 28;

inline std::string BigEndian(uint64_t number, size_t bytes) {
  std::string text;
  for (size_t i = 0; i < bytes; ++i) {
    text += static_cast<char>(number >> (8 * (bytes - 1 - i)));
  }
  return text;
}

inline std::string IdFrame(uint64_t asyn_id, const std::string& text,
                           uint32_t cmd = ostrand_protocol_cs::OSTRAND_API_GET_RES) {
  return BigEndian(kHeadLen + text.size(), 4) + BigEndian(kHeadLen, 4) + BigEndian(0, 4) +
         BigEndian(asyn_id, 8) + BigEndian(0, 4) + BigEndian(cmd, 4) + text;
}
inline std::string Frame(const std::string& text) { return IdFrame(0, text); }
// A package of an answer in several, by the end of its body: result, whether more follow.
inline std::string PackageFrame(uint64_t asyn_id, int32_t result, bool has_more) {
  return IdFrame(asyn_id, BigEndian(static_cast<uint32_t>(result), 4) + (has_more ? '\1' : '\0'),
                 ostrand_protocol_cs::OSTRAND_API_LIST_GETALL_RES);
}

class LengthParser : public OSTRNET::IPackParser {
 public:
  static constexpr uint32_t kNoFrame = 0xFFFFFFFF;

  int ParsePackLength(const char* data, unsigned int len) override {
    if (len < 4) return 0;
    uint32_t length = 0;
    for (int i = 0; i < 4; ++i) {
      length = length << 8 | static_cast<unsigned char>(data[i]);
    }
    return length == kNoFrame ? -7 : static_cast<int>(length);
  }
};

// Notes what the manager tells.
class NotedEvents : public OstrandService::ConnectorEvents {
 public:
  void OnConnectionChanged() override { ++changes; }
  void OnConnectionLost(OstrandService::RequestChain& in_flight,
                        const std::vector<uint64_t>& answered_ids) override {
    in_flight = OstrandService::RequestChain();
    answered.push_back(answered_ids);
  }
  void OnAnswersDropped(const std::vector<uint64_t>& asyn_ids) override {
    dropped.insert(dropped.end(), asyn_ids.begin(), asyn_ids.end());
  }
  void OnRoom() override { ++rooms; }
  bool TakeFrame(const TcpConnector& /*connector*/, const char* frame, size_t len) override {
    return takes && takes(std::string(frame + kHeadLen, len - kHeadLen));
  }
  void OnFrameHandled(uint32_t cmd) override { handled.push_back(cmd); }
  bool IsForSilence(const TcpConnector& /*connector*/) override { return is_for_silence; }

  int changes = 0;
  int rooms = 0;
  std::vector<std::vector<uint64_t>> answered;  // each lost connection's
  std::vector<uint64_t> dropped;
  std::vector<uint32_t> handled;
  std::function<bool(const std::string& text)> takes;
  bool is_for_silence = false;
};

// What the receive callback does; without a function frames are kept.
struct Receiver {
  std::function<int(const std::string& url, const std::string& text)> on_frame;
  int calls = 0;
};

inline int OnFrame(const char* url, const char* data, int len, void* arg) {
  auto* receiver = static_cast<Receiver*>(arg);
  ++receiver->calls;
  const std::string text(data + kHeadLen, static_cast<size_t>(len) - kHeadLen);
  return receiver->on_frame ? receiver->on_frame(url, text) : 0;
}

class ConnectorTest : public testing::Test {
 protected:
  static constexpr int kPatienceRounds = 20000;  // of a millisecond; used up by failing tests only
  static constexpr int kLimit = 128 * 1024;

  TcpConnector* Create(const std::string& url, int limit = kLimit) {
    return static_cast<TcpConnector*>(
        m_mgr.CreateConnector(url.c_str(), &m_parser, limit, OnFrame, &m_receiver));
  }
  TcpConnector* Connected(const std::string& url, int limit = kLimit) {
    TcpConnector* const connector = Create(url, limit);
    EXPECT_EQ(connector->Connect(), 0);
    EXPECT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_CONNECTED));
    return connector;
  }
  TcpConnector* Connected(PeerListener& listener, int limit = kLimit) {
    return Connected(listener.url(), limit);
  }

  void Round() {
    m_loop.RunOnce(1);
    m_mgr.CheckRoom();
  }
  bool Becomes(const std::function<bool()>& holds) {
    for (int i = 0; i < kPatienceRounds; ++i) {
      if (holds()) return true;
      Round();
    }
    return false;
  }
  bool BecomesStatus(TcpConnector* connector, int status) {
    return Becomes([=] { return connector->GetStatus() == status; });
  }

  static int Send(TcpConnector* connector, const std::string& bytes) {
    return connector->SendToQ(bytes.data(), static_cast<unsigned int>(bytes.size()), nullptr);
  }
  // The next frame's text; "none" when there is none.
  static std::string TakeNow(TcpConnector* connector) {
    const char* data = nullptr;
    int size = 0;
    if (connector->PeekPkg(data, size, nullptr) <= 0) return "none";
    std::string text(data + kHeadLen, static_cast<size_t>(size) - kHeadLen);
    connector->ConsumePkg();
    return text;
  }
  std::string Take(TcpConnector* connector) {
    Becomes([=] { return connector->GetRecvBuffDataSize() > 0; });
    return TakeNow(connector);
  }
  bool IsLogged(const std::string& part) const {
    for (const std::string& text : m_logger.Texts()) {
      if (text.find(part) != std::string::npos) return true;
    }
    return false;
  }

  OstrandFakes::FakeSystem m_system;
  OSTRNET::EventLoop m_loop{m_system};
  OstrandFakes::RecordingLogger m_logger;
  NotedEvents m_events;
  LengthParser m_parser;
  Receiver m_receiver;
  OstrandService::TcpConnectorMgr m_mgr{m_loop, &m_logger, 42, m_events};
};

}  // namespace OstrandTests
