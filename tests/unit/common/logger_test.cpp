#include "common/logger.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace OstrandCommon {
namespace {

TEST(LogLevel, NumbersGrowAsUrgencyFalls) {
  EXPECT_EQ(0, OSTRAND_LOG_LEVEL_FATAL);
  EXPECT_EQ(100, OSTRAND_LOG_LEVEL_ALERT);
  EXPECT_EQ(200, OSTRAND_LOG_LEVEL_CRIT);
  EXPECT_EQ(300, OSTRAND_LOG_LEVEL_ERROR);
  EXPECT_EQ(400, OSTRAND_LOG_LEVEL_WARN);
  EXPECT_EQ(500, OSTRAND_LOG_LEVEL_NOTICE);
  EXPECT_EQ(600, OSTRAND_LOG_LEVEL_INFO);
  EXPECT_EQ(700, OSTRAND_LOG_LEVEL_DEBUG);
  EXPECT_EQ(800, OSTRAND_LOG_LEVEL_TRACE);
}

TEST(Logger, IsAnInterfaceThatIsNeverCopied) {
  EXPECT_TRUE(std::is_abstract_v<Logger>);
  EXPECT_TRUE(std::has_virtual_destructor_v<Logger>);
  EXPECT_FALSE(std::is_copy_constructible_v<Logger>);
  EXPECT_FALSE(std::is_copy_assignable_v<Logger>);
}

}  // namespace
}  // namespace OstrandCommon
