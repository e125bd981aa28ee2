// Addresses of the form "tcp://127.0.0.1:9000": an IPv4 address in numbers and a port.
#pragma once

#include <netinet/in.h>

namespace OstrandService {

// Parses a whole url. False, and the address untouched, when it is not one: another scheme, a name
// instead of numbers, a port that is not 1 to 65535, anything behind the port.
bool ParseTcpUrl(const char* url, sockaddr_in& address);

}  // namespace OstrandService
