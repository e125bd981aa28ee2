#include "cli/record_parser.h"

#include <gtest/gtest.h>

namespace OstrandCli {
namespace {

const FieldName kName = {"name", VexFieldType::kString};
const FieldName kUid = {"uid", VexFieldType::kUint16};

RecordParser TabParser(const std::string& header, const std::vector<FieldName>& keys) {
  RecordParser parser(RecordFormat::kTabSeparated, keys);
  std::string error;
  EXPECT_TRUE(parser.ParseHeader(header, error)) << error;
  return parser;
}

TEST(RecordParserTest, SplitsALineAsTheHeaderSays) {
  RecordParser parser = TabParser("size:uint16\tname\ttext", {kName});
  ParsedRecord record;
  std::string error;
  ASSERT_TRUE(parser.Parse("258\tbash\t", record, error)) << error;
  ASSERT_EQ(record.keys.size(), 1U);
  EXPECT_EQ(record.keys[0].name, "name");
  EXPECT_EQ(record.keys[0].value, "bash");
  ASSERT_EQ(record.values.size(), 2U);
  EXPECT_EQ(record.values[0].name, "size");
  EXPECT_EQ(record.values[0].value, "\x01\x02");
  EXPECT_EQ(record.values[1].name, "text");
  EXPECT_EQ(record.values[1].value, "");
}

TEST(RecordParserTest, PutsKeyFieldsIntoTheUsersOrder) {
  RecordParser parser = TabParser("uid\tname", {kName, kUid});
  ParsedRecord record;
  std::string error;
  ASSERT_TRUE(parser.Parse("7\ta", record, error)) << error;
  EXPECT_EQ(record.keys[0].name, "name");
  EXPECT_EQ(record.keys[1].name, "uid");
  EXPECT_EQ(record.keys[1].value, std::string("\0\x07", 2)) << "the type that --key gives";
}

TEST(RecordParserTest, RefusesAHeaderThatCannotServe) {
  const struct {
    const char* header;
    const char* error;
  } cases[] = {
      {"name\tname", "the header names \"name\" twice"},
      {"a\tb", "the header has no field \"name\", which --key names"},
      {"name\t", "\"\" is no field name: it has 1 to 31 characters"},
      {"name:int",
       "\"int\" is no type: take string, blob, int8 to int64, uint8 to uint64, float or double"},
  };
  for (const auto& c : cases) {
    RecordParser parser(RecordFormat::kTabSeparated, {kName});
    std::string error;
    EXPECT_FALSE(parser.ParseHeader(c.header, error)) << c.header;
    EXPECT_EQ(error, c.error);
  }
}

TEST(RecordParserTest, SaysWhatIsWrongWithALine) {
  const struct {
    const char* line;
    const char* error;
  } cases[] = {
      {"a", "the line has 1 fields, the header 2"},
      {"a\t1\t2", "the line has 3 fields, the header 2"},
      {"a\tx", "field \"uid\": \"x\" is no uint16"},
      {"\t1", "the key field \"name\" is missing or empty"},
  };
  for (const auto& c : cases) {
    RecordParser parser = TabParser("name\tuid:uint16", {kName});
    ParsedRecord record;
    std::string error;
    EXPECT_FALSE(parser.Parse(c.line, record, error)) << c.line;
    EXPECT_EQ(error, c.error);
  }
}

TEST(RecordParserTest, ReadsJsonLines) {
  RecordParser parser(RecordFormat::kJsonLines, {kUid});
  EXPECT_FALSE(parser.NeedsHeader());
  ParsedRecord record;
  std::string error;
  ASSERT_TRUE(parser.Parse(
      R"({"a":"x","uid":513,"gone":null,"raw:uint8":{"hex":"01ff"},"n:int8":-1})", record, error))
      << error;
  EXPECT_EQ(record.keys[0].value, "\x02\x01");
  ASSERT_EQ(record.values.size(), 3U);
  EXPECT_EQ(record.values[0].value, "x");
  EXPECT_EQ(record.values[1].name, "raw");
  EXPECT_EQ(record.values[1].value, "\x01\xff") << "bytes are taken as they stand";
  EXPECT_EQ(record.values[2].value, "\xff");
}

TEST(RecordParserTest, SaysWhatIsWrongWithAJsonLine) {
  const struct {
    const char* line;
    const char* error;
  } cases[] = {
      {"{\"a\":1}", "the key field \"uid\" is missing or empty"},
      {"{\"uid\":null}", "the key field \"uid\" is missing or empty"},
      {"{\"uid\":\"x\"}", "field \"uid\": \"x\" is no uint16"},
      {"{\"uid\":1,}", "column 10: there should be a string"},
      {"{\"\":1}", "\"\" is no field name: it has 1 to 31 characters"},
  };
  for (const auto& c : cases) {
    RecordParser parser(RecordFormat::kJsonLines, {kUid});
    ParsedRecord record;
    std::string error;
    EXPECT_FALSE(parser.Parse(c.line, record, error)) << c.line;
    EXPECT_EQ(error, c.error);
  }
}

}  // namespace
}  // namespace OstrandCli
