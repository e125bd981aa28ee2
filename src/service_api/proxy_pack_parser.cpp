#include "service_api/proxy_pack_parser.h"

#include "common/text.h"
#include "service_api/log_macros.h"
#include "service_api/ostrand_service_response.h"

namespace OstrandService {

int ProxyPackParser::ParsePackLength(const char* data, unsigned int data_len) {
  const int ret = OstrandServiceResponse::GetPkgLen(data, data_len);
  if (ret >= 0 || m_logger == nullptr) {
    return ret;
  }
  char dump[100] = {};
  OstrandCommon::HexDump(dump, sizeof(dump), data, data_len);
  OSTRAND_LOG(m_logger, OstrandCommon::OSTRAND_LOG_LEVEL_ERROR, m_module_id,
              "src/service_api/proxy_pack_parser", __func__,
              "GetPkgLen failed. ret:%d buffer:%p data_len:%u dump:%s", ret,
              static_cast<const void*>(data), data_len, dump);
  return ret;
}

}  // namespace OstrandService
