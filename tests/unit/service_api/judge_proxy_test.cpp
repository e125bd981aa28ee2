#include "service_api/judge_proxy.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace OstrandService {
namespace {

#define EXPECT_FIELD(type, name)                                         \
  static_assert(std::is_same_v<type, decltype(JudgeProxyOption::name)>); \
  EXPECT_LE(end, offsetof(JudgeProxyOption, name)) << #name;             \
  end = offsetof(JudgeProxyOption, name) + sizeof(JudgeProxyOption::name);

TEST(JudgeProxyOption, HasItsFieldsInOrder) {
  size_t end = 0;
  EXPECT_FIELD(int32_t, threshold)
  EXPECT_FIELD(int32_t, check_period)
  EXPECT_FIELD(int32_t, check_times)
  EXPECT_FIELD(int32_t, recheck_available_interval)
  EXPECT_FIELD(int64_t, last_call_update_time)
  EXPECT_FIELD(int64_t, last_traverse_time)
  EXPECT_FIELD(bool, should_check)
  EXPECT_FIELD(int64_t, last_report_access_qos_time)
  EXPECT_FIELD(int32_t, max_remove_rate)
}

}  // namespace
}  // namespace OstrandService
