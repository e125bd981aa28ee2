#include "cli/load_source.h"

#include <gtest/gtest.h>

#include "unit/cli/scratch_folder.h"

namespace OstrandCli {
namespace {

using Result = LoadSource::Result;

const std::vector<FieldName> kKey = {{"id", VexFieldType::kString}};

TEST(LoadSourceTest, TellsTheFormatByTheFirstCharacter) {
  const ScratchFolder folder;
  const struct {
    const char* what;
    const char* text;
    uint64_t first_line;
  } cases[] = {
      {"tab-separated", "id\ta\n7\tx\n", 2},
      {"JSON lines", "{\"id\":7,\"a\":\"x\"}\n", 1},
      {"tab-separated with a byte order mark", "\xEF\xBB\xBFid\ta\n7\tx\n", 2},
      {"JSON lines with a byte order mark", "\xEF\xBB\xBF{\"id\":7,\"a\":\"x\"}\n", 1},
  };
  for (const auto& c : cases) {
    LoadSource source;
    ASSERT_TRUE(source.Open(folder.Write("in", c.text), LoadFormat::kByContent, kKey))
        << c.what << ": " << source.Error();
    EXPECT_EQ(source.CountLines(), 1U) << c.what;
    SourceRecord record;
    ASSERT_EQ(source.Next(record), Result::kRecord) << c.what << ": " << record.reason;
    EXPECT_EQ(record.line, c.first_line) << c.what;
    EXPECT_EQ(record.record.keys[0].value, "7") << c.what;
    EXPECT_EQ(source.Next(record), Result::kEnd) << c.what;
  }
}

TEST(LoadSourceTest, TakesTheFormatThatIsAskedFor) {
  const ScratchFolder folder;
  LoadSource source;
  ASSERT_TRUE(source.Open(folder.Write("in", "{x}\tid\n1\t2\n"), LoadFormat::kTabSeparated, kKey));
  SourceRecord record;
  ASSERT_EQ(source.Next(record), Result::kRecord);
  EXPECT_EQ(record.record.values[0].name, "{x}");
}

TEST(LoadSourceTest, PassesOverEmptyLinesAndCountsThem) {
  const ScratchFolder folder;
  LoadSource source;
  ASSERT_TRUE(source.Open(folder.Write("in", "id\n\n\na\n"), LoadFormat::kByContent, kKey));
  SourceRecord record;
  ASSERT_EQ(source.Next(record), Result::kRecord);
  EXPECT_EQ(record.line, 4U);
  EXPECT_EQ(record.offset, 5U);
}

TEST(LoadSourceTest, CallsALineThatIsTooLongMalformed) {
  const ScratchFolder folder;
  const std::string longer(LineReader::kMaxLineLen + 1, 'x');
  LoadSource source;
  ASSERT_TRUE(
      source.Open(folder.Write("in", "id\n" + longer + "\nb\n"), LoadFormat::kByContent, kKey));
  SourceRecord record;
  ASSERT_EQ(source.Next(record), Result::kMalformed);
  EXPECT_EQ(record.line, 2U);
  EXPECT_EQ(record.reason, "the line is longer than 8388608 bytes");
  ASSERT_EQ(source.Next(record), Result::kRecord);
  EXPECT_EQ(record.line, 3U);
}

TEST(LoadSourceTest, GoesBackToAnyRecord) {
  const ScratchFolder folder;
  LoadSource source;
  ASSERT_TRUE(source.Open(folder.Write("in", "\xEF\xBB\xBF{\"id\":1}\n{\"id\":2}\n"),
                          LoadFormat::kByContent, kKey));
  EXPECT_EQ(source.NextLine(), 1U);
  EXPECT_EQ(source.NextOffset(), 0U);
  SourceRecord record;
  ASSERT_TRUE(source.GoTo(2, 12));
  ASSERT_EQ(source.Next(record), Result::kRecord);
  EXPECT_EQ(record.record.keys[0].value, "2");
  ASSERT_TRUE(source.GoTo(1, 0));
  ASSERT_EQ(source.Next(record), Result::kRecord);
  EXPECT_EQ(record.record.keys[0].value, "1") << "the byte order mark is no part of it";
}

TEST(LoadSourceTest, SaysWhatIsWrongWithTheWholeFile) {
  const ScratchFolder folder;
  const struct {
    const char* text;
    const char* error;
  } cases[] = {
      {"", " is empty: there is nothing to load"},
      {"\nid\n", ":1: the first line is empty; it should name the fields, or be a record"},
      {"a\tb\n", ":1: the header has no field \"id\", which --key names"},
  };
  for (const auto& c : cases) {
    const std::string path = folder.Write("in", c.text);
    LoadSource source;
    EXPECT_FALSE(source.Open(path, LoadFormat::kByContent, kKey));
    EXPECT_EQ(source.Error(), path + c.error);
  }
}

}  // namespace
}  // namespace OstrandCli
