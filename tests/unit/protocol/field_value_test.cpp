#include "protocol/field_value.h"

#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <string>

#include "unit/protocol/package_kit.h"

namespace ostrand_protocol_cs {
namespace {

template <typename Number>
std::string Stored(Number number) {
  std::string bytes(sizeof(number), 'x');
  StoreNumber(bytes.data(), number);
  return bytes;
}

TEST(FieldValue, NumbersAreStoredBigEndian) {
  EXPECT_EQ(ToHex(Stored(int8_t{-2})), ToHex(FromHex("FE")));
  EXPECT_EQ(Stored(int16_t{-2}), FromHex("FFFE"));
  EXPECT_EQ(Stored(int32_t{80}), FromHex("00000050"));
  EXPECT_EQ(Stored(int64_t{INT64_MIN}), FromHex("8000000000000000"));
  EXPECT_EQ(Stored(uint8_t{200}), FromHex("C8"));
  EXPECT_EQ(Stored(uint16_t{0x1234}), FromHex("1234"));
  EXPECT_EQ(Stored(uint32_t{0x12345678}), FromHex("12345678"));
  EXPECT_EQ(Stored(UINT64_MAX), FromHex("FFFFFFFFFFFFFFFF"));
  EXPECT_EQ(Stored(1.0F), FromHex("3F800000"));
  EXPECT_EQ(Stored(-2.0), FromHex("C000000000000000"));
}

TEST(FieldValue, WhatWasStoredIsReadInItsOwnWidthAlone) {
  int32_t number = 7;
  EXPECT_TRUE(LoadNumber(Stored(int32_t{-42}), number));
  EXPECT_EQ(number, -42);
  EXPECT_FALSE(LoadNumber(Stored(int64_t{1}), number));
  EXPECT_FALSE(LoadNumber(Stored(int16_t{1}), number));
  EXPECT_FALSE(LoadNumber("", number));
  EXPECT_EQ(number, -42) << "unchanged";
  double real = 0;
  EXPECT_TRUE(LoadNumber(Stored(2.5), real));
  EXPECT_EQ(real, 2.5);
  EXPECT_FALSE(LoadNumber(Stored(2.5F), real));
}

TEST(FieldValue, EachNumberTypeHasItsFieldType) {
  EXPECT_EQ(FieldTypeOf<int8_t>(), VexFieldType::kInt8);
  EXPECT_EQ(FieldTypeOf<short>(), VexFieldType::kInt16);
  EXPECT_EQ(FieldTypeOf<int>(), VexFieldType::kInt32);
  EXPECT_EQ(FieldTypeOf<long long>(), VexFieldType::kInt64);
  EXPECT_EQ(FieldTypeOf<uint8_t>(), VexFieldType::kUint8);
  EXPECT_EQ(FieldTypeOf<uint16_t>(), VexFieldType::kUint16);
  EXPECT_EQ(FieldTypeOf<unsigned>(), VexFieldType::kUint32);
  EXPECT_EQ(FieldTypeOf<unsigned long long>(), VexFieldType::kUint64);
  EXPECT_EQ(FieldTypeOf<float>(), VexFieldType::kFloat);
  EXPECT_EQ(FieldTypeOf<double>(), VexFieldType::kDouble);
}

TEST(FieldValue, RangesEndWhereTheTypeEnds) {
  EXPECT_TRUE(FitsInto<int8_t>(-128));
  EXPECT_FALSE(FitsInto<int8_t>(-129));
  EXPECT_TRUE(FitsInto<int8_t>(127U));
  EXPECT_FALSE(FitsInto<int8_t>(128U));
  EXPECT_FALSE(FitsInto<uint64_t>(-1));
  EXPECT_TRUE(FitsInto<uint64_t>(UINT64_MAX));
  EXPECT_FALSE(FitsInto<int64_t>(UINT64_MAX));
  EXPECT_TRUE(FitsInto<int64_t>(INT64_MIN));
  EXPECT_TRUE(FitsInto<uint32_t>(UINT_MAX));
  EXPECT_FALSE(FitsInto<uint32_t>(int64_t{1} << 32));
  EXPECT_FALSE(FitsInto<float>(1e300));
  EXPECT_TRUE(FitsInto<float>(0.1));
  EXPECT_TRUE(FitsInto<float>(std::numeric_limits<double>::infinity()));
  EXPECT_TRUE(FitsInto<double>(UINT64_MAX));
}

TEST(FieldValue, IntegersChangeTheirTypeWithinItsRange) {
  char out[8] = {};
  ASSERT_TRUE(ConvertInteger(VexFieldType::kInt64, Stored(int64_t{-2}), VexFieldType::kInt16, out));
  EXPECT_EQ(std::string(out, 2), FromHex("FFFE"));
  ASSERT_TRUE(
      ConvertInteger(VexFieldType::kUint8, Stored(uint8_t{200}), VexFieldType::kInt64, out));
  EXPECT_EQ(std::string(out, 8), FromHex("00000000000000C8"));
  EXPECT_FALSE(
      ConvertInteger(VexFieldType::kInt64, Stored(int64_t{-1}), VexFieldType::kUint64, out));
  EXPECT_FALSE(
      ConvertInteger(VexFieldType::kInt64, Stored(int64_t{256}), VexFieldType::kUint8, out));
  EXPECT_FALSE(ConvertInteger(VexFieldType::kInt64, Stored(int64_t{1}), VexFieldType::kFloat, out));
  EXPECT_FALSE(ConvertInteger(VexFieldType::kString, "1", VexFieldType::kInt64, out));
}

struct WrittenValue {
  VexFieldType type;
  const char* text;
  const char* hex;
};

TEST(FieldValue, TextsAndBytesMeet) {
  const WrittenValue values[] = {
      {VexFieldType::kInt8, "-128", "80"},
      {VexFieldType::kInt16, "-2", "FFFE"},
      {VexFieldType::kInt32, "80", "00000050"},
      {VexFieldType::kInt64, "-9223372036854775808", "8000000000000000"},
      {VexFieldType::kUint8, "255", "FF"},
      {VexFieldType::kUint16, "65535", "FFFF"},
      {VexFieldType::kUint32, "4294967295", "FFFFFFFF"},
      {VexFieldType::kUint64, "18446744073709551615", "FFFFFFFFFFFFFFFF"},
      {VexFieldType::kFloat, "0.5", "3F000000"},
      {VexFieldType::kDouble, "-2", "C000000000000000"},
  };
  for (const WrittenValue& value : values) {
    std::string bytes;
    EXPECT_TRUE(ParseValue(value.type, value.text, bytes)) << value.text;
    EXPECT_EQ(bytes, FromHex(value.hex)) << value.text;
    std::string text;
    EXPECT_TRUE(NumberText(value.type, bytes, text));
    EXPECT_EQ(text, value.text);
    EXPECT_FALSE(NumberText(value.type, bytes + "x", text));
  }
  std::string bytes;
  EXPECT_TRUE(ParseValue(VexFieldType::kString, "Ada", bytes));
  EXPECT_EQ(bytes, "Ada");
  EXPECT_TRUE(ParseValue(VexFieldType::kBlob, "00fF", bytes));
  EXPECT_EQ(bytes, FromHex("00FF"));
  EXPECT_EQ(HexText(bytes), "00ff");
}

TEST(FieldValue, RefusesTextsThatAreNoneOfTheType) {
  const std::pair<VexFieldType, const char*> refused[] = {
      {VexFieldType::kInt8, "128"},   {VexFieldType::kInt8, "-129"},
      {VexFieldType::kUint8, "-1"},   {VexFieldType::kUint8, "256"},
      {VexFieldType::kInt32, ""},     {VexFieldType::kInt32, "1x"},
      {VexFieldType::kInt32, " 1"},   {VexFieldType::kUint64, "18446744073709551616"},
      {VexFieldType::kFloat, "1e99"}, {VexFieldType::kDouble, "one"},
      {VexFieldType::kBlob, "0"},     {VexFieldType::kBlob, "zz"},
  };
  for (const auto& [type, text] : refused) {
    std::string bytes;
    EXPECT_FALSE(ParseValue(type, text, bytes)) << text;
  }
}

TEST(FieldValue, FindsTypesByTheirNames) {
  VexFieldType type = VexFieldType::kInt8;
  EXPECT_TRUE(FindFieldType("blob", type));
  EXPECT_EQ(type, VexFieldType::kBlob);
  EXPECT_TRUE(FindFieldType("uint64", type));
  EXPECT_EQ(type, VexFieldType::kUint64);
  EXPECT_FALSE(FindFieldType("int", type));
  EXPECT_TRUE(IsIntegerType(VexFieldType::kUint8));
  EXPECT_FALSE(IsIntegerType(VexFieldType::kDouble));
  EXPECT_TRUE(IsNumberType(VexFieldType::kFloat));
  EXPECT_FALSE(IsNumberType(VexFieldType::kString));
}

TEST(FieldValue, ARecordIsReadTyped) {
  const auto pkg = NewPackage(OSTRAND_API_GET_RES);
  RecordWriter writer(pkg->stBody.stRecords);
  writer.BeginRecord();
  writer.AddKeyField("id", Stored(int64_t{42}));
  writer.AddValueField("level", Stored(int32_t{-7}));
  writer.AddValueField("name", "Ada");
  RecordView record;
  ASSERT_TRUE(RecordReader(pkg->stBody.stRecords).Next(record));
  int64_t id = 0;
  EXPECT_EQ(record.GetKey("id", id), 0);
  EXPECT_EQ(id, 42);
  int32_t level = 0;
  EXPECT_EQ(record.Get("level", level), 0);
  EXPECT_EQ(level, -7);
  std::string_view name;
  EXPECT_EQ(record.Get<std::string_view>("name", name), 0);
  EXPECT_EQ(name, "Ada");
  int64_t wide = 5;
  EXPECT_EQ(record.Get("level", wide), OSTRAND_CODEC_ERR_FIELD_WIDTH);
  EXPECT_EQ(record.Get("city", wide), OSTRAND_CODEC_ERR_NO_FIELD);
  EXPECT_EQ(record.GetKey("level", wide), OSTRAND_CODEC_ERR_NO_FIELD);
  EXPECT_EQ(wide, 5) << "unchanged";
}

}  // namespace
}  // namespace ostrand_protocol_cs
