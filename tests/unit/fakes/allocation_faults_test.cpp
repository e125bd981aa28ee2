#include "fakes/allocation_faults.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "fakes/recording_logger.h"

namespace OstrandFakes {
namespace {

struct alignas(64) Wide {
  char bytes[64];
};

// Keeps the compiler from removing an allocation that nobody looks at.
template <typename Type>
Type* Kept(Type* pointer) {
  asm volatile("" : : "r"(pointer) : "memory");
  return pointer;
}

TEST(AllocationFaults, CountsBothKinds) {
  AllocationFaults faults;
  delete Kept(new int);
  delete[] Kept(new int[10]);
  delete Kept(new Wide);
  EXPECT_EQ(3, faults.throwing_count());
  EXPECT_EQ(0, faults.nothrow_count());
  delete Kept(new (std::nothrow) int);
  delete[] Kept(new (std::nothrow) int[10]);
  EXPECT_EQ(2, faults.nothrow_count());
  EXPECT_EQ(5, faults.count());
  EXPECT_EQ(0, faults.outstanding());
  EXPECT_FALSE(faults.struck());
}

TEST(AllocationFaults, FailsTheNthOfAKindOnce) {
  AllocationFaults faults;
  faults.FailNothrow(2);
  faults.FailThrowing(1);
  const std::unique_ptr<int> first(new (std::nothrow) int);
  EXPECT_NE(nullptr, first);
  EXPECT_EQ(nullptr, Kept(new (std::nothrow) int));
  EXPECT_TRUE(faults.struck());
  const std::unique_ptr<int> third(new (std::nothrow) int);
  EXPECT_NE(nullptr, third);
  EXPECT_THROW(Kept(new int), std::bad_alloc);
  const std::unique_ptr<int> other(new int);
  EXPECT_NE(nullptr, other);
}

TEST(AllocationFaults, CountsFromWhereItWasTold) {
  AllocationFaults faults;
  delete Kept(new (std::nothrow) int);
  delete Kept(new (std::nothrow) int);
  faults.FailNothrow(1);
  EXPECT_EQ(nullptr, Kept(new (std::nothrow) Wide));
}

TEST(AllocationFaults, KnowsWhatIsStillOut) {
  AllocationFaults faults;
  int* kept = Kept(new int);
  EXPECT_EQ(1, faults.outstanding());
  delete kept;
  EXPECT_EQ(0, faults.outstanding());
}

TEST(AllocationFaults, SeesWhatTheStandardLibraryAllocatesInsideItself) {
  AllocationFaults faults;
  {
    std::string text(100, 'x');
    text += std::string(1000, 'y');
    EXPECT_LE(3, faults.throwing_count());
    EXPECT_LE(1, faults.outstanding());
  }
  EXPECT_EQ(0, faults.outstanding());
}

TEST(AllocationFaults, EndsWithItsScope) {
  {
    AllocationFaults faults;
    faults.FailThrowing(1);
  }
  delete Kept(new int);
  AllocationFaults faults;
  EXPECT_EQ(0, faults.count());
}

TEST(AllocationFaults, IsOfOneThread) {
  AllocationFaults faults;
  faults.FailThrowing(2);  // The first is the thread's own state.
  std::thread([] { delete Kept(new int); }).join();
  EXPECT_FALSE(faults.struck());
}

TEST(AllocationFaults, LeavesTheFakesAlone) {
  RecordingLogger logger;
  AllocationFaults faults;
  faults.FailThrowing(1);
  logger.Log(OstrandCommon::OSTRAND_LOG_LEVEL_INFO, 0, 1, "file", 1, "function", "%0200d", 7);
  EXPECT_FALSE(faults.struck());
  EXPECT_EQ(0, faults.count());
}

TEST(AllocationFaults, GivesAlignedMemory) {
  const std::unique_ptr<Wide> wide(new Wide);
  EXPECT_EQ(0U, reinterpret_cast<uintptr_t>(wide.get()) % 64);
}

}  // namespace
}  // namespace OstrandFakes
