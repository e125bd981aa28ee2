// Out of memory is a code, and memory follows the bytes that are there, not those promised.
//
// The program's operator new is replaced by one that counts the bytes in use and fails when told
// to, both for the thread that asks for it and only inside a Watch. The operator new that clang++
// brings for its thread sanitizer cannot be replaced, so these tests, all of one thread, are left
// out there.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VEX_TEST_CANNOT_REPLACE_NEW
#endif
#endif

#ifndef VEX_TEST_CANNOT_REPLACE_NEW

#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>

#include "unit/vex/vex_test_util.h"

namespace {

thread_local bool t_watching = false;
thread_local size_t t_bytes_in_use = 0;
thread_local size_t t_bytes_peak = 0;
thread_local int t_allocations_left = 0;

constexpr int kEndless = 1 << 30;

class Watch {
 public:
  // Every allocation after the first `allocations` fails.
  explicit Watch(int allocations) {
    t_bytes_in_use = t_bytes_peak = 0;
    t_allocations_left = allocations;
    t_watching = true;
  }
  ~Watch() { t_watching = false; }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
};

}  // namespace

void* operator new(size_t bytes) {
  if (t_watching && t_allocations_left-- <= 0) throw std::bad_alloc();
  void* memory = std::malloc(bytes != 0 ? bytes : 1);
  if (memory == nullptr) throw std::bad_alloc();
  if (t_watching) {
    t_bytes_in_use += malloc_usable_size(memory);
    t_bytes_peak = std::max(t_bytes_peak, t_bytes_in_use);
  }
  return memory;
}

void operator delete(void* memory) noexcept {
  if (t_watching && memory != nullptr) t_bytes_in_use -= malloc_usable_size(memory);
  std::free(memory);
}

void operator delete(void* memory, size_t) noexcept { operator delete(memory); }

namespace {

using vex_test::ImageOf;
using vex_test::ImageOfBytes;

// Names and attributes long enough to be allocated.
VexMetaLib LibraryThatNeedsMemory() {
  VexMetaLib lib = vex_test::UserLibrary();
  lib.tables.push_back({std::string(31, 't'),
                        1,
                        std::string(100, 'a'),
                        {{std::string(31, 'k'), VexFieldType::kInt8, 1, 0}},
                        {{std::string(31, 'v'), VexFieldType::kInt8, 1, 0}}});
  return lib;
}

TEST(VexMemory, LoadingSaysSoWhereverMemoryEnds) {
  const std::string image = ImageOf(LibraryThatNeedsMemory());
  int failures = 0;
  for (int code = kVexNoMemory; code != kVexOk; ++failures) {
    int length = static_cast<int>(image.size());
    LPVEXMETALIB lib = nullptr;
    size_t bytes_kept = 0;
    {
      Watch watch(failures);
      code = vex_load_metalib_buf(&lib, image.data(), &length);
      bytes_kept = t_bytes_in_use;
    }
    if (code != kVexOk) {
      ASSERT_EQ(code, kVexNoMemory) << failures;
      EXPECT_EQ(lib, nullptr);
      EXPECT_EQ(bytes_kept, 0U) << "nothing is leaked";
    }
    vex_free_lib(&lib);
  }
  EXPECT_GT(failures, 8) << "every allocation was made to fail once";
}

TEST(VexMemory, WritingSaysSoWhereverMemoryEnds) {
  const VexMetaLib lib = LibraryThatNeedsMemory();
  std::string image = "before";
  int failures = 0;
  for (int code = kVexNoMemory; code != kVexOk; ++failures) {
    {
      Watch watch(failures);
      code = vex_write_metalib_buf(lib, &image);
    }
    if (code != kVexOk) {
      ASSERT_EQ(code, kVexNoMemory) << failures;
      EXPECT_EQ(image, "before");
    }
  }
  EXPECT_GT(failures, 2) << "every allocation was made to fail once";
  EXPECT_EQ(image, ImageOf(lib));
}

TEST(VexMemory, CheckingALibrarySaysSo) {
  const VexMetaLib lib = LibraryThatNeedsMemory();
  Watch watch(0);
  EXPECT_EQ(vex_check_metalib(lib), kVexNoMemory);
}

TEST(VexMemory, CheckingATableNeedsNone) {
  const VexMeta meta = vex_test::UserTable();
  Watch watch(0);
  EXPECT_EQ(vex_check_meta(meta), kVexOk);
}

size_t PeakOfLoading(const std::string& image) {
  int length = static_cast<int>(image.size());
  LPVEXMETALIB lib = nullptr;
  size_t peak = 0;
  {
    Watch watch(kEndless);
    vex_load_metalib_buf(&lib, image.data(), &length);
    peak = t_bytes_peak;
  }
  vex_free_lib(&lib);
  return peak;
}

TEST(VexMemory, LyingCountsCostNothing) {
  const std::string table("\1t\0\0\0\0\0\0\0\0", 10);
  const std::string table_of_many_fields("\1t\0\0\0\0\0\0\xFF\xFF", 10);
  const std::string table_of_long_texts("\xFFt", 2);
  const size_t honest = PeakOfLoading(ImageOfBytes(1, table));
  EXPECT_GT(honest, 0U);
  for (const std::string& bytes : {table, table_of_many_fields, table_of_long_texts}) {
    EXPECT_LE(PeakOfLoading(ImageOfBytes(65535, bytes)), honest);
  }
}

TEST(VexMemory, IsASmallMultipleOfTheImage) {
  std::string tables;
  for (int i = 0; i < 65535; ++i) tables.append("\1t\0\0\0\0\0\0\0\0", 10);
  EXPECT_LE(PeakOfLoading(ImageOfBytes(65535, tables)), 64 * tables.size());
}

}  // namespace

#endif  // VEX_TEST_CANNOT_REPLACE_NEW
