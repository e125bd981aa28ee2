// What the tests of sending share.
#pragma once

#include <string>
#include <vector>

#include "fakes/fake_request.h"
#include "protocol/codec.h"
#include "unit/service_api/router_traffic_test.h"

namespace OstrandService {

// A ring on which every request goes to the first proxy, and a request.
class RouterSendTest : public RouterTrafficTest {
 protected:
  static constexpr int32_t kSubscript = 2;
  static constexpr uint64_t kAsyncId = 0xA1A2A3A4A5A6A7A8;
  static constexpr int32_t kSequence = -5;
  static constexpr int32_t kTimeoutMs = 3000;
  static constexpr size_t kUntouched = 4711;

  RouterSendTest() {
    SetRing(proxy);
    request.SetTableSubscript(kSubscript);
    request.pkg().stHead.ullAsynID = kAsyncId;
    request.pkg().stHead.iSeq = kSequence;
    request.timeout_ms = kTimeoutMs;
    request.net_size = kUntouched;
  }
  ~RouterSendTest() override { peer->m_virtual_nodes()[0].server = nullptr; }

  // A ring of one point.
  void SetRing(ProxyServer* owner) {
    peer->m_virtual_nodes()[0] = VirtualServerNode{1, owner};
    peer->m_virtual_node_count() = 1;
  }

  int32_t Send() {
    StartOver();
    return router->SendRequest(&request);
  }
  int32_t SetCtx() {
    StartOver();
    return peer->SetRequestCtx(proxy, &request);
  }
  int32_t InnerSend() {
    StartOver();
    return peer->InnerSendRequest(proxy, &request);
  }

  // The bytes of the package's user buffer as a frame carries them.
  static std::string UserBuffOf(const std::string& frame) {
    return Unpacked(
        frame, [](const auto& head) { return std::string(head.szUserBuff, head.dwUserBuffLen); });
  }
  static std::string PerfTestOf(const std::string& frame) {
    return Unpacked(
        frame, [](const auto& head) { return std::string(head.szPerfTest, head.dwPerfTestLen); });
  }

  OstrandFakes::FakeRequest request{ostrand_protocol_cs::OSTRAND_API_GET_REQ, kZoneId, kTable,
                                    &journal};

 private:
  template <typename Take>
  static std::string Unpacked(const std::string& frame, Take take) {
    const auto pkg = ostrand_protocol_cs::NewOStrandPkg();
    const int result = ostrand_protocol_cs::UnpackWholeCsPkgMaybeDecompress(
        *pkg, nullptr, 0, frame.data(), frame.size(), nullptr, nullptr, 0);
    if (result != 0) {
      return "not unpacked: " + std::to_string(result);
    }
    return take(pkg->stHead);
  }
};

}  // namespace OstrandService
