#include "cli/load_state.h"

#include <gtest/gtest.h>

namespace OstrandCli {
namespace {

constexpr char kText[] =
    "ostrand-load 1\n"
    "table t, key a b\n"
    "line 12\n"
    "offset 340\n"
    "checksum 4294967295\n"
    "loaded 9\n"
    "failed 1\n"
    "malformed 2\n"
    "done 14\n"
    "done 15\n"
    "end\n";

TEST(LoadStateTest, IsWrittenAndReadBack) {
  LoadState state;
  state.job = "table t, key a b";
  state.line = 12;
  state.offset = 340;
  state.checksum = 0xFFFFFFFF;
  state.counts = {9, 1, 2};
  state.done = {14, 15};
  EXPECT_EQ(WriteLoadState(state), kText);

  LoadState read;
  ASSERT_TRUE(ParseLoadState(kText, read));
  EXPECT_EQ(read.job, "table t, key a b");
  EXPECT_EQ(read.line, 12U);
  EXPECT_EQ(read.offset, 340U);
  EXPECT_EQ(read.checksum, 0xFFFFFFFF);
  EXPECT_EQ(read.counts.loaded, 9U);
  EXPECT_EQ(read.counts.failed, 1U);
  EXPECT_EQ(read.counts.malformed, 2U);
  EXPECT_EQ(read.done, std::set<uint64_t>({14, 15}));
}

TEST(LoadStateTest, RefusesATextThatIsCutAnywhere) {
  const std::string text = kText;
  for (size_t size = 0; size + 1 < text.size(); ++size) {  // the last line feed may be missing
    LoadState state;
    EXPECT_FALSE(ParseLoadState(text.substr(0, size), state)) << size;
    EXPECT_TRUE(state.job.empty());
  }
}

TEST(LoadStateTest, RefusesWhatNoLoadWrites) {
  const struct {
    const char* from;
    const char* to;
  } changes[] = {
      {"ostrand-load 1", "ostrand-load 2"},
      {"line 12", "line 0"},
      {"line 12", "lines 12"},
      {"offset 340", "offset x"},
      {"offset 340", "offset 9223372036854775808"},
      {"checksum 4294967295", "checksum 4294967296"},
      {"done 14", "gone 14"},
  };
  for (const auto& change : changes) {
    std::string text = kText;
    text.replace(text.find(change.from), std::string(change.from).size(), change.to);
    LoadState state;
    EXPECT_FALSE(ParseLoadState(text, state)) << change.to;
  }
}

}  // namespace
}  // namespace OstrandCli
