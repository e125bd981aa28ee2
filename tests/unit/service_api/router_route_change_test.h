// What the tests of route changes share.
#pragma once

#include <cstddef>
#include <string>

#include "unit/service_api/router_route_test.h"

namespace OstrandService {

// A router that uses the proxies A and B; the ids of later answers differ.
class RouteChangeTest : public RouterRouteTest {
 protected:
  RouteChangeTest() {
    EXPECT_EQ(0, Flush({kA, kB}));
    a = ServerAt(in_use, kA);
    b = ServerAt(in_use, kB);
    StartOver();
  }

  void StartOver() {
    logger.Clear();
    journal.Clear();
  }
  // An answer whose ids are "new0", "new1", ...
  static OstrandFakes::DirectoryAnswer NewIds(const Texts& urls) {
    OstrandFakes::DirectoryAnswer answer(urls);
    for (size_t i = 0; i < urls.size(); ++i) {
      answer.SetRow(static_cast<int>(i), urls[i], "new" + std::to_string(i));
    }
    return answer;
  }
  // Parks a proxy in the removing list, as a switch of routes does.
  ProxyServer* Park(const std::string& url, const std::string& id = "parked") {
    ProxyServer* record = AddProxy(removing, url, id);
    StartOver();
    return record;
  }

  static OstrandFakes::Said Debug(const std::string& text) {
    return Says(OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG, text);
  }
  static OstrandFakes::Said Exists(const std::string& url) {
    return Debug("Server exists. server_url:" + url);
  }
  static OstrandFakes::Said CopiedFromUsing(const std::string& url, const std::string& id) {
    return Debug("Copy server from m_using_servers to m_preparing_servers. server_url:" + url +
                 ", server_id:" + id);
  }
  static OstrandFakes::Said CopiedFromRemoving(const std::string& url, const std::string& id) {
    return Debug("Copy server from m_removing_servers to m_preparing_servers. server_url:" + url +
                 ", server_id:" + id);
  }
  static OstrandFakes::Said MovedToRemoving(const std::string& url, const std::string& id) {
    return Debug("Move server from m_preparing_servers to m_removing_servers. server_url:" + url +
                 ", server_id:" + id);
  }
  static OstrandFakes::Said Skipped() { return Debug("Skip flush operation"); }

  ProxyServer* a;
  ProxyServer* b;
};

}  // namespace OstrandService
