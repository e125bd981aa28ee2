#include "client/tcp_url.h"

#include <arpa/inet.h>

#include <cstdint>
#include <cstring>

namespace OstrandService {
namespace {

constexpr char kScheme[] = "tcp://";

// 1 to 65535 in decimal digits, or 0.
uint16_t ParsePort(const char* text) {
  uint32_t port = 0;
  for (; *text >= '0' && *text <= '9' && port <= UINT16_MAX; ++text) {
    port = port * 10 + static_cast<uint32_t>(*text - '0');
  }
  return *text == '\0' && port <= UINT16_MAX ? static_cast<uint16_t>(port) : uint16_t{0};
}

}  // namespace

bool ParseTcpUrl(const char* url, sockaddr_in& address) {
  if (url == nullptr || std::strncmp(url, kScheme, sizeof(kScheme) - 1) != 0) {
    return false;
  }
  const char* host = url + sizeof(kScheme) - 1;
  const char* colon = std::strchr(host, ':');
  char host_text[INET_ADDRSTRLEN] = {};
  if (colon == nullptr || static_cast<size_t>(colon - host) >= sizeof(host_text)) {
    return false;
  }
  std::memcpy(host_text, host, static_cast<size_t>(colon - host));
  sockaddr_in parsed{};
  parsed.sin_family = AF_INET;
  const uint16_t port = ParsePort(colon + 1);
  if (port == 0 || inet_pton(AF_INET, host_text, &parsed.sin_addr) != 1) {
    return false;
  }
  parsed.sin_port = htons(port);
  address = parsed;
  return true;
}

}  // namespace OstrandService
