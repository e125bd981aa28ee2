#include "common/logger.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
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

#if defined(__x86_64__) && defined(__GNUC__)
// Where an operation stands in the table of virtual operations: a pointer to it holds 1 more than
// its byte offset there (Itanium C++ ABI, 2.3).
template <typename Operation>
size_t SlotOf(Operation operation) {
  ptrdiff_t parts[2];
  static_assert(sizeof(operation) == sizeof(parts));
  std::memcpy(parts, &operation, sizeof(parts));
  return static_cast<size_t>(parts[0] - 1) / sizeof(void*);
}

// Loggers may be built apart from this library: the order is part of the contract.
TEST(Logger, OperationsStandInTheirOrder) {
  EXPECT_EQ(0U, SlotOf(&Logger::Log));
  EXPECT_EQ(1U, SlotOf(&Logger::InitLogger));
  EXPECT_EQ(2U, SlotOf(&Logger::CloneLogger));
  EXPECT_EQ(3U, SlotOf(&Logger::GetLogger));
  EXPECT_EQ(4U, SlotOf(&Logger::IsPriorityEnabled));
  EXPECT_EQ(5U, SlotOf(&Logger::ResetLogHandler));
  EXPECT_EQ(6U, SlotOf(&Logger::GetLoggerHandle));
  EXPECT_EQ(7U, SlotOf(&Logger::GetCurThreadLoggerHandle));
  EXPECT_EQ(8U, SlotOf(&Logger::Fini));
}
#endif

TEST(Logger, IsAnInterfaceThatIsNeverCopied) {
  EXPECT_TRUE(std::is_abstract_v<Logger>);
  EXPECT_TRUE(std::has_virtual_destructor_v<Logger>);
  EXPECT_FALSE(std::is_copy_constructible_v<Logger>);
  EXPECT_FALSE(std::is_copy_assignable_v<Logger>);
}

}  // namespace
}  // namespace OstrandCommon
