#include "cli/fields.h"

#include <gtest/gtest.h>

#include <string>

namespace OstrandCli {
namespace {

using std::string_literals::operator""s;

struct ValueCase {
  VexFieldType type;
  const char* text;
  std::string bytes;
};

TEST(FieldsTest, WritesNumbersBigEndianInTheWidthOfTheirType) {
  const ValueCase cases[] = {
      {VexFieldType::kInt8, "-128", "\x80"},
      {VexFieldType::kInt8, "127", "\x7f"},
      {VexFieldType::kInt16, "-2", "\xff\xfe"},
      {VexFieldType::kInt32, "1", "\0\0\0\x01"s},
      {VexFieldType::kInt64, "-9223372036854775808", "\x80\0\0\0\0\0\0\0"s},
      {VexFieldType::kUint8, "255", "\xff"},
      {VexFieldType::kUint16, "258", "\x01\x02"},
      {VexFieldType::kUint32, "4294967295", "\xff\xff\xff\xff"},
      {VexFieldType::kUint64, "18446744073709551615", "\xff\xff\xff\xff\xff\xff\xff\xff"},
      {VexFieldType::kFloat, "1.5", "\x3f\xc0\0\0"s},
      {VexFieldType::kDouble, "-2", "\xc0\0\0\0\0\0\0\0"s},
      {VexFieldType::kBlob, "00Ff", "\0\xff"s},
      {VexFieldType::kString, "a\tb", "a\tb"},
  };
  for (const ValueCase& c : cases) {
    std::string bytes;
    std::string error;
    EXPECT_TRUE(ParseFieldValue(c.type, c.text, bytes, error)) << c.text << ": " << error;
    EXPECT_EQ(bytes, c.bytes) << c.text;
  }
}

TEST(FieldsTest, ReadsBackWhatItWrote) {
  const ValueCase cases[] = {
      {VexFieldType::kInt8, "-128", "\x80"},
      {VexFieldType::kInt16, "-2", "\xff\xfe"},
      {VexFieldType::kInt64, "-9223372036854775808", "\x80\0\0\0\0\0\0\0"s},
      {VexFieldType::kUint64, "18446744073709551615", "\xff\xff\xff\xff\xff\xff\xff\xff"},
      {VexFieldType::kFloat, "1.5", "\x3f\xc0\0\0"s},
      {VexFieldType::kDouble, "-2", "\xc0\0\0\0\0\0\0\0"s},
      {VexFieldType::kBlob, "00ff", "\0\xff"s},
      {VexFieldType::kString, "plain \xc3\xa4", "plain \xc3\xa4"},
  };
  for (const ValueCase& c : cases) {
    EXPECT_EQ(FieldValueText(c.type, c.bytes), c.text);
  }
}

TEST(FieldsTest, RefusesWhatTheTypeCannotHold) {
  struct {
    VexFieldType type;
    const char* text;
    const char* error;
  } const cases[] = {
      {VexFieldType::kInt8, "128", "\"128\" is no int8"},
      {VexFieldType::kInt8, "-129", "\"-129\" is no int8"},
      {VexFieldType::kUint8, "256", "\"256\" is no uint8"},
      {VexFieldType::kUint32, "-1", "\"-1\" is no uint32"},
      {VexFieldType::kUint32, "1 ", "\"1 \" is no uint32"},
      {VexFieldType::kUint32, "", "\"\" is no uint32"},
      {VexFieldType::kDouble, "1x", "\"1x\" is no double"},
      {VexFieldType::kBlob, "0", "\"0\" is no blob"},
      {VexFieldType::kBlob, "0g", "\"0g\" is no blob"},
  };
  for (const auto& c : cases) {
    std::string bytes;
    std::string error;
    EXPECT_FALSE(ParseFieldValue(c.type, c.text, bytes, error)) << c.text;
    EXPECT_EQ(error, c.error);
  }
}

TEST(FieldsTest, TakesTheFirstEqualsSignAsTheEndOfTheName) {
  Field field;
  std::string error;
  ASSERT_TRUE(ParseField("url=a=b", field, error));
  EXPECT_EQ(field.name, "url");
  EXPECT_EQ(field.value, "a=b");
  ASSERT_TRUE(ParseField("empty=", field, error));
  EXPECT_EQ(field.value, "");
  ASSERT_TRUE(ParseField("n:uint16=513", field, error));
  EXPECT_EQ(field.name, "n");
  EXPECT_EQ(field.type, VexFieldType::kUint16);
  EXPECT_EQ(field.value, "\x02\x01");
}

TEST(FieldsTest, SaysWhatIsWrongWithAField) {
  struct {
    const char* text;
    const char* error;
  } const cases[] = {
      {"name", "\"name\" has no \"=\": write a field as name=value"},
      {"=x", "\"\" is no field name: it has 1 to 31 characters"},
      {"abcdefghijklmnopqrstuvwxyz123456=x",
       "\"abcdefghijklmnopqrstuvwxyz123456\" is no field name: it has 1 to 31 characters"},
      {"n:u32=1",
       "\"u32\" is no type: take string, blob, int8 to int64, uint8 to uint64, float or double"},
      {"n:uint8=x", "\"x\" is no uint8"},
  };
  for (const auto& c : cases) {
    Field field;
    std::string error;
    EXPECT_FALSE(ParseField(c.text, field, error)) << c.text;
    EXPECT_EQ(error, c.error);
  }
}

TEST(FieldsTest, ShowsTextsInOneLine) {
  EXPECT_EQ(FieldValueText(VexFieldType::kString, "a\nb\tc\rd\\e\x01\x7f"),
            "a\\nb\\tc\\rd\\\\e\\x01\\x7f");
  EXPECT_EQ(FieldValueText(VexFieldType::kString, "\xff\xc3"), "\\xff\\xc3");
}

TEST(FieldsTest, ShowsANumberOfAnotherWidthAsText) {
  EXPECT_EQ(FieldValueText(VexFieldType::kUint32, "abc"), "abc");
  EXPECT_EQ(FieldValueJson(VexFieldType::kUint32, "abc"), "\"abc\"");
}

TEST(FieldsTest, WritesValuesAsJson) {
  EXPECT_EQ(FieldValueJson(VexFieldType::kUint16, "\x02\x01"), "513");
  EXPECT_EQ(FieldValueJson(VexFieldType::kFloat, "\x3f\xc0\0\0"s), "1.5");
  EXPECT_EQ(FieldValueJson(VexFieldType::kFloat, "\x7f\x80\0\0"s), "\"inf\"");
  EXPECT_EQ(FieldValueJson(VexFieldType::kBlob, "\x01\xff"), "\"01ff\"");
  EXPECT_EQ(FieldValueJson(VexFieldType::kString, "a\"b"), "\"a\\\"b\"");
  EXPECT_EQ(FieldValueJson(VexFieldType::kString, "\xff"), "{\"hex\":\"ff\"}");
}

}  // namespace
}  // namespace OstrandCli
