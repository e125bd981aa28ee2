#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "cli/output.h"

namespace OstrandCli {
namespace {

using std::string_literals::operator""s;

TEST(OutputJsonTest, EscapesWhatAStringCannotHold) {
  EXPECT_EQ(JsonString("a\"b\\c\nd\te\rf"), "\"a\\\"b\\\\c\\nd\\te\\rf\"");
  EXPECT_EQ(JsonString("\0\x1f\x7f"s), "\"\\u0000\\u001f\\u007f\"");
  EXPECT_EQ(JsonString("\xc3\xa4\xf0\x9f\x98\x80"), "\"\xc3\xa4\xf0\x9f\x98\x80\"");
}

TEST(OutputJsonTest, ReplacesBytesThatAreNoUtf8) {
  EXPECT_EQ(JsonString("a\xff"
                       "b"),
            "\"a\xEF\xBF\xBD"
            "b\"");
}

TEST(OutputJsonTest, TellsUtf8FromOtherBytes) {
  struct {
    const char* what;
    std::string text;
    bool is_utf8;
  } const cases[] = {
      {"nothing", "", true},
      {"ASCII", "abc", true},
      {"two bytes", "\xc2\x80", true},
      {"two bytes, but one would do", "\xc1\xbf", false},
      {"three bytes", "\xe0\xa0\x80", true},
      {"three bytes, but two would do", "\xe0\x9f\xbf", false},
      {"the last before the surrogates", "\xed\x9f\xbf", true},
      {"a surrogate", "\xed\xa0\x80", false},
      {"four bytes", "\xf0\x90\x80\x80", true},
      {"four bytes, but three would do", "\xf0\x8f\xbf\xbf", false},
      {"the last character", "\xf4\x8f\xbf\xbf", true},
      {"behind the last character", "\xf4\x90\x80\x80", false},
      {"five bytes", "\xf8\x88\x80\x80\x80", false},
      {"a continuation alone", "\x80", false},
      {"cut", "\xc3", false},
      {"not continued",
       "\xc3"
       "a",
       false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(IsUtf8(c.text), c.is_utf8) << c.what;
  }
}

TEST(OutputJsonTest, PutsCommasBetweenMembersAndElements) {
  JsonWriter json;
  json.BeginObject().Key("a").Integer(-1).Key("b").BeginArray().Bool(true).Null();
  json.BeginObject().EndObject().String("x").EndArray();
  json.Key("c").Unsigned(18446744073709551615U).Key("d").Bytes("\xff").Key("e").Raw("[]");
  json.EndObject();
  EXPECT_EQ(json.Text(),
            "{\"a\":-1,\"b\":[true,null,{},\"x\"],\"c\":18446744073709551615,"
            "\"d\":{\"hex\":\"ff\"},\"e\":[]}");
}

TEST(OutputJsonTest, WritesRealsWithoutNeedlessDigits) {
  struct {
    double number;
    int decimals;
    const char* text;
  } const cases[] = {
      {1.5, 3, "1.5"},
      {2.0, 3, "2"},
      {100.0, 0, "100"},
      {0.1239, 3, "0.124"},
      {-0.25, 6, "-0.25"},
      {std::numeric_limits<double>::infinity(), 3, "null"},
      {std::numeric_limits<double>::quiet_NaN(), 3, "null"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(JsonWriter().Real(c.number, c.decimals).Text(), c.text);
  }
}

}  // namespace
}  // namespace OstrandCli
