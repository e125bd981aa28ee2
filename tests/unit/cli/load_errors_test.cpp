#include "cli/load_errors.h"

#include <gtest/gtest.h>

#include "unit/cli/scratch_folder.h"

namespace OstrandCli {
namespace {

using Mode = LoadErrors::Mode;

TEST(LoadErrorsTest, ListsErrorsBehindAHeader) {
  const ScratchFolder folder;
  LoadErrors errors;
  ASSERT_TRUE(errors.Open(folder.Path("e"), Mode::kNew));
  EXPECT_FALSE(folder.Has("e")) << "no error, no file";
  EXPECT_TRUE(errors.Add({3, kMalformedCode, "a\ttab"}));
  EXPECT_TRUE(errors.Add({9, "-1293", "exists"}));
  EXPECT_TRUE(errors.Close());
  EXPECT_EQ(folder.Read("e"), "line\tcode\treason\n3\tmalformed\ta tab\n9\t-1293\texists\n");
}

TEST(LoadErrorsTest, BeginsAnewOrGoesOn) {
  const ScratchFolder folder;
  folder.Write("e", "line\tcode\treason\n1\tmalformed\told\n");
  LoadErrors going_on;
  ASSERT_TRUE(going_on.Open(folder.Path("e"), Mode::kContinue));
  EXPECT_TRUE(going_on.Add({2, kMalformedCode, "new"}));
  EXPECT_TRUE(going_on.Close());
  EXPECT_EQ(folder.Read("e"), "line\tcode\treason\n1\tmalformed\told\n2\tmalformed\tnew\n");

  LoadErrors fresh;
  ASSERT_TRUE(fresh.Open(folder.Path("e"), Mode::kNew));
  EXPECT_TRUE(fresh.Close());
  EXPECT_FALSE(folder.Has("e"));
}

TEST(LoadErrorsTest, KeepsInARetryWhatIsStillToBeDone) {
  const ScratchFolder folder;
  folder.Write("e", "line\tcode\treason\n3\tmalformed\ta\n5\t-1\tb\n8\t-2\tc\n");
  LoadErrors errors;
  ASSERT_TRUE(errors.Open(folder.Path("e"), Mode::kRetry));
  EXPECT_EQ(errors.ListedCount(), 3U);
  EXPECT_TRUE(errors.IsListed(5));
  EXPECT_FALSE(errors.IsListed(4));
  errors.Clear(3);
  EXPECT_TRUE(errors.Add({5, "-9", "again"}));
  EXPECT_TRUE(errors.Close());
  EXPECT_EQ(folder.Read("e"), "line\tcode\treason\n5\t-9\tagain\n8\t-2\tc\n");
}

TEST(LoadErrorsTest, RemovesTheListWhenARetryLeavesNothing) {
  const ScratchFolder folder;
  folder.Write("e", "line\tcode\treason\n3\tmalformed\ta\n");
  LoadErrors errors;
  ASSERT_TRUE(errors.Open(folder.Path("e"), Mode::kRetry));
  errors.Clear(3);
  EXPECT_TRUE(errors.Close());
  EXPECT_FALSE(folder.Has("e"));
}

TEST(LoadErrorsTest, RefusesAFileThatIsNoList) {
  const ScratchFolder folder;
  LoadErrors errors;
  EXPECT_FALSE(errors.Open(folder.Write("e", "line\tcode\treason\nthree\tx\ty\n"), Mode::kRetry));
  EXPECT_EQ(errors.Error(),
            folder.Path("e") +
                ":2: not a line of a list of errors (line, code and reason, with tabs between)");
  LoadErrors other;
  EXPECT_FALSE(other.Open(folder.Path("none"), Mode::kRetry));
  EXPECT_NE(other.Error().find("No such file"), std::string::npos);
}

TEST(LoadErrorsTest, NoticesAFullDisk) {
  LoadErrors errors;
  ASSERT_TRUE(errors.Open("/dev/full", Mode::kNew));
  EXPECT_TRUE(errors.Add({3, kMalformedCode, "a"}));
  EXPECT_FALSE(errors.Flush());
  EXPECT_NE(errors.Error().find("No space left"), std::string::npos);
}

TEST(LoadErrorsTest, WritesNothingWithoutAFile) {
  LoadErrors errors;
  ASSERT_TRUE(errors.Open("", Mode::kNone));
  EXPECT_TRUE(errors.Add({3, kMalformedCode, "a"}));
  EXPECT_TRUE(errors.Flush());
  EXPECT_TRUE(errors.Close());
}

}  // namespace
}  // namespace OstrandCli
