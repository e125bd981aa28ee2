#include "fakes/router_fixture.h"

#include "fakes/fault.h"

namespace OstrandFakes {

using OstrandService::List;
using OstrandService::OstrandRouter;
using OstrandService::OstrandRouterPeer;
using OstrandService::ProxyServer;

RouterFixture::RouterFixture() : pack_buffer(kPackBufferSize) { MakeRouter(); }

OstrandRouter& RouterFixture::MakeRouter() {
  router.reset();
  router = NewRouter(&latency, &statistics, &judge);
  peer = std::make_unique<OstrandRouterPeer>(*router);
  return *router;
}

std::unique_ptr<OstrandRouter> RouterFixture::NewRouter(
    OstrandService::LatencyDataMgr* latency_data_mgr,
    OstrandService::OstrandServiceStatisticMgr* statistic_mgr,
    OstrandService::JudgeProxy* judge_proxy) {
  return std::make_unique<OstrandRouter>(kModuleId, pack_buffer.data(), pack_buffer.size(), kAppId,
                                         kZoneId, kSignature, kSignType, latency_data_mgr,
                                         statistic_mgr, judge_proxy, kSyncTimeoutMs);
}

int32_t RouterFixture::Init() { return router->Init(&mgr, Service(), &logger); }

LogLine RouterFixture::Line(OstrandCommon::LogLevel level, const std::string& function,
                            const std::string& text) {
  return LogLine{level, kModuleId, "src/service_api/ostrand_router", function, text};
}

std::vector<LogLine> RouterFixture::Lines(std::initializer_list<Said> said) {
  std::vector<LogLine> lines;
  for (const Said& one : said) {
    lines.push_back(Line(one.level, one.function, one.text));
  }
  return lines;
}

ProxyServer* RouterFixture::AddProxy(List* list, const std::string& url, const std::string& id) {
  const int result = peer->AddServerNode(list, url.c_str(), id.c_str(), nullptr);
  if (result != 0) {
    Fault("AddServerNode of %s answered %d", url.c_str(), result);
  }
  return peer->FindServerNode(list, url.c_str())->server;
}

ProxyServer* RouterFixture::AddReadyProxy(List* list, const std::string& url,
                                          const std::string& id) {
  ProxyServer* proxy = AddProxy(list, url, id);
  mgr.At(url).SetStatus(OSTRNET::CConnector::STATUS_CONNECTED);
  proxy->pre_status = OSTRNET::CConnector::STATUS_CONNECTED;
  proxy->has_sent_auth = true;
  proxy->auth_succeed = true;
  proxy->last_auth_result = 0;
  return proxy;
}

}  // namespace OstrandFakes
