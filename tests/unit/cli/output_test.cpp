#include "cli/output.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <string>

namespace OstrandCli {
namespace {

TEST(OutputTest, AlignsTheColumnsOfATable) {
  Table table({{"proxy"}, {"share", Table::Align::kRight}, {"note"}});
  table.AddRow({"p0", "12.5 %", "first"});
  table.AddRow({"p10", "7 %"});
  EXPECT_EQ(table.Text(),
            "proxy   share  note\n"
            "p0     12.5 %  first\n"
            "p10       7 %\n");
}

TEST(OutputTest, CountsCharactersAndNotBytes) {
  Table table({{"a"}, {"b"}});
  table.AddRow({"\xc3\xa4\xc3\xb6", "x"});
  table.AddRow({"abc", "y"});
  EXPECT_EQ(table.Text(), "a    b\n\xc3\xa4\xc3\xb6   x\nabc  y\n");
}

TEST(OutputTest, PutsCommasIntoLongNumbers) {
  EXPECT_EQ(WithCommas(0), "0");
  EXPECT_EQ(WithCommas(999), "999");
  EXPECT_EQ(WithCommas(1000), "1,000");
  EXPECT_EQ(WithCommas(1234567), "1,234,567");
}

TEST(OutputTest, WritesTimesForPeople) {
  EXPECT_EQ(FormatDuration(0), "0 s");
  EXPECT_EQ(FormatDuration(0.2), "1 s");
  EXPECT_EQ(FormatDuration(59), "59 s");
  EXPECT_EQ(FormatDuration(60), "1 min 00 s");
  EXPECT_EQ(FormatDuration(185), "3 min 05 s");
  EXPECT_EQ(FormatDuration(7620), "2 h 07 min");
  EXPECT_EQ(FormatDuration(-1), "0 s");
}

TEST(OutputTest, SaysWhatToDoAboutAFullDisk) {
  EXPECT_EQ(FileError("cannot write x", ENOSPC),
            "cannot write x: No space left on device (make room there, or name a file on another "
            "disk)");
  EXPECT_EQ(FileError("cannot read x", ENOENT),
            "cannot read x: No such file or directory (check the path)");
  EXPECT_EQ(FileError("cannot read x", EIO), "cannot read x: Input/output error");
}

TEST(OutputProgressTest, ShowsBarRateAndTimeLeft) {
  EXPECT_EQ(ProgressText("load", "records", 5000, 10000, 2.0),
            "load [########........] 50 %  5,000 of 10,000 records  2,500/s  2 s left");
  EXPECT_EQ(ProgressText("load", "records", 10000, 10000, 4.0),
            "load [################] 100 %  10,000 of 10,000 records  2,500/s");
}

TEST(OutputProgressTest, DoesWithoutATotal) {
  EXPECT_EQ(ProgressText("load", "records", 5000, 0, 2.0), "load 5,000 records  2,500/s");
}

TEST(OutputProgressTest, StandsWhenMoreThanTheTotalIsDone) {
  EXPECT_EQ(ProgressText("load", "records", 3, 2, 1.0),
            "load [################] 100 %  3 of 2 records  3/s");
}

std::string Written(std::FILE* file) {
  std::string text(4096, '\0');
  std::rewind(file);
  text.resize(std::fread(text.data(), 1, text.size(), file));
  return text;
}

TEST(OutputProgressTest, WritesOneLineAtTheEndOfAShortWork) {
  std::FILE* const file = std::tmpfile();
  ProgressLine progress("work", 0, "steps", file, false);
  progress.Update(1);
  progress.Finish(2, "done");
  const std::string text = Written(file);
  EXPECT_EQ(text.substr(0, 13), "work 2 steps ");
  EXPECT_EQ(text.substr(text.size() - 6), " done\n");
  EXPECT_EQ(text.find('\r'), std::string::npos);
  std::fclose(file);
}

TEST(OutputProgressTest, WritesOverTheLineOnATerminal) {
  std::FILE* const file = std::tmpfile();
  ProgressLine progress("work", 0, "steps", file, true);
  progress.Finish(2);
  EXPECT_EQ(Written(file)[0], '\r');
  std::fclose(file);
}

}  // namespace
}  // namespace OstrandCli
