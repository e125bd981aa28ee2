// The writer: the bytes of an image, and the libraries it refuses.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "unit/vex/vex_test_util.h"

namespace {

using vex_test::ImageOf;
using vex_test::Load;
using vex_test::UserLibrary;

TEST(VexWrite, WritesTheseBytes) {
  // clang-format off
  const unsigned char expected[] = {
      'V', 'E', 'X', 'L',                                // magic
      0, 1,                                              // format version
      0, 1,                                              // one table
      0, 0, 0, 90,                                       // bytes of the image
      4, 'u', 's', 'e', 'r',
      0, 0, 0, 3,                                        // schema version
      0, 20, 'D', 'a', 't', 'a', 'P', 'r', 'o', 't', 'o', 'c', 'o', 'l',
      'T', 'y', 'p', 'e', '=', 'V', 'E', 'X',
      1, 2,                                              // key fields, value fields
      3, 'u', 'i', 'd', 8, 0, 0, 0, 8, 0, 0, 0, 0,       // uint64
      4, 'n', 'i', 'c', 'k', 11, 0, 0, 1, 44, 0, 0, 0, 1,  // string of up to 300, since 1
      4, 'g', 'o', 'l', 'd', 3, 0, 0, 0, 4, 0, 0, 0, 3,  // int32, since 3
      0xF0, 0x36, 0xFB, 0xAA,                            // CRC-32
  };
  // clang-format on
  EXPECT_EQ(ImageOf(UserLibrary()), std::string(std::begin(expected), std::end(expected)));
}

TEST(VexWrite, WritesALibraryWithoutTables) {
  const unsigned char expected[] = {'V', 'E', 'X', 'L', 0,    1,    0,    0,
                                    0,   0,   0,   16,  0x26, 0x29, 0xA1, 0x51};
  EXPECT_EQ(ImageOf({}), std::string(std::begin(expected), std::end(expected)));
}

TEST(VexWrite, ReplacesWhatTheStringHeld) {
  std::string image = "before";
  ASSERT_EQ(vex_write_metalib_buf({}, &image), kVexOk);
  EXPECT_EQ(image.size(), 16U);
}

TEST(VexWrite, RefusesABadLibraryAndLeavesTheString) {
  VexMetaLib lib = UserLibrary();
  lib.tables[0].value_fields[1].name = "nick";
  std::string image = "before";
  EXPECT_EQ(vex_write_metalib_buf(lib, &image), kVexDuplicateField);
  EXPECT_EQ(image, "before");
}

TEST(VexWrite, RefusesANullString) {
  EXPECT_EQ(vex_write_metalib_buf({}, nullptr), kVexInvalidArgument);
}

// A library whose image has exactly so many bytes: tables "00000" and so on, of 14 bytes each and a
// full attribute, the last attribute as long as it takes.
VexMetaLib LibraryOfImageBytes(size_t image_bytes) {
  constexpr size_t kTableBytes = 14;
  VexMetaLib lib;
  size_t left = image_bytes - kVexImageHeaderBytes - kVexImageChecksumBytes;
  while (left > 0) {
    VexMeta meta;
    std::string number = std::to_string(lib.tables.size());
    meta.name = std::string(5 - number.size(), '0') + number;
    // The table that follows must find room for itself.
    size_t table_bytes = std::min(left, kTableBytes + kVexCustomAttr2BytesMax);
    if (left > table_bytes && left - table_bytes < kTableBytes) table_bytes -= kTableBytes;
    meta.customattr2 = std::string(table_bytes - kTableBytes, 'a');
    lib.tables.push_back(meta);
    left -= table_bytes;
  }
  return lib;
}

TEST(VexWrite, WritesTheLargestImageAndTheLoaderTakesIt) {
  const VexMetaLib lib = LibraryOfImageBytes(10485759);
  const std::string image = ImageOf(lib);
  ASSERT_EQ(image.size(), 10485759U);
  const vex_test::Loaded loaded = Load(image);
  ASSERT_EQ(loaded.code, kVexOk);
  EXPECT_EQ(loaded.consumed, 10485759);
  EXPECT_TRUE(*loaded.lib == lib);
}

TEST(VexWrite, RefusesAnImageOfOneByteMore) {
  std::string image;
  EXPECT_EQ(vex_write_metalib_buf(LibraryOfImageBytes(10485760), &image), kVexImageTooLarge);
}

}  // namespace
