// Endpoints as the system's calls take them. For the kernel's side of net alone.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>

#include "net/address.h"

namespace OSTRNET {

// Fills `address`; its length.
inline socklen_t ToSocketAddress(const Endpoint& endpoint, sockaddr_storage& address) {
  address = {};
  if (endpoint.family == Endpoint::Family::kIpv4) {
    sockaddr_in ipv4{};
    ipv4.sin_family = AF_INET;
    ipv4.sin_port = htons(endpoint.port);
    std::memcpy(&ipv4.sin_addr, endpoint.bytes, sizeof(ipv4.sin_addr));
    std::memcpy(&address, &ipv4, sizeof(ipv4));
    return sizeof(ipv4);
  }
  sockaddr_in6 ipv6{};
  ipv6.sin6_family = AF_INET6;
  ipv6.sin6_port = htons(endpoint.port);
  ipv6.sin6_scope_id = endpoint.scope;
  std::memcpy(&ipv6.sin6_addr, endpoint.bytes, sizeof(ipv6.sin6_addr));
  std::memcpy(&address, &ipv6, sizeof(ipv6));
  return sizeof(ipv6);
}

// False, and `endpoint` untouched: of another family.
inline bool FromSocketAddress(const sockaddr* address, Endpoint& endpoint) {
  Endpoint read;
  if (address->sa_family == AF_INET) {
    sockaddr_in ipv4{};
    std::memcpy(&ipv4, address, sizeof(ipv4));
    read.family = Endpoint::Family::kIpv4;
    read.port = ntohs(ipv4.sin_port);
    std::memcpy(read.bytes, &ipv4.sin_addr, sizeof(ipv4.sin_addr));
  } else if (address->sa_family == AF_INET6) {
    sockaddr_in6 ipv6{};
    std::memcpy(&ipv6, address, sizeof(ipv6));
    read.family = Endpoint::Family::kIpv6;
    read.port = ntohs(ipv6.sin6_port);
    read.scope = ipv6.sin6_scope_id;
    std::memcpy(read.bytes, &ipv6.sin6_addr, sizeof(ipv6.sin6_addr));
  } else {
    return false;
  }
  endpoint = read;
  return true;
}

}  // namespace OSTRNET
