// Finds the frames in what a proxy sends.
//
// Ownership: made and owned by the router, borrowed by its connectors; borrows the logger.
// Threads: ParsePackLength runs on the network thread.
#pragma once

#include "common/export.h"
#include "common/logger.h"
#include "net/net_parser.h"

namespace OstrandService {

class OSTRAND_API ProxyPackParser : public OSTRNET::IPackParser {
 public:
  // logger may be null: nothing is logged then.
  ProxyPackParser(OstrandCommon::Logger* logger, int module_id)
      : m_logger(logger), m_module_id(module_id) {}

  // As OstrandServiceResponse::GetPkgLen; a malformed head is logged with its first bytes.
  int ParsePackLength(const char* data, unsigned int data_len) override;

 private:
  OstrandCommon::Logger* m_logger;
  int m_module_id;
};

}  // namespace OstrandService
