// When a client may use a table that the server holds in its own schema.
#include <gtest/gtest.h>

#include <vector>

#include "unit/vex/vex_test_util.h"

namespace {

using Fields = std::vector<VexField>;

const VexField kGold{"gold", VexFieldType::kInt32, 4, 0};
const VexField kLevel{"level", VexFieldType::kInt32, 4, 0};
const VexField kNick{"nick", VexFieldType::kString, 32, 0};

struct Case {
  const char* what;
  int32_t local_version;
  Fields local;
  int32_t server_version;
  Fields server;
  int code;
};

const Case kCases[] = {
    {"the same", 2, {kGold, kNick}, 2, {kGold, kNick}, kVexOk},
    {"none at all", 2, {}, 2, {}, kVexOk},
    {"the same, server newer", 2, {kGold, kNick}, 3, {kGold, kNick}, kVexOk},
    {"the same, server older", 2, {kGold, kNick}, 1, {kGold, kNick}, kVexOk},
    {"newer server has more", 2, {kGold}, 3, {kGold, kNick, kLevel}, kVexOk},
    {"newer server has some, client none", 2, {}, 3, {kNick}, kVexOk},
    {"server of the same version has more", 2, {kGold}, 2, {kGold, kNick}, kVexDiffServerLonger},
    {"older server has more", 2, {kGold}, 1, {kGold, kNick}, kVexDiffServerLonger},
    {"server lacks the last", 2, {kGold, kNick}, 2, {kGold}, kVexDiffServerShorter},
    {"newer server lacks the last", 2, {kGold, kNick}, 3, {kGold}, kVexDiffServerShorter},
    {"server has none", 2, {kGold}, 2, {}, kVexDiffServerShorter},
    {"server lacks the first", 2, {kGold, kNick}, 2, {kNick}, kVexDiffFieldMissing},
    {"server has another name", 2, {kGold, kNick}, 2, {kGold, kLevel}, kVexDiffFieldMissing},
    {"server changed the order", 2, {kGold, kNick}, 2, {kNick, kGold}, kVexDiffFieldOrder},
    {"newer server put one between",
     2,
     {kGold, kNick},
     3,
     {kGold, kLevel, kNick},
     kVexDiffFieldOrder},
    {"names differ in case",
     2,
     {kGold},
     2,
     {{"Gold", VexFieldType::kInt32, 4, 0}},
     kVexDiffFieldMissing},
    {"type differs, size does not",
     2,
     {kGold},
     2,
     {{"gold", VexFieldType::kUint32, 4, 0}},
     kVexDiffFieldType},
    {"type and size differ",
     2,
     {kGold},
     2,
     {{"gold", VexFieldType::kInt64, 8, 0}},
     kVexDiffFieldType},
    {"size differs", 2, {kNick}, 2, {{"nick", VexFieldType::kString, 33, 0}}, kVexDiffFieldSize},
    {"size differs, server newer",
     2,
     {kNick},
     3,
     {{"nick", VexFieldType::kString, 64, 0}},
     kVexDiffFieldSize},
    {"since-version differs", 2, {kGold}, 2, {{"gold", VexFieldType::kInt32, 4, 2}}, kVexOk},
    {"the first difference tells",
     2,
     {kGold, kNick},
     2,
     {kGold, {"nick", VexFieldType::kBlob, 32, 0}, kLevel},
     kVexDiffFieldType},
};

TEST(VexCompare, HasACodeForEveryDifference) {
  for (const Case& c : kCases) {
    const VexMeta local{"t", c.local_version, "", {}, c.local};
    const VexMeta server{"t", c.server_version, "", {}, c.server};
    EXPECT_EQ(vex_compare_value_fields(&local, &server), c.code) << c.what;
  }
}

TEST(VexCompare, LooksAtNothingButValueFieldsAndVersions) {
  VexMeta server = vex_test::UserTable();
  server.name = "other";
  server.customattr2 = "";
  server.key_fields.clear();
  const VexMeta local = vex_test::UserTable();
  EXPECT_EQ(vex_compare_value_fields(&local, &server), kVexOk);
}

TEST(VexCompare, SaysWhichSchemaIsNotThere) {
  const VexMeta meta = vex_test::UserTable();
  EXPECT_EQ(vex_compare_value_fields(nullptr, &meta), kVexNoLocalMeta);
  EXPECT_EQ(vex_compare_value_fields(&meta, nullptr), kVexNoServerMeta);
  EXPECT_EQ(vex_compare_value_fields(nullptr, nullptr), kVexNoLocalMeta);
}

}  // namespace
