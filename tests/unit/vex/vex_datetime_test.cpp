// Packed dates: golden values, and that they grow with time and come back.
#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "vex/vex.h"

namespace {

constexpr int64_t kFirstUtc = -62135596800;  // 0001-01-01 00:00:00
constexpr int64_t kLastUtc = 253402300799;   // 9999-12-31 23:59:59
constexpr vexdatetime_t kFirst = 0x0004420000;
constexpr vexdatetime_t kLast = 0x9C3F3F7EFB;

vexdatetime_t Packed(time_t utc) {
  vexdatetime_t packed = -1;
  vex_utctime_to_vexdatetime(&packed, utc);
  return packed;
}

constexpr vexdatetime_t Pack(int64_t year, int month, int day, int hour, int minute, int second) {
  return year << 26 | month << 22 | day << 17 | hour << 12 | minute << 6 | second;
}

constexpr struct {
  time_t utc;
  vexdatetime_t packed;
} kGoldens[] = {
    {kFirstUtc, kFirst},         {-11670955200, 0x1900BAC000},  // 1600-02-29 12:00:00
    {-2203891201, 0x1DB0B97EFB},                                // 1900-02-28 23:59:59
    {-2203891200, 0x1DB0C20000},  // 1900-03-01 00:00:00, 1900 had no leap day
    {-1, 0x1EC73F7EFB},           // 1969-12-31 23:59:59
    {0, 0x1EC8420000},            // 1970-01-01 00:00:00
    {1, 0x1EC8420001},            // 1970-01-01 00:00:01
    {946684799, 0x1F3F3F7EFB},    // 1999-12-31 23:59:59
    {946684800, 0x1F40420000},    // 2000-01-01 00:00:00
    {951782400, 0x1F40BA0000},    // 2000-02-29 00:00:00
    {951868800, 0x1F40C20000},    // 2000-03-01 00:00:00
    {1709186828, 0x1FA0BA61C8},   // 2024-02-29 06:07:08
    {2147483647, 0x1FD8663387},   // 2038-01-19 03:14:07, the last of 32 bits
    {2147483648, 0x1FD8663388},   // 2038-01-19 03:14:08
    {4107542399, 0x20D0B97EFB},   // 2100-02-28 23:59:59
    {4107542400, 0x20D0C20000},   // 2100-03-01 00:00:00
    {kLastUtc, kLast},
};

TEST(VexDatetime, PacksTheseTimes) {
  for (const auto& golden : kGoldens) EXPECT_EQ(Packed(golden.utc), golden.packed) << golden.utc;
}

TEST(VexDatetime, ComesBackFromThePackedValue) {
  for (const auto& golden : kGoldens) {
    time_t utc = 7;
    EXPECT_EQ(vex_vexdatetime_to_utctime(&utc, golden.packed), kVexOk) << golden.utc;
    EXPECT_EQ(utc, golden.utc);
  }
}

TEST(VexDatetime, StopsAtTheFirstAndLastYear) {
  EXPECT_EQ(Packed(kFirstUtc - 1), kFirst);
  EXPECT_EQ(Packed(std::numeric_limits<time_t>::min()), kFirst);
  EXPECT_EQ(Packed(kLastUtc + 1), kLast);
  EXPECT_EQ(Packed(std::numeric_limits<time_t>::max()), kLast);
}

TEST(VexDatetime, GrowsAtTheTurnOfEveryDay) {
  for (int64_t midnight = kFirstUtc + 86400; midnight < kLastUtc; midnight += 86400) {
    ASSERT_LT(Packed(midnight - 1), Packed(midnight)) << midnight;
  }
}

TEST(VexDatetime, GrowsAndComesBackForEverySecondOfADay) {
  for (time_t utc = 951782400; utc < 951782400 + 86400; ++utc) {
    time_t back = 0;
    ASSERT_LT(Packed(utc), Packed(utc + 1));
    ASSERT_EQ(vex_vexdatetime_to_utctime(&back, Packed(utc)), kVexOk);
    ASSERT_EQ(back, utc);
  }
}

TEST(VexDatetime, GrowsAndComesBackForTimesAtRandom) {
  std::mt19937_64 random(1);
  std::uniform_int_distribution<int64_t> times(kFirstUtc, kLastUtc - 1);
  for (int i = 0; i < 100000; ++i) {
    const time_t utc = times(random);
    time_t back = 0;
    ASSERT_LT(Packed(utc), Packed(utc + 1)) << utc;
    ASSERT_EQ(vex_vexdatetime_to_utctime(&back, Packed(utc)), kVexOk) << utc;
    ASSERT_EQ(back, utc);
  }
}

TEST(VexDatetime, RefusesWhatIsNoDateAndTime) {
  const vexdatetime_t kBad[] = {
      0,
      -1,
      std::numeric_limits<vexdatetime_t>::min(),
      std::numeric_limits<vexdatetime_t>::max(),
      Pack(0, 1, 1, 0, 0, 0),
      Pack(10000, 1, 1, 0, 0, 0),
      Pack(2000, 0, 1, 0, 0, 0),
      Pack(2000, 13, 1, 0, 0, 0),
      Pack(2000, 1, 0, 0, 0, 0),
      Pack(2000, 2, 30, 0, 0, 0),
      Pack(2001, 2, 29, 0, 0, 0),
      Pack(1900, 2, 29, 0, 0, 0),
      Pack(2000, 4, 31, 0, 0, 0),
      Pack(2000, 1, 1, 24, 0, 0),
      Pack(2000, 1, 1, 0, 60, 0),
      Pack(2000, 1, 1, 0, 0, 60),
      Pack(9999, 12, 31, 24, 0, 0),
      kFirst - 1,
      kLast + 1,
  };
  for (vexdatetime_t bad : kBad) {
    time_t utc = 7;
    EXPECT_EQ(vex_vexdatetime_to_utctime(&utc, bad), kVexBadDateTime) << std::hex << bad;
    EXPECT_EQ(utc, 7) << "unchanged on failure";
  }
}

TEST(VexDatetime, TakesNullPointers) {
  vex_utctime_to_vexdatetime(nullptr, 0);
  EXPECT_EQ(vex_vexdatetime_to_utctime(nullptr, kFirst), kVexInvalidArgument);
}

}  // namespace
