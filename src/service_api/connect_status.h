// Names of connector states, as logs and status tables show them.
#pragma once

#include "net/net_connector.h"

namespace OstrandService {

inline const char* ConnectStatusName(const OSTRNET::CConnector* connector) {
  if (connector == nullptr) {
    return "NULL";
  }
  switch (connector->GetStatus()) {
    case OSTRNET::CConnector::STATUS_CONNECTING: return "CONNECTING";
    case OSTRNET::CConnector::STATUS_CONNECTED: return "CONNECTED";
    case OSTRNET::CConnector::STATUS_DISCONNECTED: return "DISCONNECTED";
    default: return "UNKNOWN";
  }
}

}  // namespace OstrandService
