#include "cli/output.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

namespace OstrandCli {
namespace {

struct Advice {
  int error_number;
  const char* text;
};

// clang-format off
constexpr Advice kAdvice[] = {
    {ENOSPC, "make room there, or name a file on another disk"},
    {EDQUOT, "make room there, or name a file on another disk"},
    {ENOENT, "check the path"},
    {ENOTDIR, "check the path"},
    {EISDIR, "name a file, not a folder"},
    {EACCES, "check who may read and write it"},
    {EPERM, "check who may read and write it"},
    {EROFS, "name a file on another disk"},
    {EPIPE, "whoever was to read it has gone"},
};
// clang-format on

constexpr size_t kColumnGap = 2;

// Characters that UTF-8 text has; bytes for text that is none.
size_t WidthOf(const std::string& text) {
  const auto continues = [](char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
  };
  const auto continuing = std::count_if(text.begin(), text.end(), continues);
  return text.size() - (IsUtf8(text) ? static_cast<size_t>(continuing) : 0);
}

}  // namespace

void PrintError(const std::string& sentence) {
  std::fprintf(stderr, "ostrand: %s\n", sentence.c_str());
}

void PrintRemark(const std::string& sentence) { PrintError(sentence); }

std::string FileError(const std::string& what, int error_number) {
  std::string text = what + ": " + std::strerror(error_number);
  for (const Advice& advice : kAdvice) {
    if (advice.error_number == error_number) {
      return text + " (" + advice.text + ")";
    }
  }
  return text;
}

bool WriteStdout(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) {
    return true;
  }
  PrintError(FileError("cannot write to standard output", errno));
  return false;
}

void Table::AddRow(std::vector<std::string> cells) {
  cells.resize(m_columns.size());
  m_rows.push_back(std::move(cells));
}

std::string Table::Text() const {
  std::vector<std::string> titles;
  std::vector<size_t> widths;
  for (const Column& column : m_columns) {
    titles.push_back(column.title);
    widths.push_back(WidthOf(column.title));
  }
  for (const std::vector<std::string>& row : m_rows) {
    for (size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], WidthOf(row[i]));
    }
  }
  std::string text;
  const auto add_line = [this, &widths, &text](const std::vector<std::string>& cells) {
    std::string line;
    for (size_t i = 0; i < cells.size(); ++i) {
      const std::string blanks(widths[i] - WidthOf(cells[i]), ' ');
      line += std::string(i == 0 ? 0 : kColumnGap, ' ');
      line += m_columns[i].align == Align::kRight ? blanks + cells[i] : cells[i] + blanks;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  };
  add_line(titles);
  std::for_each(m_rows.begin(), m_rows.end(), add_line);
  return text;
}

std::string WithCommas(uint64_t number) {
  std::string text = std::to_string(number);
  for (size_t i = text.size(); i > 3; i -= 3) {
    text.insert(i - 3, ",");
  }
  return text;
}

std::string FormatReal(double number, int decimals) {
  char text[400];
  std::snprintf(text, sizeof(text), "%.*f", decimals, number);
  return text;
}

std::string FormatDuration(double seconds) {
  const auto total = static_cast<int64_t>(std::ceil(std::clamp(seconds, 0.0, 1e9)));
  char text[64];
  if (total < 60) {
    std::snprintf(text, sizeof(text), "%d s", static_cast<int>(total));
  } else if (total < 3600) {
    std::snprintf(text, sizeof(text), "%d min %02d s", static_cast<int>(total / 60),
                  static_cast<int>(total % 60));
  } else {
    std::snprintf(text, sizeof(text), "%d h %02d min", static_cast<int>(total / 3600),
                  static_cast<int>(total % 3600 / 60));
  }
  return text;
}

}  // namespace OstrandCli
