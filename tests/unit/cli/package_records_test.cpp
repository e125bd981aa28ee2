// Reading stanzas of package records, good and malformed ones.
#include "cli/package_records.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

namespace OstrandCli {
namespace {

class PackageRecordsTest : public testing::Test {
 protected:
  bool Read(std::string text, PackageReadOptions options = {}) {
    text += text.empty() ? "\n" : "";  // a file of memory is not empty
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
        fmemopen(text.data(), text.size(), "r"), std::fclose);
    reading = PackageReading();
    error.clear();
    return ReadPackages(file.get(), options, reading, error);
  }

  PackageReading reading;
  std::string error;
};

TEST_F(PackageRecordsTest, ReadsTheFieldsThatAreWantedAndNoOthers) {
  ASSERT_TRUE(
      Read("Package: zlib1g\n"
           "Version: 1:1.2.13\n"
           "Depends: libc6 (>= 2.14)\n"
           " ,something\n"
           "Description: compression library\n"
           " first line\n"
           " .\n"
           "\tlast: line\n"
           "Description-md5: 567f396aeeb2b2b63295099aed237057\n"
           "Section:libs\n"
           "Installed-Size: 168\n"
           "Size: 86720\n"
           "\n"
           "package:\t tiny \n"
           "VERSION: 0\n"))
      << error;
  ASSERT_EQ(2u, reading.records.size());
  EXPECT_EQ("zlib1g", reading.records[0].name);
  EXPECT_EQ("1:1.2.13", reading.records[0].version);
  EXPECT_EQ("libs", reading.records[0].section);
  EXPECT_EQ(86720u, reading.records[0].size);
  EXPECT_EQ("compression library\nfirst line\n.\nlast: line", reading.records[0].description);
  EXPECT_EQ("tiny", reading.records[1].name);
  EXPECT_EQ("0", reading.records[1].version);
  EXPECT_EQ("", reading.records[1].section);
  EXPECT_EQ(0u, reading.records[1].size);
}

TEST_F(PackageRecordsTest, StanzasEndWithEmptyLinesOrTheFile) {
  for (const char* text : {"Package: a\nVersion: 1\n\nPackage: b\nVersion: 1\n",
                           "Package: a\nVersion: 1\n\nPackage: b\nVersion: 1",
                           "\n\nPackage: a\nVersion: 1\n\n\n\nPackage: b\nVersion: 1\n\n\n",
                           "Package: a\r\nVersion: 1\r\n\r\nPackage: b\r\nVersion: 1\r\n"}) {
    EXPECT_TRUE(Read(text)) << error;
    ASSERT_EQ(2u, reading.records.size()) << text;
    EXPECT_EQ("b", reading.records[1].name);
    EXPECT_EQ("1", reading.records[1].version);
  }
  EXPECT_TRUE(Read(""));
  EXPECT_TRUE(reading.records.empty());
}

TEST_F(PackageRecordsTest, KeepsTheFirstOfARepeatedKeyAndCountsTheOthers) {
  ASSERT_TRUE(
      Read("Package: a\nVersion: 1\nSize: 1\n\nPackage: a\nVersion: 1\nSize: 2\n\n"
           "Package: a\nVersion: 2\nSize: 3\n"));
  ASSERT_EQ(2u, reading.records.size());
  EXPECT_EQ(1u, reading.records[0].size);
  EXPECT_EQ(3u, reading.records[1].size);
  EXPECT_EQ(1u, reading.repeated);
}

TEST_F(PackageRecordsTest, StopsWithoutAWordAtTheNumberThatWasAskedFor) {
  PackageReadOptions options;
  options.max_records = 1;
  EXPECT_TRUE(Read("Package: a\nVersion: 1\n\nPackage: b\nVersion: 1\n\nnonsense\n", options));
  EXPECT_EQ(1u, reading.records.size());
  options.max_records = 0;
  EXPECT_TRUE(Read("nonsense\n", options));
  EXPECT_TRUE(reading.records.empty());
}

TEST_F(PackageRecordsTest, SaysWhichLineIsMalformedAndWhy) {
  const std::string good = "Package: a\nVersion: 1\n\n";
  const struct {
    std::string stanza;
    const char* fault;
  } kCases[] = {
      {"Package: b\nno colon\nVersion: 1\n", "line 5: it is not of the form \"Field: value\""},
      {": b\n", "line 4: it is not of the form \"Field: value\""},
      {" b\n", "line 4: it goes on with a field, but none stands before it"},
      {"Package: b\nSize: much\nVersion: 1\n", "line 5: the size is not a number of bytes"},
      {"Package: b\nSize: -1\nVersion: 1\n", "line 5: the size is not a number of bytes"},
      {"Version: 1\n", "line 4: the stanza that begins here has no Package"},
      {"Package: b\nSize: 1\n", "line 4: the stanza that begins here has no Version"},
      {"Package: b\nVersion:\n", "line 4: the stanza that begins here has no Version"},
      {"Package: " + std::string(256, 'b') + "\nVersion: 1\n",
       "line 4: the stanza that begins here has over 255 bytes of Package"},
      {"Package: b\nVersion: 1\nDescription: " + std::string(65537, 'b') + "\n",
       "line 4: the stanza that begins here has over 65536 bytes of Description"},
      {"Package: b\nVersion: 1\nX: " + std::string(1 << 20, 'b') + "\n",
       "line 6: it is longer than 1 MiB"},
      {std::string("Package: b\nVersion: 1") + '\0' + "\n",
       "line 4: the stanza that begins here has a NUL in its Version"},
  };
  for (const auto& c : kCases) {
    EXPECT_FALSE(Read(good + c.stanza + "\nPackage: c\nVersion: 1\n"));
    EXPECT_EQ(c.fault, error);
    EXPECT_EQ(1u, reading.records.size());

    PackageReadOptions options;
    options.skip_malformed = true;
    EXPECT_TRUE(Read(good + c.stanza + "\nPackage: c\nVersion: 1\n", options)) << c.fault;
    ASSERT_EQ(2u, reading.records.size()) << c.fault;
    EXPECT_EQ("c", reading.records[1].name);
    EXPECT_EQ(std::vector<std::string>{c.fault}, reading.malformed);
  }
}

TEST_F(PackageRecordsTest, TakesTheLongestTextsThatItAllows) {
  ASSERT_TRUE(Read("Package: " + std::string(255, 'b') + "\nVersion: " + std::string(255, '1') +
                   "\nDescription: " + std::string(65536, 'd') + "\n"))
      << error;
  EXPECT_EQ(65536u, reading.records.at(0).description.size());
}

TEST_F(PackageRecordsTest, AFileThatIsNotThereOrHasNothingToTellIsRefused) {
  EXPECT_FALSE(ReadPackageFile("/nowhere/packages", {}, reading, error));
  EXPECT_NE(std::string::npos, error.find("/nowhere/packages")) << error;
  error.clear();
  EXPECT_FALSE(ReadPackageFile("/dev/null", {}, reading, error));
  EXPECT_NE(std::string::npos, error.find("/dev/null has no stanza")) << error;
}

}  // namespace
}  // namespace OstrandCli
