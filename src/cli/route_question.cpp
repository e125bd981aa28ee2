// Asking a directory for the route of a zone, as a client does.
#include <algorithm>
#include <cstring>

#include "cli/route_source.h"
#include "client/directory_client.h"
#include "client/stderr_logger.h"
#include "client/tcp_connector_mgr.h"
#include "net/event_loop.h"

namespace OstrandCli {
namespace {

using ostrand_protocol_dir::tagResGetTablesAndAccess;

template <size_t N>
std::string RowText(const char (&row)[N]) {
  return {row, strnlen(row, N)};
}

// Keeps the first answer, and why there was none.
class RouteKeeper final : public OstrandService::DirectoryListener {
 public:
  explicit RouteKeeper(Route& route) : m_route(route) {}

  const std::string& Reason() const { return m_reason; }
  void OnDirectoryFailure(const char* url, const char* reason) override {
    m_reason = std::string(url) + ": " + reason;
  }

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
  std::string m_reason;
};

// Every round of the loop is followed by a look at the directory client: nobody needs to be told.
class DirectoryEvents final : public OstrandService::ConnectorEvents {};

bool ReadAll(const Connection& connection, std::vector<std::string>& urls, std::string& error) {
  for (const std::string& given : connection.directory_urls) {
    std::string url;
    if (!ReadAddress(given, url, error)) {
      return false;
    }
    urls.push_back(url);
  }
  return true;
}

}  // namespace

bool AskForRoute(const Connection& connection, Route& route, std::string& error) {
  OstrandService::DirectoryOptions options;
  if (!ReadAll(connection, options.urls, error)) {
    return false;
  }
  options.app_id = connection.app_id;
  options.zones = {connection.zone};
  OstrandService::StderrLogger logger(connection.verbose ? OstrandCommon::OSTRAND_LOG_LEVEL_WARN
                                                         : OstrandCommon::OSTRAND_LOG_LEVEL_FATAL);
  OSTRNET::EventLoop loop(OSTRNET::System::Kernel());
  if (loop.Error() != 0) {
    error = "the network does not start: out of descriptors or memory";
    return false;
  }
  const OSTRNET::LoopScope scope(loop);
  options.random = [&loop] { return loop.Sys().RandomNumber(); };
  DirectoryEvents events;
  OstrandService::TcpConnectorMgr connectors(loop, &logger, 0, events);
  connectors.LeavePausesToOthers();
  RouteKeeper keeper(route);
  OstrandService::DirectoryClient directory(connectors, &logger, 0, options, keeper);
  const int64_t deadline_ms = loop.NowMs() + connection.wait_ms;
  directory.Update(loop.NowMs());
  while (route.empty() && loop.NowMs() < deadline_ms) {
    const int64_t due_ms = std::min(deadline_ms, directory.NextDueMs());
    loop.RunOnce(static_cast<int>(std::max<int64_t>(due_ms - loop.NowMs(), 0)));
    directory.Update(loop.NowMs());
  }
  if (route.empty()) {
    error = "no directory at " + options.urls[0] +
            (options.urls.size() > 1 ? " or the others" : "") + " named the proxies of zone " +
            std::to_string(connection.zone) + " in time" +
            (keeper.Reason().empty() ? "" : " (" + keeper.Reason() + ")") +
            "; check that it runs, --app and --zone, or wait longer with --wait-ms";
  }
  return !route.empty();
}

}  // namespace OstrandCli
