// The loader: what it reads from good images, and that no other bytes get past it.
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "unit/vex/vex_test_util.h"

namespace {

using vex_test::ImageOf;
using vex_test::ImageOfBytes;
using vex_test::Load;
using vex_test::Loaded;
using vex_test::Sealed;
using vex_test::UserLibrary;

// A text with its NULs.
template <size_t n>
std::string Bytes(const char (&text)[n]) {
  return std::string(text, n - 1);
}

TEST(VexLoad, GivesWhatWasWritten) {
  VexMetaLib lib = UserLibrary();
  lib.tables.push_back({"empty", 0, "", {}, {}});
  lib.tables.push_back({std::string(31, 't'),
                        2147483647,
                        std::string(4095, 'a'),
                        {{std::string(31, 'k'), VexFieldType::kBlob, 1024, 2147483647}},
                        {{std::string(31, 'v'), VexFieldType::kBlob, 1048576, 0}}});
  const Loaded loaded = Load(ImageOf(lib));
  ASSERT_EQ(loaded.code, kVexOk);
  EXPECT_TRUE(*loaded.lib == lib);
}

TEST(VexLoad, GivesEveryFieldType) {
  VexMetaLib lib{{{"all", 1, "", {}, {}}}};
  for (uint8_t type = 1; type <= 12; ++type) {
    const VexTypeInfo* info = vex_type_info(static_cast<VexFieldType>(type));
    const uint32_t size = info->width != 0 ? info->width : 77;
    lib.tables[0].value_fields.push_back({info->name, info->type, size, 1});
  }
  const Loaded loaded = Load(ImageOf(lib));
  ASSERT_EQ(loaded.code, kVexOk);
  EXPECT_TRUE(*loaded.lib == lib);
}

TEST(VexLoad, GivesALibraryWithoutTables) {
  const Loaded loaded = Load(ImageOf({}));
  ASSERT_EQ(loaded.code, kVexOk);
  EXPECT_TRUE(loaded.lib->tables.empty());
}

TEST(VexLoad, LeavesWhatFollowsTheImage) {
  const std::string image = ImageOf(UserLibrary());
  const Loaded loaded = Load(image + "and more");
  EXPECT_EQ(loaded.code, kVexOk);
  EXPECT_EQ(loaded.consumed, static_cast<int>(image.size()));
}

TEST(VexLoad, RefusesNullPointersAndNegativeLengths) {
  const std::string image = ImageOf(UserLibrary());
  VexMetaLib other;
  LPVEXMETALIB lib = &other;
  int length = static_cast<int>(image.size());
  EXPECT_EQ(vex_load_metalib_buf(nullptr, image.data(), &length), kVexInvalidArgument);
  EXPECT_EQ(vex_load_metalib_buf(&lib, nullptr, &length), kVexInvalidArgument);
  EXPECT_EQ(lib, nullptr) << "a failure leaves no library behind";
  EXPECT_EQ(vex_load_metalib_buf(&lib, image.data(), nullptr), kVexInvalidArgument);
  for (int negative : {-1, std::numeric_limits<int>::min()}) {
    length = negative;
    EXPECT_EQ(vex_load_metalib_buf(&lib, image.data(), &length), kVexInvalidArgument);
    EXPECT_EQ(length, negative);
  }
}

TEST(VexLoad, SaysTruncatedOfEveryShorterPiece) {
  const std::string image = ImageOf(UserLibrary());
  for (size_t bytes = 0; bytes < image.size(); ++bytes) {
    const Loaded loaded = Load(image.substr(0, bytes));
    EXPECT_EQ(loaded.code, kVexTruncated) << bytes;
    EXPECT_EQ(loaded.lib, nullptr) << bytes;
    EXPECT_EQ(loaded.consumed, static_cast<int>(bytes)) << "unchanged on failure";
  }
}

TEST(VexLoad, RefusesAnImageWithAnyBitFlipped) {
  const std::string image = ImageOf(UserLibrary());
  for (size_t bit = 0; bit < image.size() * 8; ++bit) {
    std::string flipped = image;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
    const Loaded loaded = Load(flipped);
    EXPECT_LT(loaded.code, 0) << "bit " << bit;
    EXPECT_EQ(loaded.lib, nullptr) << "bit " << bit;
  }
}

// Where the checksum is made to fit, what gets through is a library that has exactly these bytes as
// its image: nothing is guessed, dropped or cut.
TEST(VexLoad, TakesAChangedByteAsItIsOrNotAtAll) {
  const std::string image = ImageOf(UserLibrary());
  int taken = 0;
  for (size_t offset = 0; offset + kVexImageChecksumBytes < image.size(); ++offset) {
    for (int value = 0; value < 256; ++value) {
      std::string changed = image;
      changed[offset] = static_cast<char>(value);
      changed = Sealed(changed);
      const Loaded loaded = Load(changed);
      if (loaded.code == kVexOk) {
        EXPECT_EQ(ImageOf(*loaded.lib), changed) << offset << " " << value;
        ++taken;
      } else {
        EXPECT_LT(loaded.code, 0) << offset << " " << value;
        EXPECT_EQ(loaded.lib, nullptr) << offset << " " << value;
      }
    }
  }
  EXPECT_GT(taken, 255) << "bytes of names may have almost any value";
}

struct BadImage {
  const char* what;
  std::string image;
  int code;
};

std::string WithByte(size_t offset, char value) {
  std::string image = ImageOf(UserLibrary());
  image[offset] = value;
  return Sealed(image);
}

std::string WithTotal(uint32_t total) {
  std::string image = ImageOf(UserLibrary());
  vex_test::PutBigEndian(total, 8, &image);
  return Sealed(image);
}

// A table "t" of the given version, without an attribute.
std::string Table(const std::string& version, const std::string& counts_and_fields) {
  return Bytes("\1t") + version + Bytes("\0\0") + counts_and_fields;
}

std::string OneTable(const std::string& counts_and_fields) {
  return ImageOfBytes(1, Table(Bytes("\0\0\0\5"), counts_and_fields));
}

std::string Repeated(const std::string& text, size_t times) {
  std::string out;
  while (times-- > 0) out += text;
  return out;
}

std::vector<BadImage> BadImages() {
  const std::string version = Bytes("\0\0\0\5");
  const std::string field_a = Bytes("\1a\1\0\0\0\1\0\0\0\5");
  const std::string table = Table(version, Bytes("\0\0"));
  return {
      {"wrong magic", WithByte(0, 'v'), kVexBadMagic},
      {"format version 0", WithByte(5, 0), kVexBadFormat},
      {"format version 2", WithByte(5, 2), kVexBadFormat},
      {"total below the smallest image", WithTotal(15), kVexBadLength},
      {"total above the bytes there", WithTotal(91), kVexTruncated},
      {"total above the limit", WithTotal(10485760), kVexImageTooLarge},
      {"total as large as can be", WithTotal(0xFFFFFFFF), kVexImageTooLarge},
      {"checksum", ImageOf(UserLibrary()).replace(89, 1, "x"), kVexBadChecksum},
      {"one table promised, none there", ImageOfBytes(1, ""), kVexBadLength},
      {"65535 tables promised, one there", ImageOfBytes(65535, table), kVexBadLength},
      {"no table promised, one there", ImageOfBytes(0, table), kVexBadLength},
      {"a byte behind the last table", ImageOfBytes(1, table + "x"), kVexBadLength},
      {"4097 tables", ImageOfBytes(4097, Repeated(table, 4097)), kVexTooManyTables},
      {"table name longer than the image", ImageOfBytes(1, "\xFFtoo short"), kVexBadLength},
      {"attribute longer than the image",
       ImageOfBytes(1, Bytes("\1t") + version + Bytes("\xFF\xFF\0\0")), kVexBadLength},
      {"8 key fields promised, none there", OneTable(Bytes("\x08\0")), kVexBadLength},
      {"128 value fields promised, one there", OneTable(Bytes("\0\x80") + field_a), kVexBadLength},
      {"9 key fields", OneTable(Bytes("\x09\0") + Repeated(field_a, 9)), kVexTooManyKeyFields},
      {"129 value fields", OneTable(Bytes("\0\x81") + Repeated(field_a, 129)),
       kVexTooManyValueFields},
      {"255 value fields", OneTable(Bytes("\0\xFF") + Repeated(field_a, 255)),
       kVexTooManyValueFields},
      {"table without a name", ImageOfBytes(1, Bytes("\0") + version + Bytes("\0\0\0\0")),
       kVexBadName},
      {"table name of 32 bytes",
       ImageOfBytes(1, Bytes("\x20") + std::string(32, 't') + version + Bytes("\0\0\0\0")),
       kVexBadName},
      {"NUL in a table name", ImageOfBytes(1, Bytes("\2t\0") + version + Bytes("\0\0\0\0")),
       kVexBadName},
      {"negative version", ImageOfBytes(1, Table(Bytes("\xFF\xFF\xFF\xFF"), Bytes("\0\0"))),
       kVexBadVersion},
      {"NUL in the attribute",
       ImageOfBytes(1, Bytes("\1t") + version + Bytes("\0\1\0") + Bytes("\0\0")), kVexBadAttribute},
      {"attribute of 4096 bytes",
       ImageOfBytes(
           1, Bytes("\1t") + version + Bytes("\x10\0") + std::string(4096, 'a') + Bytes("\0\0")),
       kVexBadAttribute},
      {"field without a name", OneTable(Bytes("\1\0\0\1\0\0\0\1\0\0\0\0")), kVexBadName},
      {"field type 0", OneTable(Bytes("\1\0\1a\0\0\0\0\1\0\0\0\0")), kVexBadFieldType},
      {"field type 13", OneTable(Bytes("\1\0\1a\15\0\0\0\1\0\0\0\0")), kVexBadFieldType},
      {"int8 of 2 bytes", OneTable(Bytes("\1\0\1a\1\0\0\0\2\0\0\0\0")), kVexBadFieldSize},
      {"key of 1025 bytes", OneTable(Bytes("\1\0\1a\14\0\0\4\1\0\0\0\0")), kVexBadFieldSize},
      {"value of 4 GiB", OneTable(Bytes("\0\1\1a\14\xFF\xFF\xFF\xFF\0\0\0\0")), kVexBadFieldSize},
      {"field newer than its table", OneTable(Bytes("\1\0\1a\1\0\0\0\1\0\0\0\6")), kVexBadVersion},
      {"field of a negative version", OneTable(Bytes("\1\0\1a\1\0\0\0\1\x80\0\0\0")),
       kVexBadVersion},
      {"two tables of one name", ImageOfBytes(2, table + table), kVexDuplicateTable},
      {"key and value of one name", OneTable(Bytes("\1\1") + field_a + field_a),
       kVexDuplicateField},
  };
}

TEST(VexLoad, HasACodeForEveryKindOfBadImage) {
  for (const BadImage& bad : BadImages()) {
    const Loaded loaded = Load(bad.image);
    EXPECT_EQ(loaded.code, bad.code) << bad.what;
    EXPECT_EQ(loaded.lib, nullptr) << bad.what;
  }
}

// Header and checksum fit, the table ends early.
TEST(VexLoad, RefusesATableCutAtAnyByte) {
  const std::string image = ImageOf(UserLibrary());
  const std::string table = image.substr(12, image.size() - 16);
  ASSERT_EQ(Load(ImageOfBytes(1, table)).code, kVexOk);
  for (size_t bytes = 0; bytes < table.size(); ++bytes) {
    EXPECT_EQ(Load(ImageOfBytes(1, table.substr(0, bytes))).code, kVexBadLength) << bytes;
  }
}

// The building blocks of the bad images make a good one, so each of those is bad for what it says.
TEST(VexLoad, AcceptsTheGoodTwinOfTheBadImages) {
  const std::string fields = Bytes("\1a\1\0\0\0\1\0\0\0\5\1b\14\0\0\4\0\0\0\0\0");
  const Loaded loaded = Load(OneTable(Bytes("\1\1") + fields));
  ASSERT_EQ(loaded.code, kVexOk);
  const VexMeta expected{
      "t", 5, "", {{"a", VexFieldType::kInt8, 1, 5}}, {{"b", VexFieldType::kBlob, 1024, 0}}};
  EXPECT_TRUE(loaded.lib->tables.at(0) == expected);
}

}  // namespace
