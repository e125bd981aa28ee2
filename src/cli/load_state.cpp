#include "cli/load_state.h"

#include <sstream>

namespace OstrandCli {
namespace {

constexpr char kTitle[] = "ostrand-load 1";
constexpr char kEnd[] = "end";  // a text without it is cut

struct Number {
  const char* name;
  uint64_t LoadState::*member;
};
constexpr Number kNumbers[] = {{"line", &LoadState::line}, {"offset", &LoadState::offset}};

struct Count {
  const char* name;
  uint64_t LoadCounts::*member;
};
constexpr Count kCounts[] = {{"loaded", &LoadCounts::loaded},
                             {"failed", &LoadCounts::failed},
                             {"malformed", &LoadCounts::malformed}};

// False when the line is not "name number".
bool ReadNumber(std::istream& lines, const std::string& name, uint64_t& number) {
  std::string word;
  return lines >> word && word == name && lines >> number;
}

bool ReadDone(std::istream& lines, std::set<uint64_t>& done) {
  std::string word;
  while (lines >> word && word == "done") {
    uint64_t line = 0;
    if (!(lines >> line)) {
      return false;
    }
    done.insert(line);
  }
  return word == kEnd;
}

}  // namespace

std::string WriteLoadState(const LoadState& state) {
  std::ostringstream text;
  text << kTitle << "\n" << state.job << "\n";
  for (const Number& number : kNumbers) {
    text << number.name << " " << state.*number.member << "\n";
  }
  text << "checksum " << state.checksum << "\n";
  for (const Count& count : kCounts) {
    text << count.name << " " << state.counts.*count.member << "\n";
  }
  for (const uint64_t line : state.done) {
    text << "done " << line << "\n";
  }
  text << kEnd << "\n";
  return text.str();
}

bool ParseLoadState(const std::string& text, LoadState& state) {
  std::istringstream lines(text);
  LoadState read;
  std::string title;
  if (!std::getline(lines, title) || title != kTitle || !std::getline(lines, read.job)) {
    return false;
  }
  bool is_good = true;
  for (const Number& number : kNumbers) {
    is_good = is_good && ReadNumber(lines, number.name, read.*number.member);
  }
  uint64_t checksum = 0;
  is_good = is_good && ReadNumber(lines, "checksum", checksum) && checksum <= UINT32_MAX;
  read.checksum = static_cast<uint32_t>(checksum);
  for (const Count& count : kCounts) {
    is_good = is_good && ReadNumber(lines, count.name, read.counts.*count.member);
  }
  if (!is_good || !ReadDone(lines, read.done) || read.line < 1 || read.offset > INT64_MAX) {
    return false;
  }
  state = std::move(read);
  return true;
}

}  // namespace OstrandCli
