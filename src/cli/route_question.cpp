// Asking a directory for the route of a zone, as a client does.
#include <algorithm>
#include <cstring>

#include "cli/route_source.h"
#include "client/directory_client.h"
#include "client/stderr_logger.h"
#include "client/tcp_connector_mgr.h"
#include "common/clock.h"

namespace OstrandCli {
namespace {

using ostrand_protocol_dir::tagResGetTablesAndAccess;
using OstrandCommon::GetMonotonicMilliseconds;

template <size_t N>
std::string RowText(const char (&row)[N]) {
  return {row, strnlen(row, N)};
}

// Keeps the first answer.
class RouteKeeper final : public OstrandService::DirectoryListener {
 public:
  explicit RouteKeeper(Route& route) : m_route(route) {}

  void OnDirectoryAnswer(int32_t, const ostrand_protocol_dir::tagOStrdirCSPkg& answer) override {
    const tagResGetTablesAndAccess& body = answer.stBody.stResGetTablesAndAccess;
    const int32_t count = body.iAccessCount;  // checked by who calls
    m_route.clear();
    for (int32_t i = 0; i < count; ++i) {
      m_route.push_back({RowText(body.aszAccessUrlList[i]), RowText(body.aszAccessIdList[i])});
    }
  }

 private:
  Route& m_route;
};

bool ResolveAll(const Connection& connection, std::vector<std::string>& urls, std::string& error) {
  for (const std::string& given : connection.directory_urls) {
    std::string url;
    if (!ResolveAddress(given, url, error)) {
      return false;
    }
    urls.push_back(url);
  }
  return true;
}

}  // namespace

bool AskForRoute(const Connection& connection, Route& route, std::string& error) {
  OstrandService::DirectoryOptions options;
  if (!ResolveAll(connection, options.urls, error)) {
    return false;
  }
  options.app_id = connection.app_id;
  options.zones = {connection.zone};
  OstrandService::StderrLogger logger(connection.verbose ? OstrandCommon::OSTRAND_LOG_LEVEL_WARN
                                                         : OstrandCommon::OSTRAND_LOG_LEVEL_FATAL);
  OstrandService::TcpConnectorMgr connectors(&logger, 0);
  if (connectors.Start() != 0) {
    error = "the network does not start: out of threads or descriptors";
    return false;
  }
  RouteKeeper keeper(route);
  OstrandService::DirectoryClient directory(connectors, &logger, 0, options, keeper);
  constexpr int64_t kStepMs = 10;  // connecting is looked at so often
  const int64_t deadline_ms = GetMonotonicMilliseconds() + connection.wait_ms;
  for (int64_t now_ms = GetMonotonicMilliseconds(); route.empty() && now_ms <= deadline_ms;
       now_ms = GetMonotonicMilliseconds()) {
    const uint64_t seen = connectors.FramesSeen();
    directory.Update(now_ms);
    if (route.empty()) {
      connectors.WaitForFrames(seen, std::min(deadline_ms + 1, now_ms + kStepMs));
    }
  }
  connectors.Stop();
  if (route.empty()) {
    error = "no directory at " + options.urls[0] +
            (options.urls.size() > 1 ? " or the others" : "") + " named the proxies of zone " +
            std::to_string(connection.zone) +
            " in time; check that it runs, --app and --zone, or wait longer with --wait-ms";
  }
  return !route.empty();
}

}  // namespace OstrandCli
