#include "common/text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace OstrandCommon {
namespace {

using Parts = std::vector<std::string>;

TEST(HexDump, ShowsEachByteAsTwoLowerCaseDigitsAndABlank) {
  const std::string data("\x00\x09\x0a\x7f\x80\xff", 6);
  char out[100];
  EXPECT_STREQ("00 09 0a 7f 80 ff ", HexDump(out, sizeof(out), data.data(), data.size()));
}

TEST(HexDump, ReturnsItsBuffer) {
  char out[4];
  EXPECT_EQ(out, HexDump(out, sizeof(out), "A", 1));
}

TEST(HexDump, StopsAfter32Bytes) {
  std::string expected;
  for (int i = 0; i < 32; ++i) {
    expected += "41 ";
  }
  for (const size_t len : {32U, 33U, 1000U}) {
    char out[200];
    const std::string data(len, 'A');
    EXPECT_EQ(expected, HexDump(out, sizeof(out), data.data(), data.size())) << len;
  }
}

TEST(HexDump, WritesOnlyBytesThatFitWhole) {
  const struct {
    size_t cap;
    std::string text;
  } kCases[] = {{1, ""},       {2, ""},       {3, ""},           {4, "61 "},       {6, "61 "},
                {7, "61 62 "}, {9, "61 62 "}, {10, "61 62 63 "}, {11, "61 62 63 "}};
  for (const auto& c : kCases) {
    std::string out(12, '#');
    HexDump(&out[0], c.cap, "abc", 3);
    EXPECT_EQ(c.text + '\0' + std::string(12 - c.text.size() - 1, '#'), out) << "cap " << c.cap;
  }
}

TEST(HexDump, OfNothingIsTheEmptyText) {
  char out[8] = "#######";
  EXPECT_STREQ("", HexDump(out, sizeof(out), "abc", 0));
  char other[8] = "#######";
  EXPECT_STREQ("", HexDump(other, sizeof(other), nullptr, 3));
}

TEST(HexDump, WritesNothingIntoNoRoom) {
  char out = '#';
  EXPECT_EQ(&out, HexDump(&out, 0, "abc", 3));
  EXPECT_EQ('#', out);
  EXPECT_EQ(nullptr, HexDump(nullptr, 10, "abc", 3));
}

TEST(SplitString, CutsAtEverySeparatorAndKeepsEmptyPieces) {
  const struct {
    std::string text;
    std::string separator;
    Parts parts;
  } kCases[] = {
      {"a;b;c", ";", {"a", "b", "c"}},
      {"a;;b", ";", {"a", "", "b"}},
      {";a;", ";", {"", "a", ""}},
      {";", ";", {"", ""}},
      {"", ";", {""}},
      {"abc", ";", {"abc"}},
      {"a, b,c", ", ", {"a", "b,c"}},
      {"a---b", "--", {"a", "-b"}},
      {"----", "--", {"", "", ""}},
      {"ab", "abc", {"ab"}},
      {"a;b", "", {"a;b"}},
      {"", "", {""}},
      {std::string("a\0b", 3), std::string(1, '\0'), {"a", "b"}},
  };
  for (const auto& c : kCases) {
    Parts parts;
    SplitString(c.text, c.separator, parts);
    EXPECT_EQ(c.parts, parts) << "\"" << c.text << "\" at \"" << c.separator << "\"";
  }
}

TEST(SplitString, ReplacesWhatWasThere) {
  Parts parts = {"old", "older", "oldest"};
  SplitString("new", ";", parts);
  EXPECT_EQ(Parts{"new"}, parts);
}

}  // namespace
}  // namespace OstrandCommon
