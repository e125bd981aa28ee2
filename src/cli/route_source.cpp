#include "cli/route_source.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <set>

#include "cli/output.h"
#include "common/text.h"
#include "fleet/fleet_file.h"
#include "net/address.h"
#include "service_api/ostrand_router.h"

namespace OstrandCli {
namespace {

constexpr size_t kMaxProxies = OstrandService::OstrandRouter::MAX_SERVER_COUNT;

bool IsUrl(const std::string& text) {
  OSTRNET::TcpAddress address;
  return OSTRNET::ParseTcpUrl(text, address);
}

// "3, 5 and 7"
std::string ZonesOf(const std::map<int32_t, Route>& routes) {
  std::string text;
  for (const auto& [zone, route] : routes) {
    text += (text.empty() ? "" : ", ") + std::to_string(zone);
  }
  return text;
}

bool ReadNumber(int64_t number, Route& route, std::string& error) {
  if (number < 1 || number > static_cast<int64_t>(kMaxProxies)) {
    error = "a ring has 1 to " + std::to_string(kMaxProxies) + " proxies, not " +
            std::to_string(number);
    return false;
  }
  for (int64_t i = 0; i < number; ++i) {
    route.push_back({"proxy-" + std::to_string(i), "p" + std::to_string(i)});
  }
  return true;
}

bool ReadUrls(const std::string& name, Route& route, std::string& error) {
  std::vector<std::string> urls;
  OstrandCommon::SplitString(name, ",", urls);
  for (const std::string& url : urls) {
    if (!IsUrl(url)) {
      error = "'" + url + "' is no address of a proxy: write it like tcp://127.0.0.1:9001";
      return false;
    }
    route.push_back({url, ""});
  }
  return true;
}

bool ReadFleetFile(const std::string& path, int32_t zone, Route& route, std::string& error) {
  std::string text;
  errno = 0;
  if (!OstrandFleet::ReadTextFile(path, text)) {
    error = FileError("the route " + path, errno != 0 ? errno : EFBIG);
    return false;
  }
  OstrandFleet::FleetFile file;
  std::string fault;
  if (!OstrandFleet::ParseFleetFile(text, file, fault)) {
    error = path + ", " + fault + "; docs/fleet.md tells what may stand in a fleet file";
    return false;
  }
  route = file.routes[zone];
  if (route.empty()) {
    file.routes.erase(zone);
    error = path + " has no proxies of zone " + std::to_string(zone) +
            (file.routes.empty() ? ": add lines 'zone N' and 'proxy URL'"
                                 : ": choose another with --zone (" + ZonesOf(file.routes) + ")");
    return false;
  }
  for (const OstrandFleet::RouteRow& row : route) {
    if (!IsUrl(row.url)) {
      error = path + ": '" + row.url +
              "' is no address that a client connects to: write it like "
              "tcp://127.0.0.1:9001";
      return false;
    }
  }
  return true;
}

// What no client would use.
void LeaveOut(Route& route, std::vector<std::string>& remarks) {
  std::set<std::string> seen;
  const auto is_repeated = [&](const OstrandFleet::RouteRow& row) {
    const bool repeated = !seen.insert(row.url).second;
    if (repeated) {
      remarks.push_back(row.url + " is there twice; clients use it once");
    }
    return repeated;
  };
  route.erase(std::remove_if(route.begin(), route.end(), is_repeated), route.end());
  if (route.size() > kMaxProxies) {
    remarks.push_back("the route has " + std::to_string(route.size()) +
                      " proxies; clients use the first " + std::to_string(kMaxProxies));
    route.resize(kMaxProxies);
  }
}

}  // namespace

bool ReadRoute(const std::string& name, const Connection& connection, Route& route,
               std::vector<std::string>& remarks, std::string& error) {
  route.clear();
  int64_t number = 0;
  bool good = false;
  if (name == kLiveRoute) {
    good = AskForRoute(connection, route, error);
  } else if (OstrandFleet::ParseNumber(name, number)) {
    good = ReadNumber(number, route, error);
  } else if (name.rfind("tcp://", 0) == 0) {
    good = ReadUrls(name, route, error);
  } else {
    good = ReadFleetFile(name, connection.zone, route, error);
  }
  LeaveOut(route, remarks);
  return good;
}

std::vector<std::string> UrlsOf(const Route& route) {
  std::vector<std::string> urls;
  for (const OstrandFleet::RouteRow& row : route) {
    urls.push_back(row.url);
  }
  return urls;
}

}  // namespace OstrandCli
