#include "net/address.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>

namespace OSTRNET {
namespace {

constexpr std::string_view kScheme = "tcp://";
constexpr size_t kMaxHost = 253;  // characters of a name
constexpr uint32_t kMaxPort = 65535;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool IsOfName(char c) {
  return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' || c == '-' ||
         c == '_';
}

// Decimal digits alone that give at most `max`.
bool ParseNumber(std::string_view text, uint32_t max, uint32_t& number) {
  uint64_t value = 0;
  for (const char c : text) {
    if (!IsDigit(c)) {
      return false;
    }
    value = value * 10 + static_cast<uint64_t>(c - '0');
    if (value > max) {
      return false;
    }
  }
  number = static_cast<uint32_t>(value);
  return !text.empty();
}

bool ParseIpv6(std::string_view host, Endpoint& endpoint) {
  const size_t percent = host.find('%');
  if (percent != std::string_view::npos &&
      !ParseNumber(host.substr(percent + 1), UINT32_MAX, endpoint.scope)) {
    return false;
  }
  const std::string text(host.substr(0, percent));
  endpoint.family = Endpoint::Family::kIpv6;
  return inet_pton(AF_INET6, text.c_str(), endpoint.bytes) == 1;
}

// host and port of "HOST:PORT" or "[HOST]:PORT". False: neither.
bool Split(std::string_view text, std::string_view& host, std::string_view& port,
           bool& in_brackets) {
  in_brackets = !text.empty() && text.front() == '[';
  const size_t end = text.find(in_brackets ? ']' : ':');
  if (end == std::string_view::npos) {
    return false;
  }
  host = in_brackets ? text.substr(1, end - 1) : text.substr(0, end);
  const size_t colon = in_brackets ? end + 1 : end;
  if (colon >= text.size() || text[colon] != ':') {
    return false;
  }
  port = text.substr(colon + 1);
  return !host.empty() && host.size() <= kMaxHost;
}

}  // namespace

Endpoint Endpoint::Loopback(uint16_t port_number, Family of) {
  Endpoint loopback;
  loopback.family = of;
  loopback.port = port_number;
  if (of == Family::kIpv4) {
    loopback.bytes[0] = 127;
    loopback.bytes[3] = 1;
  } else {
    loopback.bytes[15] = 1;
  }
  return loopback;
}

bool Endpoint::operator==(const Endpoint& other) const {
  const size_t len = family == Family::kIpv4 ? 4 : sizeof(bytes);
  return family == other.family && port == other.port && scope == other.scope &&
         std::memcmp(bytes, other.bytes, len) == 0;
}

std::string Endpoint::Text() const {
  char text[INET6_ADDRSTRLEN] = {};
  inet_ntop(family == Family::kIpv4 ? AF_INET : AF_INET6, bytes, text, sizeof(text));
  const std::string after = ":" + std::to_string(port);
  if (family == Family::kIpv4) {
    return text + after;
  }
  return std::string("[") + text + (scope != 0 ? "%" + std::to_string(scope) : "") + "]" + after;
}

bool ParseEndpoint(std::string_view host, uint16_t port, Endpoint& endpoint) {
  if (host.find('\0') != std::string_view::npos) {
    return false;
  }
  Endpoint parsed;
  parsed.port = port;
  const std::string text(host);
  if (inet_pton(AF_INET, text.c_str(), parsed.bytes) != 1 && !ParseIpv6(host, parsed)) {
    return false;
  }
  endpoint = parsed;
  return true;
}

bool ParseTcpUrl(std::string_view url, TcpAddress& address) {
  if (url.substr(0, kScheme.size()) != kScheme) {
    return false;
  }
  std::string_view host;
  std::string_view port_text;
  bool in_brackets = false;
  uint32_t port = 0;
  if (!Split(url.substr(kScheme.size()), host, port_text, in_brackets) ||
      !ParseNumber(port_text, kMaxPort, port) || port == 0) {
    return false;
  }
  TcpAddress parsed;
  parsed.is_numeric = ParseEndpoint(host, static_cast<uint16_t>(port), parsed.endpoint);
  if (in_brackets) {
    if (!parsed.is_numeric || parsed.endpoint.family != Endpoint::Family::kIpv6) {
      return false;
    }
  } else if (!std::all_of(host.begin(), host.end(), &IsOfName) ||
             (!parsed.is_numeric && std::all_of(host.begin(), host.end(),
                                                [](char c) { return IsDigit(c) || c == '.'; }))) {
    return false;
  }
  parsed.host = host;
  parsed.endpoint.port = static_cast<uint16_t>(port);
  address = parsed;
  return true;
}

}  // namespace OSTRNET
