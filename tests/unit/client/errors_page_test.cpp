// docs/errors.md has the codes, names and texts of AllErrors, each with advice: rows of
//   | code | `name`, or nothing when the name is the number | text | what to do |
// under a heading for each origin.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "client/error_text.h"

namespace OstrandService {
namespace {

constexpr char kPage[] = OSTRAND_SOURCE_DIR "/docs/errors.md";

using Cells = std::vector<std::string>;
using Sections = std::map<std::string, std::vector<Cells>>;

std::string HeadingOf(ErrorOrigin origin) {
  switch (origin) {
    case ErrorOrigin::kLibrary: return "Library";
    case ErrorOrigin::kFrame: return "Packages";
    case ErrorOrigin::kDirectory: return "The directory's packages";
    case ErrorOrigin::kSchema: return "Schemas";
    case ErrorOrigin::kProxy: return "Proxies";
    case ErrorOrigin::kServer: return "Servers";
  }
  return "?";
}

std::string Trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? std::string()
                                    : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// "| a | b |" is a, b.
Cells CellsOf(const std::string& row) {
  Cells cells;
  std::istringstream stream(row.substr(1));
  for (std::string cell; std::getline(stream, cell, '|');) {
    cells.push_back(Trimmed(cell));
  }
  return cells;
}

// The rows with a code, by the heading that they stand under.
Sections ReadPage() {
  std::ifstream page(kPage);
  EXPECT_TRUE(page.is_open()) << kPage;
  Sections sections;
  std::string heading;
  for (std::string line; std::getline(page, line);) {
    if (line.rfind("## ", 0) == 0) {
      heading = line.substr(3);
    } else if (line.rfind("| -", 0) == 0) {
      sections[heading].push_back(CellsOf(line));
    }
  }
  return sections;
}

// Code, name and text as the page writes them.
Cells ExpectedCells(const ErrorEntry& entry) {
  const std::string code = std::to_string(entry.code);
  return {code, entry.name == code ? "" : "`" + std::string(entry.name) + "`", entry.text};
}

TEST(ErrorsPage, HasEveryCodeWithItsNameAndTextUnderItsOriginAndNoOther) {
  Sections expected;
  size_t count = 0;
  const ErrorEntry* const entries = AllErrors(count);
  for (size_t i = 0; i < count; ++i) {
    expected[HeadingOf(entries[i].origin)].push_back(ExpectedCells(entries[i]));
  }
  Sections found = ReadPage();
  for (auto& [heading, rows] : found) {
    for (Cells& row : rows) {
      row.resize(3);
    }
    EXPECT_EQ(expected[heading], rows) << heading;
  }
  EXPECT_EQ(expected.size(), found.size());
}

TEST(ErrorsPage, SaysWhatToDoAboutEachCode) {
  for (const auto& [heading, rows] : ReadPage()) {
    for (const Cells& row : rows) {
      ASSERT_EQ(4U, row.size()) << row[0];
      EXPECT_LT(10U, row[3].size()) << row[0];
      EXPECT_EQ('.', row[3].back()) << row[0];
    }
  }
}

}  // namespace
}  // namespace OstrandService
