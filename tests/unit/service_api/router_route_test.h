// What the tests of directory answers share.
#pragma once

#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "common/mutex.h"
#include "fakes/directory_answer.h"
#include "fakes/lock_probe.h"
#include "unit/service_api/router_lists_test.h"

namespace OstrandService {

// Proxies.
constexpr char kA[] = "tcp://10.0.0.1:1001";
constexpr char kB[] = "tcp://10.0.0.2:1002";
constexpr char kC[] = "tcp://10.0.0.3:1003";
constexpr char kD[] = "tcp://10.0.0.4:1004";
constexpr char kE[] = "tcp://10.0.0.5:1005";
constexpr char kF[] = "tcp://10.0.0.6:1006";

using Texts = std::vector<std::string>;

// Proxies "tcp://10.9.0.<first>:80" and so on.
inline Texts ManyUrls(int count, int first = 0) {
  Texts urls;
  for (int i = first; i < first + count; ++i) {
    urls.push_back("tcp://10.9.0." + std::to_string(i) + ":80");
  }
  return urls;
}

// Urls of a list, in order.
inline Texts UrlsIn(List* list) {
  Texts urls;
  for (const RealServerNode& node : ServersOf(list)) {
    urls.push_back(node.server_url);
  }
  return urls;
}
inline Texts IdsIn(List* list) {
  Texts ids;
  for (const RealServerNode& node : ServersOf(list)) {
    ids.emplace_back(node.server_id, strnlen(node.server_id, sizeof(node.server_id)));
  }
  return ids;
}
inline std::vector<ProxyServer*> RecordsIn(List* list) {
  std::vector<ProxyServer*> records;
  for (const RealServerNode& node : ServersOf(list)) {
    records.push_back(node.server);
  }
  return records;
}

// An initialised router whose logger has TRACE off, and the directory.
class RouterRouteTest : public RouterListsTest {
 protected:
  // Hooks look at what lay on the stack of the test.
  ~RouterRouteTest() override {
    logger.OnLine(nullptr);
    mgr.OnCreate(nullptr);
    mgr.OnRemove(nullptr);
  }

  // What a router keeps of routes.
  struct Routes {
    Texts in_use;
    Texts preparing;
    Texts removing;
    std::vector<ProxyServer*> records;
    std::map<std::string, int32_t> all_servers;
    int64_t last_flush_route_time;

    bool operator==(const Routes& other) const {
      return in_use == other.in_use && preparing == other.preparing && removing == other.removing &&
             records == other.records && all_servers == other.all_servers &&
             last_flush_route_time == other.last_flush_route_time;
    }
  };
  Routes Now() {
    Routes now{UrlsIn(in_use),        UrlsIn(preparing),
               UrlsIn(removing),      {},
               peer->m_all_servers(), peer->m_last_flush_route_time()};
    for (List* list : {in_use, preparing, removing}) {
      for (ProxyServer* record : RecordsIn(list)) {
        now.records.push_back(record);
      }
    }
    return now;
  }

  int Flush(const OstrandFakes::DirectoryAnswer& answer) {
    return router->FlushRoute(answer.get());
  }
  int Flush(const Texts& urls) { return Flush(OstrandFakes::DirectoryAnswer(urls)); }

  // The lines of the lists and of the directory's answers, without those of the index.
  std::vector<OstrandFakes::LogLine> LinesButIndex() {
    std::vector<OstrandFakes::LogLine> lines;
    for (const OstrandFakes::LogLine& line : logger.Lines()) {
      if (line.function != "ConHashFreshAllServer") {
        lines.push_back(line);
      }
    }
    return lines;
  }
  // What AddServerNode says of a new connector, and of a new element.
  static OstrandFakes::Said Created(const std::string& url) {
    return {OstrandCommon::OSTRAND_LOG_LEVEL_INFO, "AddServerNode",
            "new ProxyServerConnector " + url};
  }
  static OstrandFakes::Said Added(const std::string& url, const std::string& id) {
    return {OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG, "AddServerNode",
            "AddServerNode succeed. server_url:" + url + ", server_id:" + id};
  }
  static OstrandFakes::Said Says(OstrandCommon::LogLevel level, const std::string& text) {
    return {level, "FlushRoute", text};
  }

  bool ListIsLocked() { return OstrandFakes::IsHeld(peer->m_mutex_list()); }
};

}  // namespace OstrandService
