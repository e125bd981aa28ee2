// The limits of a schema.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "unit/vex/vex_test_util.h"

namespace {

using vex_test::UserTable;

std::vector<VexField> Fields(size_t count, const std::string& prefix) {
  std::vector<VexField> fields;
  for (size_t i = 0; i < count; ++i) {
    fields.push_back({prefix + std::to_string(i), VexFieldType::kInt32, 4, 0});
  }
  return fields;
}

struct Case {
  const char* what;
  std::function<void(VexMeta&)> change;  // of the user table, version 3, key uid, values nick, gold
  int code;
};

const Case kCases[] = {
    {"nothing changed", [](VexMeta&) {}, kVexOk},
    {"no name", [](VexMeta& m) { m.name = ""; }, kVexBadName},
    {"longest name", [](VexMeta& m) { m.name = std::string(31, 'x'); }, kVexOk},
    {"name too long", [](VexMeta& m) { m.name = std::string(32, 'x'); }, kVexBadName},
    {"NUL in the name", [](VexMeta& m) { m.name = std::string("a\0b", 3); }, kVexBadName},
    {"negative version", [](VexMeta& m) { m.version = -1; }, kVexBadVersion},
    {"older than a field", [](VexMeta& m) { m.version = 2; }, kVexBadVersion},
    {"no attribute", [](VexMeta& m) { m.customattr2 = ""; }, kVexOk},
    {"longest attribute", [](VexMeta& m) { m.customattr2 = std::string(4095, 'a'); }, kVexOk},
    {"attribute too long", [](VexMeta& m) { m.customattr2 = std::string(4096, 'a'); },
     kVexBadAttribute},
    {"NUL in the attribute", [](VexMeta& m) { m.customattr2 = std::string("\0", 1); },
     kVexBadAttribute},
    {"no fields", [](VexMeta& m) { m.key_fields.clear(), m.value_fields.clear(); }, kVexOk},
    {"8 key fields", [](VexMeta& m) { m.key_fields = Fields(8, "k"); }, kVexOk},
    {"9 key fields", [](VexMeta& m) { m.key_fields = Fields(9, "k"); }, kVexTooManyKeyFields},
    {"8 key and 128 value fields",
     [](VexMeta& m) { m.key_fields = Fields(8, "k"), m.value_fields = Fields(128, "v"); }, kVexOk},
    {"129 value fields", [](VexMeta& m) { m.value_fields = Fields(129, "v"); },
     kVexTooManyValueFields},
    {"field without a name", [](VexMeta& m) { m.key_fields[0].name = ""; }, kVexBadName},
    {"field name too long", [](VexMeta& m) { m.value_fields[0].name = std::string(32, 'x'); },
     kVexBadName},
    {"type 0", [](VexMeta& m) { m.key_fields[0].type = VexFieldType{0}; }, kVexBadFieldType},
    {"type 13", [](VexMeta& m) { m.value_fields[0].type = VexFieldType{13}; }, kVexBadFieldType},
    {"width of another type", [](VexMeta& m) { m.value_fields[1].size = 8; }, kVexBadFieldSize},
    {"string of no bytes", [](VexMeta& m) { m.value_fields[0].size = 0; }, kVexBadFieldSize},
    {"longest value", [](VexMeta& m) { m.value_fields[0].size = 1048576; }, kVexOk},
    {"value too long", [](VexMeta& m) { m.value_fields[0].size = 1048577; }, kVexBadFieldSize},
    {"longest key",
     [](VexMeta& m) {
       m.key_fields[0] = {"k", VexFieldType::kString, 1024, 0};
     },
     kVexOk},
    {"key too long",
     [](VexMeta& m) {
       m.key_fields[0] = {"k", VexFieldType::kString, 1025, 0};
     },
     kVexBadFieldSize},
    {"field newer than the table", [](VexMeta& m) { m.key_fields[0].since_version = 4; },
     kVexBadVersion},
    {"field of a negative version", [](VexMeta& m) { m.key_fields[0].since_version = -1; },
     kVexBadVersion},
    {"two values of one name", [](VexMeta& m) { m.value_fields[1].name = "nick"; },
     kVexDuplicateField},
    {"key and value of one name", [](VexMeta& m) { m.key_fields[0].name = "gold"; },
     kVexDuplicateField},
    {"names that differ in case", [](VexMeta& m) { m.key_fields[0].name = "GOLD"; }, kVexOk},
};

TEST(VexCheckMeta, HasACodeForEveryFault) {
  for (const Case& c : kCases) {
    VexMeta meta = UserTable();
    c.change(meta);
    EXPECT_EQ(vex_check_meta(meta), c.code) << c.what;
  }
}

VexMetaLib LibraryOf(size_t tables) {
  VexMetaLib lib;
  for (size_t i = 0; i < tables; ++i) lib.tables.push_back({std::to_string(i), 0, "", {}, {}});
  return lib;
}

TEST(VexCheckMetalib, TakesUpTo4096Tables) {
  EXPECT_EQ(vex_check_metalib(LibraryOf(0)), kVexOk);
  EXPECT_EQ(vex_check_metalib(LibraryOf(4096)), kVexOk);
  EXPECT_EQ(vex_check_metalib(LibraryOf(4097)), kVexTooManyTables);
}

TEST(VexCheckMetalib, ChecksEveryTable) {
  VexMetaLib lib = LibraryOf(3);
  lib.tables[2].version = -1;
  EXPECT_EQ(vex_check_metalib(lib), kVexBadVersion);
}

TEST(VexCheckMetalib, RefusesTwoTablesOfOneName) {
  VexMetaLib lib = LibraryOf(3);
  lib.tables[2].name = "0";
  EXPECT_EQ(vex_check_metalib(lib), kVexDuplicateTable);
}

TEST(VexTypeInfo, KnowsTheseTypes) {
  const struct {
    uint8_t number;
    const char* name;
    uint32_t width;
  } kTypes[] = {{1, "int8", 1},  {2, "int16", 2},   {3, "int32", 4},   {4, "int64", 8},
                {5, "uint8", 1}, {6, "uint16", 2},  {7, "uint32", 4},  {8, "uint64", 8},
                {9, "float", 4}, {10, "double", 8}, {11, "string", 0}, {12, "blob", 0}};
  for (const auto& type : kTypes) {
    const VexTypeInfo* info = vex_type_info(static_cast<VexFieldType>(type.number));
    ASSERT_NE(info, nullptr) << type.name;
    EXPECT_STREQ(info->name, type.name);
    EXPECT_EQ(info->width, type.width) << type.name;
  }
}

TEST(VexTypeInfo, KnowsNoOtherTypes) {
  for (int number = 0; number < 256; ++number) {
    const bool is_known = vex_type_info(static_cast<VexFieldType>(number)) != nullptr;
    EXPECT_EQ(is_known, number >= 1 && number <= 12) << number;
  }
}

TEST(VexEquality, LooksAtEveryMember) {
  const std::function<void(VexMeta&)> changes[] = {
      [](VexMeta& m) { m.name = "other"; },
      [](VexMeta& m) { m.version = 4; },
      [](VexMeta& m) { m.customattr2 = "other"; },
      [](VexMeta& m) { m.key_fields[0].name = "other"; },
      [](VexMeta& m) { m.key_fields[0].type = VexFieldType::kInt64; },
      [](VexMeta& m) { m.value_fields[0].size = 301; },
      [](VexMeta& m) { m.value_fields[0].since_version = 2; },
      [](VexMeta& m) { m.value_fields.pop_back(); },
  };
  EXPECT_TRUE(UserTable() == UserTable());
  for (const auto& change : changes) {
    VexMeta changed = UserTable();
    change(changed);
    EXPECT_FALSE(changed == UserTable());
  }
}

}  // namespace
