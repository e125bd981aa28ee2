#include "cli/line_reader.h"

#include <gtest/gtest.h>

#include "unit/cli/scratch_folder.h"

namespace OstrandCli {
namespace {

using Result = LineReader::Result;

TEST(LineReaderTest, KnowsNumberAndPlaceOfEachLine) {
  const ScratchFolder folder;
  LineReader reader;
  ASSERT_TRUE(reader.Open(folder.Write("a", "one\r\n\ntwo\nlast")));
  EXPECT_TRUE(reader.IsOrdinary());
  const struct {
    uint64_t number;
    uint64_t offset;
    const char* text;
  } expected[] = {{1, 0, "one"}, {2, 5, ""}, {3, 6, "two"}, {4, 10, "last"}};
  for (const auto& line : expected) {
    EXPECT_EQ(reader.NextLine(), line.number);
    EXPECT_EQ(reader.NextOffset(), line.offset);
    std::string text;
    EXPECT_EQ(reader.Next(text), Result::kLine);
    EXPECT_EQ(text, line.text);
  }
  std::string text;
  EXPECT_EQ(reader.Next(text), Result::kEnd);
  EXPECT_EQ(reader.NextOffset(), 14U);
}

TEST(LineReaderTest, CutsALineThatIsTooLongAndGoesOnBehindIt) {
  const ScratchFolder folder;
  const std::string longest(LineReader::kMaxLineLen, 'a');
  LineReader reader;
  ASSERT_TRUE(reader.Open(folder.Write("a", longest + "\n" + longest + "b\nnext\n")));
  std::string text;
  EXPECT_EQ(reader.Next(text), Result::kLine);
  EXPECT_EQ(text.size(), LineReader::kMaxLineLen);
  EXPECT_EQ(reader.Next(text), Result::kTooLong);
  EXPECT_EQ(reader.NextLine(), 3U);
  EXPECT_EQ(reader.Next(text), Result::kLine);
  EXPECT_EQ(text, "next");
}

TEST(LineReaderTest, GoesToAPlace) {
  const ScratchFolder folder;
  LineReader reader;
  ASSERT_TRUE(reader.Open(folder.Write("a", "one\ntwo\nthree\n")));
  std::string text;
  ASSERT_EQ(reader.Next(text), Result::kLine);
  ASSERT_TRUE(reader.Seek(3, 8));
  EXPECT_EQ(reader.NextLine(), 3U);
  EXPECT_EQ(reader.Next(text), Result::kLine);
  EXPECT_EQ(text, "three");
  EXPECT_EQ(reader.NextOffset(), 14U);
}

TEST(LineReaderTest, CountsTheLinesThatAreLeft) {
  const ScratchFolder folder;
  LineReader reader;
  ASSERT_TRUE(reader.Open(folder.Write("a", "one\ntwo\nthree")));
  EXPECT_EQ(reader.CountLines(), 3U);
  std::string text;
  ASSERT_EQ(reader.Next(text), Result::kLine);
  EXPECT_EQ(reader.CountLines(), 2U);
  EXPECT_EQ(reader.Next(text), Result::kLine);
  EXPECT_EQ(text, "two");
}

TEST(LineReaderTest, ChecksumsTheBytesBeforeAPlace) {
  const ScratchFolder folder;
  LineReader reader;
  ASSERT_TRUE(reader.Open(folder.Write("a", "123456789abc" + std::string(5000, 'x'))));
  uint32_t checksum = 0;
  ASSERT_TRUE(reader.ChecksumBefore(9, checksum));
  EXPECT_EQ(checksum, 0xCBF43926U);  // of "123456789"
  ASSERT_TRUE(reader.ChecksumBefore(0, checksum));
  EXPECT_EQ(checksum, 0U);
  LineReader other;
  ASSERT_TRUE(other.Open(folder.Write("b", "different..." + std::string(5000, 'x'))));
  uint32_t other_checksum = 0;
  ASSERT_TRUE(reader.ChecksumBefore(5012, checksum));
  ASSERT_TRUE(other.ChecksumBefore(5012, other_checksum));
  EXPECT_EQ(checksum, other_checksum) << "only the last 4096 bytes count";
}

TEST(LineReaderTest, SaysWhyAFileCannotBeRead) {
  const ScratchFolder folder;
  LineReader reader;
  EXPECT_FALSE(reader.Open(folder.Path("none")));
  EXPECT_EQ(reader.Error(),
            "cannot read " + folder.Path("none") + ": No such file or directory (check the path)");
  LineReader other;
  EXPECT_FALSE(other.Open(folder.Path("")));
  EXPECT_NE(other.Error().find("name a file, not a folder"), std::string::npos);
}

}  // namespace
}  // namespace OstrandCli
