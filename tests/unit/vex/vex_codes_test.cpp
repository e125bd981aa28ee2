// Codes are part of logs and must keep their numbers.
#include "vex/vex_codes.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

TEST(VexCodes, KeepTheirNumbers) {
  const struct {
    int code;
    int number;
  } kNumbers[] = {
      {kVexOk, 0},
      {kVexInvalidArgument, -1},
      {kVexTruncated, -2},
      {kVexBadMagic, -3},
      {kVexBadFormat, -4},
      {kVexBadLength, -5},
      {kVexBadChecksum, -6},
      {kVexImageTooLarge, -7},
      {kVexTooManyTables, -8},
      {kVexBadName, -9},
      {kVexBadAttribute, -10},
      {kVexBadVersion, -11},
      {kVexTooManyKeyFields, -12},
      {kVexTooManyValueFields, -13},
      {kVexBadFieldType, -14},
      {kVexBadFieldSize, -15},
      {kVexDuplicateTable, -16},
      {kVexDuplicateField, -17},
      {kVexNoMemory, -18},
      {kVexBadDateTime, -19},
      {kVexNoLocalMeta, -101},
      {kVexNoServerMeta, -102},
      {kVexDiffFieldMissing, -103},
      {kVexDiffFieldOrder, -104},
      {kVexDiffFieldType, -105},
      {kVexDiffFieldSize, -106},
      {kVexDiffServerShorter, -107},
      {kVexDiffServerLonger, -108},
  };
  for (const auto& entry : kNumbers) EXPECT_EQ(entry.code, entry.number);
}

TEST(VexCodes, HaveATextEach) {
  std::set<std::string> texts;
  int codes = 0;
  for (int code = -200; code <= 200; ++code) {
    const std::string text = vex_code_text(code);
    if (text == "unknown code") continue;
    ++codes;
    texts.insert(text);
  }
  EXPECT_EQ(codes, 28);
  EXPECT_EQ(texts.size(), 28U) << "no two codes share a text";
  EXPECT_STREQ(vex_code_text(kVexOk), "success");
  EXPECT_STREQ(vex_code_text(kVexBadChecksum), "checksum of the schema image wrong");
}

}  // namespace
