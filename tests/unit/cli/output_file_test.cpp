#include <gtest/gtest.h>
#include <sys/stat.h>

#include "cli/output.h"
#include "unit/cli/scratch_folder.h"

namespace OstrandCli {
namespace {

TEST(OutputFileTest, WritesAndContinues) {
  const ScratchFolder folder;
  OutputFile first;
  ASSERT_TRUE(first.Open(folder.Path("a")));
  EXPECT_TRUE(first.Write("one\n"));
  EXPECT_TRUE(first.Close());
  OutputFile second;
  ASSERT_TRUE(second.Open(folder.Path("a"), "a"));
  EXPECT_TRUE(second.Write("two\n"));
  EXPECT_TRUE(second.Close());
  EXPECT_EQ(folder.Read("a"), "one\ntwo\n");
}

TEST(OutputFileTest, NoticesAFullDiskWhenItFlushes) {
  OutputFile file;
  ASSERT_TRUE(file.Open("/dev/full"));
  EXPECT_TRUE(file.Write("text"));  // into the buffer
  EXPECT_FALSE(file.Flush());
  EXPECT_EQ(file.Error(),
            "cannot write /dev/full: No space left on device (make room there, or name a file on "
            "another disk)");
}

TEST(OutputFileTest, NoticesAFullDiskWhenItCloses) {
  OutputFile file;
  ASSERT_TRUE(file.Open("/dev/full"));
  EXPECT_TRUE(file.Write("text"));
  EXPECT_FALSE(file.Close());
}

TEST(OutputFileTest, SaysThatAFolderIsMissing) {
  const ScratchFolder folder;
  const std::string path = folder.Path("no/file");
  OutputFile file;
  EXPECT_FALSE(file.Open(path));
  EXPECT_EQ(file.Error(), "cannot write " + path + ": No such file or directory (check the path)");
}

TEST(WriteFileTest, ReplacesTheWholeFileAndLeavesNothingBeside) {
  const ScratchFolder folder;
  folder.Write("a", "a long old text");
  std::string error;
  EXPECT_TRUE(WriteFile(folder.Path("a"), "new", error)) << error;
  EXPECT_EQ(folder.Read("a"), "new");
  EXPECT_FALSE(folder.Has("a.new"));
}

TEST(WriteFileTest, WritesADeviceAsItIs) {
  std::string error;
  EXPECT_TRUE(WriteFile("/dev/null", "text", error)) << error;
  EXPECT_FALSE(WriteFile("/dev/full", "text", error));
  EXPECT_NE(error.find("No space left"), std::string::npos);
  struct stat status {};
  ASSERT_EQ(stat("/dev/full", &status), 0);
  EXPECT_TRUE(S_ISCHR(status.st_mode));
}

TEST(ReadFileTest, ReadsAllOrSaysWhyNot) {
  const ScratchFolder folder;
  const std::string path = folder.Write("a", "12345");
  std::string text;
  std::string error;
  EXPECT_TRUE(ReadFile(path, 5, text, error)) << error;
  EXPECT_EQ(text, "12345");
  EXPECT_FALSE(ReadFile(path, 4, text, error));
  EXPECT_EQ(error, "cannot read " + path + ": it is larger than 4 bytes");
  EXPECT_FALSE(ReadFile(folder.Path("b"), 4, text, error));
  EXPECT_NE(error.find("No such file"), std::string::npos);
}

}  // namespace
}  // namespace OstrandCli
