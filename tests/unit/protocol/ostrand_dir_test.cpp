// The records of the directory lie in memory as on the wire: each field at its offset, nothing
// between two fields, numbers in host order.
#include "protocol/ostrand_dir.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

namespace ostrand_protocol_dir {
namespace {

struct Place {
  const char* field;
  size_t offset;
  size_t size;
  size_t expected_offset;
  size_t expected_size;
};

#define PLACE(record, field, expected_offset, expected_size) \
  Place { #field, offsetof(record, field), sizeof(record::field), expected_offset, expected_size }

TEST(OstrandDirTest, TheHeadIsPackedInto20Bytes) {
  const Place kPlaces[] = {
      PLACE(tagOstrdirCSHead, wMagic, 0, 2),   PLACE(tagOstrdirCSHead, wCmd, 2, 2),
      PLACE(tagOstrdirCSHead, nVersion, 4, 2), PLACE(tagOstrdirCSHead, nHeadLen, 6, 2),
      PLACE(tagOstrdirCSHead, iBodyLen, 8, 4), PLACE(tagOstrdirCSHead, ullAppID, 12, 8),
  };
  for (const Place& place : kPlaces) {
    EXPECT_EQ(place.expected_offset, place.offset) << place.field;
    EXPECT_EQ(place.expected_size, place.size) << place.field;
  }
  EXPECT_EQ(20U, sizeof(tagOstrdirCSHead));
}

TEST(OstrandDirTest, TheRouteIsPacked) {
  const Place kPlaces[] = {
      PLACE(tagResGetTablesAndAccess, iResult, 0, 4),
      PLACE(tagResGetTablesAndAccess, iSetID, 4, 4),
      PLACE(tagResGetTablesAndAccess, szSetName, 8, 64),
      PLACE(tagResGetTablesAndAccess, iAppID, 72, 4),
      PLACE(tagResGetTablesAndAccess, szAppName, 76, 64),
      PLACE(tagResGetTablesAndAccess, iZoneID, 140, 4),
      PLACE(tagResGetTablesAndAccess, szZoneName, 144, 64),
      PLACE(tagResGetTablesAndAccess, iTableCount, 208, 4),
      PLACE(tagResGetTablesAndAccess, aszTableNameList, 212, 256 * 32),
      PLACE(tagResGetTablesAndAccess, iAccessCount, 8404, 4),
      PLACE(tagResGetTablesAndAccess, aszAccessUrlList, 8408, 200 * 64),
      PLACE(tagResGetTablesAndAccess, aszAccessIdList, 21208, 200 * 32),
      PLACE(tagResGetTablesAndAccess, stConfData, 27608, 8300),
  };
  size_t end = 0;
  for (const Place& place : kPlaces) {
    EXPECT_EQ(place.expected_offset, place.offset) << place.field;
    EXPECT_EQ(place.expected_size, place.size) << place.field;
    EXPECT_EQ(end, place.offset) << "nothing lies before " << place.field;
    end = place.offset + place.size;
  }
  EXPECT_EQ(35908U, end);
  EXPECT_EQ(35908U, sizeof(tagResGetTablesAndAccess));
}

#undef PLACE

TEST(OstrandDirTest, TheRowsAre64And32Bytes) {
  EXPECT_EQ(64U, sizeof(tagResGetTablesAndAccess::aszAccessUrlList[0]));
  EXPECT_EQ(32U, sizeof(tagResGetTablesAndAccess::aszAccessIdList[0]));
  EXPECT_EQ(32U, sizeof(tagResGetTablesAndAccess::aszTableNameList[0]));
  EXPECT_EQ(200, MAX_SERVER_COUNT);
}

TEST(OstrandDirTest, TheBodyBeginsBehindTheHead) {
  EXPECT_EQ(0U, offsetof(tagOStrdirCSPkg, stHead));
  EXPECT_EQ(20U, offsetof(tagOStrdirCSPkg, stBody));
  EXPECT_EQ(0U, offsetof(tagOStrdirCSBody, stResGetTablesAndAccess));
  EXPECT_EQ(20U + 35908U, sizeof(tagOStrdirCSPkg));
  EXPECT_EQ(1U, alignof(tagOStrdirCSPkg));
  EXPECT_TRUE(std::is_trivially_copyable<tagOStrdirCSPkg>::value);
}

TEST(OstrandDirTest, TheNumbersAreInHostOrderWhereTheyLie) {
  const auto pkg = std::make_unique<tagOStrdirCSPkg>();
  auto* bytes = reinterpret_cast<char*>(pkg.get());
  const auto put = [&](size_t offset, auto number) {
    std::memcpy(bytes + offset, &number, sizeof(number));
  };
  put(0, uint16_t{0xF00D});
  put(2, uint16_t{107});
  put(4, int16_t{-4});
  put(6, int16_t{-6});
  put(8, int32_t{-8});
  put(12, uint64_t{0xFEDCBA9876543210});
  put(20, int32_t{-20});
  put(20 + 4, int32_t{-24});
  put(20 + 72, int32_t{-92});
  put(20 + 140, int32_t{-160});
  put(20 + 208, int32_t{-228});
  put(20 + 8404, int32_t{-8424});
  std::memcpy(bytes + 20 + 8408 + 199 * 64, "the last url", 13);
  std::memcpy(bytes + 20 + 21208 + 199 * 32, "the last id", 12);

  const tagOstrdirCSHead& head = pkg->stHead;
  EXPECT_EQ(0xF00D, uint16_t{head.wMagic});
  EXPECT_EQ(107, uint16_t{head.wCmd});
  EXPECT_EQ(-4, int16_t{head.nVersion});
  EXPECT_EQ(-6, int16_t{head.nHeadLen});
  EXPECT_EQ(-8, int32_t{head.iBodyLen});
  EXPECT_EQ(0xFEDCBA9876543210U, uint64_t{head.ullAppID});
  const tagResGetTablesAndAccess& route = pkg->stBody.stResGetTablesAndAccess;
  EXPECT_EQ(-20, int32_t{route.iResult});
  EXPECT_EQ(-24, int32_t{route.iSetID});
  EXPECT_EQ(-92, int32_t{route.iAppID});
  EXPECT_EQ(-160, int32_t{route.iZoneID});
  EXPECT_EQ(-228, int32_t{route.iTableCount});
  EXPECT_EQ(-8424, int32_t{route.iAccessCount});
  EXPECT_STREQ("the last url", route.aszAccessUrlList[199]);
  EXPECT_STREQ("the last id", route.aszAccessIdList[199]);
}

TEST(OstrandDirTest, TheAnswersCommandIsItsRequestsPlusOne) {
  EXPECT_EQ(106, OSTRDIR_CS_CMD_GET_TABLES_AND_ACCESS_REQ);
  EXPECT_EQ(107, OSTRDIR_CS_CMD_GET_TABLES_AND_ACCESS_RES);
}

}  // namespace
}  // namespace ostrand_protocol_dir
