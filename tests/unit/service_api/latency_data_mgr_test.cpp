#include "service_api/latency_data_mgr.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace OstrandService {
namespace {

#define EXPECT_FIELD(type, name)                                    \
  static_assert(std::is_same_v<type, decltype(LatencyData::name)>); \
  EXPECT_LE(end, offsetof(LatencyData, name)) << #name;             \
  end = offsetof(LatencyData, name) + sizeof(LatencyData::name);

TEST(LatencyData, HasItsFieldsInOrder) {
  size_t end = 0;
  EXPECT_FIELD(int32_t, id_for_latency_data)
  EXPECT_FIELD(int32_t, id_for_list_node)
  EXPECT_FIELD(int64_t, send_ms)
  EXPECT_FIELD(int32_t, timeout_ms)
  EXPECT_FIELD(int64_t, deadline_ms)
  EXPECT_FIELD(int32_t, zone_id)
  EXPECT_FIELD(int32_t, ip)
  EXPECT_FIELD(int32_t, port)
  EXPECT_FIELD(uint32_t, req_cmd)
  EXPECT_FIELD(int32_t, next_sub_pkg_seq)
  EXPECT_FIELD(int32_t, table_subscript)
  EXPECT_FIELD(uint64_t, async_id)
  EXPECT_FIELD(int32_t, seq)
  EXPECT_FIELD(char[32], table_name)
  EXPECT_FIELD(char*, user_buffer)
  EXPECT_FIELD(uint32_t, user_buffer_len)
}

}  // namespace
}  // namespace OstrandService
