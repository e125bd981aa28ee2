#include "service_api/proxy_server.h"

#include <cstring>

namespace OstrandService {

ServerIdText::ServerIdText(const char* server_id) : text{} {
  std::memcpy(text, server_id, strnlen(server_id, sizeof(text) - 1));
}

}  // namespace OstrandService
