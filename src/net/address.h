// Addresses: "tcp://HOST:PORT", where HOST is an IPv4 address in numbers, an IPv6 address in
// brackets, or a name.
//
//   TcpAddress address;
//   if (!ParseTcpUrl("tcp://[::1]:9000", address)) { ... kTcpUrlForms says what it may be ... }
//
// Threads: any.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "common/export.h"

namespace OSTRNET {

// An address in numbers and a port.
struct OSTRAND_API Endpoint {
  enum class Family : uint8_t { kIpv4, kIpv6 };

  Family family = Family::kIpv4;
  uint16_t port = 0;
  uint8_t bytes[16] = {};  // as they lie on the wire; IPv4 uses the first four
  uint32_t scope = 0;      // of link-local IPv6 addresses

  static Endpoint Loopback(uint16_t port_number, Family of = Family::kIpv4);

  bool operator==(const Endpoint& other) const;
  bool operator!=(const Endpoint& other) const { return !(*this == other); }
  // "127.0.0.1:9000", "[::1]:9000"
  std::string Text() const;
};

struct OSTRAND_API TcpAddress {
  std::string host;         // as in the url, without brackets
  bool is_numeric = false;  // then `endpoint` holds; else the name is to be looked up
  Endpoint endpoint;        // its port holds in any case
};

// What a url may look like, for messages.
constexpr char kTcpUrlForms[] = "tcp://HOST:PORT or tcp://[IPV6]:PORT";

// False, and `address` untouched, when the text is no such url: another scheme, an empty host, a
// host of other characters than letters, digits, '.', '-' and '_' (or, in brackets, no IPv6
// address) or of more than 253, digits and dots alone that are no IPv4 address, a port that is not
// 1 to 65535, anything after the port.
OSTRAND_API bool ParseTcpUrl(std::string_view url, TcpAddress& address);

// An IPv4 or IPv6 address in numbers, without brackets. False: it is none.
OSTRAND_API bool ParseEndpoint(std::string_view host, uint16_t port, Endpoint& endpoint);

}  // namespace OSTRNET
