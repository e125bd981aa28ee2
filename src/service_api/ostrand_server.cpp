#include "service_api/ostrand_server.h"

#include <cstdio>

namespace OstrandService {

void OstrandServer::SetLastError(int32_t code, const char* text) {
  OstrandCommon::ScopedLock lock(m_last_error_mutex);
  m_last_error_code = code;
  std::snprintf(m_last_error_text, sizeof(m_last_error_text), "%s", text != nullptr ? text : "");
}

void OstrandServer::GetLastError(int32_t& code, std::string& text) {
  OstrandCommon::ScopedLock lock(m_last_error_mutex);
  code = m_last_error_code;
  text = m_last_error_text;
}

int32_t OstrandServer::auth_fail_code() {
  OstrandCommon::ScopedLock lock(m_last_error_mutex);
  return m_last_error_code;
}

std::string OstrandServer::auth_fail_text() {
  OstrandCommon::ScopedLock lock(m_last_error_mutex);
  return m_last_error_text;
}

}  // namespace OstrandService
