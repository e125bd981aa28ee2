#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

#include <memory>

#include "cli/connection.h"
#include "client/tcp_url.h"

namespace OstrandCli {
namespace {

constexpr std::string_view kScheme = "tcp://";

// The first IPv4 address of a host, in numbers; "" when there is none.
std::string LookUp(const std::string& host) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0) {
    return "";
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
  char text[NI_MAXHOST] = {};
  const int ret = getnameinfo(found->ai_addr, found->ai_addrlen, text, sizeof(text), nullptr, 0,
                              NI_NUMERICHOST);
  return ret == 0 ? text : "";
}

bool IsTcpUrl(const std::string& url) {
  sockaddr_in address{};
  return OstrandService::ParseTcpUrl(url.c_str(), address);
}

}  // namespace

bool ResolveAddress(const std::string& given, std::string& url, std::string& error) {
  const bool has_scheme = given.compare(0, kScheme.size(), kScheme) == 0;
  const std::string address = has_scheme ? given.substr(kScheme.size()) : given;
  url = std::string(kScheme) + address;
  if (IsTcpUrl(url)) {
    return true;
  }
  const size_t colon = address.rfind(':');
  const std::string host = address.substr(0, colon);
  const std::string port = colon == std::string::npos ? "" : address.substr(colon);
  if (!IsTcpUrl(std::string(kScheme) + "127.0.0.1" + port) || host.empty() ||
      host.find_first_of("/:") != std::string::npos) {
    error =
        "\"" + given + "\" is no address: write it as tcp://HOST:PORT, with a port of 1 to 65535";
    return false;
  }
  const std::string numbers = LookUp(host);
  if (numbers.empty()) {
    error = "the host \"" + host + "\" does not resolve: check the name, or give its IPv4 address";
    return false;
  }
  url = std::string(kScheme) + numbers + port;
  return true;
}

}  // namespace OstrandCli
