// What the schema makes of a request's integers, and that C++ integers, the command line's texts
// and the schema meet in the same record.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "client/client_request.h"
#include "client/runtime_errors.h"
#include "protocol/field_value.h"
#include "vex/vex_schema.h"

namespace OstrandService {
namespace {

using ostrand_protocol_cs::ParseValue;

VexMeta Schema() {
  VexMeta schema;
  schema.name = "t";
  schema.key_fields = {{"id", VexFieldType::kUint32, 4, 0}, {"day", VexFieldType::kInt16, 2, 0}};
  schema.value_fields = {
      {"i8", VexFieldType::kInt8, 1, 0},     {"i16", VexFieldType::kInt16, 2, 0},
      {"i32", VexFieldType::kInt32, 4, 0},   {"i64", VexFieldType::kInt64, 8, 0},
      {"u8", VexFieldType::kUint8, 1, 0},    {"u16", VexFieldType::kUint16, 2, 0},
      {"u32", VexFieldType::kUint32, 4, 0},  {"u64", VexFieldType::kUint64, 8, 0},
      {"f", VexFieldType::kFloat, 4, 0},     {"d", VexFieldType::kDouble, 8, 0},
      {"text", VexFieldType::kString, 4, 0}, {"blob", VexFieldType::kBlob, 4, 0}};
  EXPECT_EQ(vex_check_meta(schema), 0);
  return schema;
}

const VexMeta kSchema = Schema();

std::string BodyAndKey(const ClientRequest& request) {
  return std::string(request.Bytes(), request.Head().BytesLen());
}

// The same value given as every C++ type that can hold it, as the command line's text, and as the
// schema's type by name: the bytes are the same.
template <typename Named, typename... Integers>
void ExpectTheyMeet(const char* field, VexFieldType type, const char* text, Integers... values) {
  std::string bytes;
  ASSERT_TRUE(ParseValue(type, text, bytes));
  const ClientRequest written = Insert("t").Key<uint32_t>("id", 1).Set(field, bytes);
  const auto expect_same = [&](ClientRequest request) {
    EXPECT_EQ(0, request.ApplySchema(&kSchema)) << field << ": " << request.FaultText();
    EXPECT_EQ(BodyAndKey(written), BodyAndKey(request)) << field;
  };
  expect_same(written);
  (expect_same(Insert("t").Key("id", 1).Set(field, values)), ...);
  (expect_same(Insert("t").Key("id", 1).template Set<Named>(field, values)), ...);
}

TEST(RequestSchema, EveryIntegerTypeTheCommandLineAndTheSchemaMeet) {
  const auto meet = [](auto named, const char* field, VexFieldType type) {
    ExpectTheyMeet<decltype(named)>(field, type, "100", static_cast<signed char>(100),
                                    static_cast<unsigned char>(100), static_cast<short>(100),
                                    static_cast<unsigned short>(100), 100, 100U, 100L, 100UL, 100LL,
                                    100ULL);
  };
  meet(int8_t{}, "i8", VexFieldType::kInt8);
  meet(int16_t{}, "i16", VexFieldType::kInt16);
  meet(int32_t{}, "i32", VexFieldType::kInt32);
  meet(int64_t{}, "i64", VexFieldType::kInt64);
  meet(uint8_t{}, "u8", VexFieldType::kUint8);
  meet(uint16_t{}, "u16", VexFieldType::kUint16);
  meet(uint32_t{}, "u32", VexFieldType::kUint32);
  meet(uint64_t{}, "u64", VexFieldType::kUint64);
  ExpectTheyMeet<int8_t>("i8", VexFieldType::kInt8, "-128", -128, -128L, -128LL);
  ExpectTheyMeet<int64_t>("i64", VexFieldType::kInt64, "-9223372036854775808", INT64_MIN);
  ExpectTheyMeet<uint64_t>("u64", VexFieldType::kUint64, "18446744073709551615", UINT64_MAX);
}

TEST(RequestSchema, KeysMeetEverywhereTheyCanStand) {
  const auto expect_same = [](ClientRequest open, const ClientRequest& named) {
    EXPECT_EQ(0, open.ApplySchema(&kSchema)) << open.FaultText();
    EXPECT_EQ(BodyAndKey(named), BodyAndKey(open));
    EXPECT_EQ(named.GetRecordCount(), open.GetRecordCount());
  };
  expect_same(
      Get("t").Key("id", 7).Key("day", -1).Field("i8").SetUserBuff("user"),
      Get("t").Key<uint32_t>("id", 7).Key<int16_t>("day", -1).Field("i8").SetUserBuff("user"));
  expect_same(
      BatchInsert("t").Record().Key("id", 7).Set("i16", 1).Set("text", "x").Record().Key("id", 8),
      BatchInsert("t")
          .Record()
          .Key<uint32_t>("id", 7)
          .Set<int16_t>("i16", 1)
          .Set("text", "x")
          .Record()
          .Key<uint32_t>("id", 8));
  expect_same(
      SetTTL("t").Record(5).Key("id", 7).Record(6).Key("id", 8).Key("day", 9),
      SetTTL("t").Record(5).Key<uint32_t>("id", 7).Record(6).Key<uint32_t>("id", 8).Key<int16_t>(
          "day", 9));
  expect_same(GetTTL("t").Record().Key("id", 7), GetTTL("t").Record().Key<uint32_t>("id", 7));
  expect_same(ListInsert("t").Key("id", 7).Element().Set("i8", 1).Element(),
              ListInsert("t").Key<uint32_t>("id", 7).Element().Set<int8_t>("i8", 1).Element());
  expect_same(GetByPartKey("t").Key("day", 3), GetByPartKey("t").Key<int16_t>("day", 3));
  expect_same(GetMetadata("t"), GetMetadata("t"));
}

TEST(RequestSchema, ARequestGoesOnAfterItWasFitted) {
  ClientRequest request = BatchInsert("t").Record().Key("id", 7).Set("i16", 1);
  ASSERT_EQ(0, request.ApplySchema(&kSchema));
  ASSERT_EQ(0, request.ApplySchema(&kSchema)) << "sent again";
  request.Key("day", 2).Set("i8", 3).Record().Key("id", 8);
  ASSERT_EQ(0, request.ApplySchema(&kSchema)) << request.FaultText();
  const ClientRequest whole = BatchInsert("t")
                                  .Record()
                                  .Key<uint32_t>("id", 7)
                                  .Key<int16_t>("day", 2)
                                  .Set<int16_t>("i16", 1)
                                  .Set<int8_t>("i8", 3)
                                  .Record()
                                  .Key<uint32_t>("id", 8);
  EXPECT_EQ(BodyAndKey(whole), BodyAndKey(request));
}

struct Unfitting {
  ClientRequest request;
  int code;
  const char* field;
};

TEST(RequestSchema, WhatDoesNotFitIsACodeThatNamesTheField) {
  const Unfitting cases[] = {
      {Insert("t").Key("id", -1), RUNTIME_ERR_VALUE_RANGE, "id"},
      {Insert("t").Key("id", int64_t{1} << 32), RUNTIME_ERR_VALUE_RANGE, "id"},
      {Insert("t").Key("id", 1).Set("i8", 128), RUNTIME_ERR_VALUE_RANGE, "i8"},
      {Insert("t").Key("id", 1).Set("i64", UINT64_MAX), RUNTIME_ERR_VALUE_RANGE, "i64"},
      {Insert("t").Key("id", 1).Set<uint32_t>("i32", 3000000000U), RUNTIME_ERR_VALUE_RANGE, "i32"},
      {Insert("t").Key<int32_t>("id", -1), RUNTIME_ERR_VALUE_RANGE, "id"},
      {Insert("t").Key<int64_t>("id", 1), RUNTIME_ERR_FIELD_TYPE, "id"},
      {Insert("t").Key("id", 1).Set<int8_t>("i16", 1), RUNTIME_ERR_FIELD_TYPE, "i16"},
      {Insert("t").Key("id", 1).Set("f", 1), RUNTIME_ERR_FIELD_TYPE, "f"},
      {Insert("t").Key("id", 1).Set("f", 1.0), RUNTIME_ERR_FIELD_TYPE, "f"},
      {Insert("t").Key("id", 1).Set("i64", 1.0), RUNTIME_ERR_FIELD_TYPE, "i64"},
      {Insert("t").Key("id", 1).Set("text", 1), RUNTIME_ERR_FIELD_TYPE, "text"},
      {Insert("t").Key("id", 1).Set("text", "12345"), RUNTIME_ERR_FIELD_TYPE, "text"},
      {Insert("t").Key("id", "1"), RUNTIME_ERR_FIELD_TYPE, "id"},
      {BatchGet("t").Record().Key("id", 1).Record().Key("id", -1), RUNTIME_ERR_VALUE_RANGE, "id"},
      {SetTTL("t").Record(1).Key("day", 40000), RUNTIME_ERR_VALUE_RANGE, "day"},
  };
  for (const Unfitting& each : cases) {
    ClientRequest request = each.request;
    EXPECT_EQ(each.code, request.ApplySchema(&kSchema)) << each.field;
    EXPECT_EQ(each.code, request.Fault());
    EXPECT_EQ(BodyAndKey(each.request), BodyAndKey(request)) << "nothing is changed";
    EXPECT_EQ(0U, request.FaultText().find("\"" + std::string(each.field) + "\""))
        << request.FaultText();
  }
}

TEST(RequestSchema, WhatItDoesNotSayStaysAsItIs) {
  ClientRequest request =
      Insert("t").Key("id", 1).Set("other", 5).Set("f", 0.5F).Set("d", 2.0).Set("text", "");
  ASSERT_EQ(0, request.ApplySchema(&kSchema)) << request.FaultText();
  FieldView field;
  ASSERT_TRUE(request.GetValue("other", field));
  EXPECT_EQ(8U, field.value.size()) << "64 bits";
  ClientRequest untouched = Insert("t").Key("id", 1);
  const std::string before = BodyAndKey(untouched);
  ASSERT_EQ(0, untouched.ApplySchema(nullptr));
  EXPECT_EQ(before, BodyAndKey(untouched)) << "without a schema";
}

}  // namespace
}  // namespace OstrandService
