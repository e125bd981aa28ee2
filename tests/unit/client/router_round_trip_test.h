// What the tests of whole round trips share: a router with the runtime's own requests, responses,
// in-flight table, statistics and judge, and proxies in memory that use the codec.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "client/client_request.h"
#include "client/client_response.h"
#include "client/judge.h"
#include "client/latency_data_table.h"
#include "client/request_form.h"
#include "client/router_request.h"
#include "client/router_response.h"
#include "client/statistic_mgr.h"
#include "fakes/router_fixture.h"
#include "protocol/codec.h"

namespace OstrandService {

// A router with two proxies. Requests go to the first one, unless the other one is pinned.
class RouterRoundTrip : public testing::Test, public OstrandFakes::RouterFixture {
 protected:
  using OStrandPkg = ostrand_protocol_cs::OStrandPkg;

  static constexpr char kTable[] = "player";
  static constexpr char kUrl[] = "tcp://10.0.0.1:8001";
  static constexpr char kOtherUrl[] = "tcp://10.0.0.2:8001";
  static constexpr int kIp = 0x0100000A;
  static constexpr int kOtherIp = 0x0200000A;
  static constexpr int kPort = 8001;

  RouterRoundTrip() {
    real_statistics.RegisterApp(kAppId, kZoneId);
    subscript = real_statistics.RegisterTable(kAppId, kZoneId, kTable);
    router = NewRouter(&table, &real_statistics, &real_judge);
    peer = std::make_unique<OstrandRouterPeer>(*router);
    EXPECT_EQ(0, Init());
    // Every position on the ring but the last one is the first proxy's.
    peer->m_virtual_nodes()[0] = VirtualServerNode{UINT64_MAX - 1, AddProxyAt(kUrl, kIp)};
    peer->m_virtual_nodes()[1] = VirtualServerNode{UINT64_MAX, AddProxyAt(kOtherUrl, kOtherIp)};
    peer->m_virtual_node_count() = 2;
    peer->m_proxy_sign_up_recv() = true;
    std::snprintf(qos.szTableName, sizeof(qos.szTableName), "%s", kTable);
    qos.iZoneID = kZoneId;
    router->SetQos(&qos);
    Begin(ostrand_protocol_cs::OSTRAND_API_GET_REQ);
  }
  ~RouterRoundTrip() override {
    peer->m_virtual_nodes()[0].server = nullptr;
    peer->m_virtual_nodes()[1].server = nullptr;
  }

  void Begin(uint32_t cmd) {
    request.Begin(cmd, kTable).Zone(kZoneId).SetTimeout(100).SetSequence(-3);
    request.SetAsynID(77);
    if (KeyPlaceOf(cmd) == KeyPlace::kHead) {
      request.Key("id", "42");
    }
    ASSERT_EQ(0, request.Fault()) << request.FaultText();
  }

  int SendToRouter() {
    EXPECT_EQ(0, routed.Load(request.Head(), request.Bytes()));
    routed.SetTableSubscript(subscript);
    return router->SendRequest(&routed);
  }

  // Sends the request and answers the frame that left for this proxy, unpacked.
  std::unique_ptr<OStrandPkg> Send(const char* url = kUrl) {
    mgr.At(url).ClearSent();
    EXPECT_EQ(0, SendToRouter());
    const std::string frame = mgr.At(url).sent().at(0);
    auto pkg = ostrand_protocol_cs::NewOStrandPkg();
    EXPECT_EQ(0, ostrand_protocol_cs::UnpackWholeCsPkgMaybeDecompress(
                     *pkg, nullptr, 0, frame.data(), frame.size(), nullptr, nullptr, 0));
    return pkg;
  }

  // The proxy's answer to a request; one of several packages when it says so.
  void Answer(const OStrandPkg& to, uint32_t number = 0, bool more = false, int32_t result = 0) {
    mgr.At(kUrl).QueueFrame(AnswerFrame(to, number, more, result));
  }

  static std::string AnswerFrame(const OStrandPkg& to, uint32_t number, bool more, int32_t result) {
    const auto answer = ostrand_protocol_cs::NewOStrandPkg();
    ostrand_protocol_cs::OStrandPkgHead& head = answer->stHead;
    head.dwCmd = to.stHead.dwCmd + 1;
    head.iResult = result;
    head.ullAsynID = to.stHead.ullAsynID;
    head.iSeq = to.stHead.iSeq;
    head.stRouterInfo = to.stHead.stRouterInfo;
    head.dwSubCmd = number;
    std::memcpy(head.szUserBuff, to.stHead.szUserBuff, to.stHead.dwUserBuffLen);
    head.dwUserBuffLen = to.stHead.dwUserBuffLen;
    std::memcpy(head.szPerfTest, to.stHead.szPerfTest, to.stHead.dwPerfTestLen);
    head.dwPerfTestLen = to.stHead.dwPerfTestLen;
    EXPECT_EQ(0, answer->stBody.construct(head.dwCmd));
    if (head.dwCmd == ostrand_protocol_cs::OSTRAND_API_GET_BY_PARTKEY_RES) {
      answer->stBody.stGetByPartKeyRes.bHasMorePkgs = more ? 1 : 0;
    }
    std::string frame(8192, '\0');
    size_t len = frame.size();
    EXPECT_EQ(0, ostrand_protocol_cs::PackWholeCsPkgMaybeCompress(frame.data(), len, nullptr, 0,
                                                                  *answer, 127, nullptr));
    frame.resize(len);
    return frame;
  }

  int32_t Receive() {
    received.SetTarget(&response);
    const int32_t ret = router->RecvResponse(&received, nullptr);
    if (ret == 1) {
      received.HandOver();
    }
    return ret;
  }

  static std::string UserBuffOf(const OStrandPkg& pkg) {
    return {pkg.stHead.szUserBuff, pkg.stHead.dwUserBuffLen};
  }
  std::string UserBuff() { return std::string(response.GetUserBuff()); }
  tagAccessRunStatus& Access(int ip = kIp) {
    return *real_statistics.GetAccessRunStatus(
        *real_statistics.GetServiceApiStatistic(kAppId, kZoneId), ip, kPort);
  }

  LatencyDataTable table{kAppId, 1000};
  StatisticMgr real_statistics;
  Judge real_judge;
  tagTableQos qos{};
  int32_t subscript = -1;
  ClientRequest request;
  RouterRequest routed;
  ClientResponse response;
  RouterResponse received;

 private:
  ProxyServer* AddProxyAt(const char* url, int ip) {
    ProxyServer* const proxy = AddReadyProxy(peer->m_using_servers(), url);
    mgr.At(url).SetAddress(ip, kPort);
    real_statistics.AddAccess(kAppId, kZoneId, url, ip, kPort, "id");
    return proxy;
  }
};

}  // namespace OstrandService
