// What the router tells of its proxies. Plain records; texts always end in a NUL.
#pragma once

#include <cstdint>

namespace OstrandService {

// One row of the proxy table.
struct ProxyStatus {
  char proxy_url[256];      // cut to 255 characters
  char connect_status[30];  // "CONNECTED", "CONNECTING", "DISCONNECTED", "UNKNOWN" or "NULL"
  bool auth_succeed;
};

// Fill of the buffers of one connector; 0 for what a connector does not tell.
struct BuffStaticBetweenApiAndProxy {
  uint32_t send_data_size;      // bytes
  uint32_t recv_data_size;      // bytes
  int32_t send_buff_left_rate;  // free share, in the connector's unit
  int32_t recv_buff_left_rate;
  char server_url[1024];
};

}  // namespace OstrandService
