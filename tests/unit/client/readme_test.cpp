// The program that the README shows is the one that is compiled and run as an example.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream file(OSTRAND_SOURCE_DIR "/" + path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

TEST(Readme, ShowsTheExampleThatIsCompiledAndRun) {
  const std::string readme = ReadFile("README.md");
  const std::string example = ReadFile("examples/readme.cpp");
  ASSERT_FALSE(example.empty());
  EXPECT_NE(std::string::npos, readme.find("```cpp\n" + example + "```\n"));
}

}  // namespace
