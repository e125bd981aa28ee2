#include "client/buffer_pool.h"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>

#include "fakes/allocation_faults.h"

namespace OstrandService {
namespace {

TEST(BufferPool, GivesRoomForEveryLength) {
  BufferPool pool;
  for (const size_t len :
       std::initializer_list<size_t>{0, 1, 64, 65, 256, 257, 1024, 1025, 100000}) {
    char* const buffer = pool.Take(len);
    ASSERT_NE(nullptr, buffer) << len;
    std::memset(buffer, 'x', len);  // the address sanitizer watches
    pool.Return(buffer, len);
  }
}

TEST(BufferPool, HandsOutAReturnedBufferAgain) {
  BufferPool pool;
  char* const first = pool.Take(65);
  pool.Return(first, 65);
  EXPECT_EQ(first, pool.Take(256)) << "both lengths are of the class of 256 bytes";
  pool.Return(first, 256);
}

TEST(BufferPool, AllocatesNothingOnceWarm) {
  BufferPool pool;
  char* const small = pool.Take(10);
  char* const large = pool.Take(1000);
  pool.Return(small, 10);
  pool.Return(large, 1000);

  OstrandFakes::AllocationFaults faults;
  for (int i = 0; i < 100; ++i) {
    char* const one = pool.Take(static_cast<size_t>(i % 64));
    char* const other = pool.Take(static_cast<size_t>(257 + i));
    pool.Return(one, static_cast<size_t>(i % 64));
    pool.Return(other, static_cast<size_t>(257 + i));
  }
  EXPECT_EQ(0, faults.count());
}

TEST(BufferPool, GivesLongBuffersBackAtOnceAndTheOthersAtTheEnd) {
  OstrandFakes::AllocationFaults faults;
  {
    BufferPool pool;
    pool.Return(pool.Take(1025), 1025);
    EXPECT_EQ(0, faults.outstanding());
    pool.Return(pool.Take(1024), 1024);
    pool.Return(pool.Take(1), 1);
    EXPECT_EQ(2, faults.outstanding());
  }
  EXPECT_EQ(0, faults.outstanding());
}

TEST(BufferPool, AnswersNullWithoutMemory) {
  BufferPool pool;
  OstrandFakes::AllocationFaults faults;
  faults.FailNothrow(1);
  EXPECT_EQ(nullptr, pool.Take(1));
}

}  // namespace
}  // namespace OstrandService
