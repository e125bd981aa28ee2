#include "cli/json_line.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "cli/output.h"

namespace OstrandCli {
namespace {

using std::string_literals::operator""s;
using Kind = JsonField::Kind;

TEST(JsonLineTest, ReadsEachKindOfMember) {
  std::vector<JsonField> fields;
  std::string error;
  ASSERT_TRUE(ParseJsonLine(
      R"( { "a" : "x" , "b":-12.5e+3,"c":true,"d":false,"e":null,"f":{ "hex" : "00fF" },"g":0} )",
      fields, error))
      << error;
  const struct {
    const char* name;
    Kind kind;
    std::string text;
  } expected[] = {
      {"a", Kind::kText, "x"},      {"b", Kind::kScalar, "-12.5e+3"},
      {"c", Kind::kScalar, "true"}, {"d", Kind::kScalar, "false"},
      {"e", Kind::kNull, ""},       {"f", Kind::kBytes, "\0\xff"s},
      {"g", Kind::kScalar, "0"},
  };
  ASSERT_EQ(fields.size(), std::size(expected));
  for (size_t i = 0; i < fields.size(); ++i) {
    EXPECT_EQ(fields[i].name, expected[i].name);
    EXPECT_EQ(fields[i].kind, expected[i].kind) << fields[i].name;
    EXPECT_EQ(fields[i].text, expected[i].text) << fields[i].name;
  }
}

TEST(JsonLineTest, ReadsEscapes) {
  std::vector<JsonField> fields;
  std::string error;
  ASSERT_TRUE(ParseJsonLine(R"({"a":"\"\\\/\b\f\n\r\t\u0041\u00e4\u20ac\uD83D\ude00\u0000"})",
                            fields, error))
      << error;
  EXPECT_EQ(fields[0].text, "\"\\/\b\f\n\r\tA\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80\0"s);
}

TEST(JsonLineTest, TakesAnObjectWithoutMembers) {
  std::vector<JsonField> fields(1);
  std::string error;
  EXPECT_TRUE(ParseJsonLine("{}", fields, error));
  EXPECT_TRUE(fields.empty());
}

// Of random bytes, half of them from a few that matter to JSON and UTF-8.
std::string RandomBytes(std::mt19937& random) {
  static constexpr char kMarks[] = "\"\\{}:,\n\xc3\xa4\xed\xa0\x80\xf0";
  std::string bytes;
  for (auto left = random() % 12; left > 0; --left) {
    const auto any = static_cast<char>(random() % 256);
    bytes += random() % 2 == 0 ? any : kMarks[random() % (sizeof(kMarks) - 1)];
  }
  return bytes;
}

TEST(JsonLineTest, ReadsWhatTheWriterWrites) {
  constexpr uint32_t kSeed = 20;
  std::mt19937 random(kSeed);
  for (int i = 0; i < 2000; ++i) {
    const std::string first = RandomBytes(random);
    const std::string second = RandomBytes(random);
    JsonWriter json;
    json.BeginObject().Key("a").Bytes(first).Key("b").Bytes(second).EndObject();
    std::vector<JsonField> fields;
    std::string error;
    ASSERT_TRUE(ParseJsonLine(json.Text(), fields, error)) << json.Text() << ": " << error;
    ASSERT_EQ(fields.size(), 2U);
    EXPECT_EQ(fields[0].text, first) << json.Text();
    EXPECT_EQ(fields[1].text, second) << json.Text();
  }
}

// Random changes of a line: it is refused with a reason, or read; nothing else is asked for.
TEST(JsonLineTest, StandsAnyBytes) {
  constexpr uint32_t kSeed = 21;
  std::mt19937 random(kSeed);
  const std::string good = R"({"a":"\u00e4\ud83d\ude00","b":-1.5e3,"c":{"hex":"00ff"},"d":null})";
  int refused = 0;
  for (int i = 0; i < 5000; ++i) {
    std::string line = good;
    for (auto left = 1 + random() % 3; left > 0; --left) {
      line.replace(random() % line.size(), random() % 4, RandomBytes(random));
    }
    std::vector<JsonField> fields;
    std::string error;
    if (!ParseJsonLine(line, fields, error)) {
      ++refused;
      EXPECT_EQ(error.substr(0, 7), "column ") << line;
    }
  }
  EXPECT_GT(refused, 1000);
}

TEST(JsonLineTest, SaysWhatIsWrongAndWhere) {
  const struct {
    std::string line;
    const char* error;
  } cases[] = {
      {"", "column 1: there should be a {"},
      {"[]", "column 1: there should be a {"},
      {"{", "column 2: there should be a string"},
      {"{\"a\"", "column 5: there should be a :"},
      {"{\"a\":", "column 6: there should be a value"},
      {"{\"a\":1", "column 7: there should be a , or a }"},
      {"{\"a\":1,}", "column 8: there should be a string"},
      {"{\"a\":1} x", "column 9: there is something behind the object"},
      {"{\"a\":1,\"a\":2}", "column 13: the field \"a\" is there twice"},
      {"{\"a\":[1]}", "column 6: a field cannot be a list"},
      {"{\"a\":{\"b\":1}}",
       "column 6: an object here must be {\"hex\":\"...\"}, with two digits a byte"},
      {"{\"a\":{\"hex\":\"0\"}}",
       "column 6: an object here must be {\"hex\":\"...\"}, with two digits a byte"},
      {"{\"a\":01}", "column 7: there should be a , or a }"},
      {"{\"a\":1.}", "column 6: there should be a value"},
      {"{\"a\":-}", "column 6: there should be a value"},
      {"{\"a\":1e}", "column 6: there should be a value"},
      {"{\"a\":+1}", "column 6: there should be a value"},
      {"{\"a\":nul}", "column 6: there should be a value"},
      {"{\"a\":\"x", "column 8: the string has no end"},
      {"{\"a\":\"x\\", "column 9: unknown escape"},
      {"{\"a\":\"\\x\"}", "column 8: unknown escape"},
      {"{\"a\":\"\\u12\"}", "column 9: four hexadecimal digits should follow \\u"},
      {"{\"a\":\"\\ud800\"}", "column 13: half a surrogate pair"},
      {"{\"a\":\"\\udc00\"}", "column 13: half a surrogate pair"},
      {"{\"a\":\"\\ud800\\u0041\"}", "column 19: half a surrogate pair"},
      {"{\"a\":\"x\ty\"}", "column 8: a control character in a string must be written as \\u00xx"},
      {"{\"a\":\"\xff\"}", "column 7: the string is not UTF-8; write bytes as {\"hex\":\"...\"}"},
  };
  for (const auto& c : cases) {
    std::vector<JsonField> fields;
    std::string error;
    EXPECT_FALSE(ParseJsonLine(c.line, fields, error)) << c.line;
    EXPECT_EQ(error, c.error) << c.line;
  }
}

}  // namespace
}  // namespace OstrandCli
