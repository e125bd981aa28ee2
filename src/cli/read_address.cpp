#include "cli/connection.h"
#include "net/address.h"

namespace OstrandCli {

bool ReadAddress(const std::string& given, std::string& url, std::string& error) {
  constexpr std::string_view kScheme = "tcp://";
  const bool has_scheme = given.compare(0, kScheme.size(), kScheme) == 0;
  const std::string read = has_scheme ? given : std::string(kScheme) + given;
  OSTRNET::TcpAddress address;
  if (!OSTRNET::ParseTcpUrl(read, address)) {
    error = "\"" + given +
            "\" is no address: write it as tcp://HOST:PORT, an IPv6 address in brackets, with a "
            "port of 1 to 65535";
    return false;
  }
  url = read;
  return true;
}

}  // namespace OstrandCli
