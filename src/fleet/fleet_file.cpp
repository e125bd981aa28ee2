#include "fleet/fleet_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <vector>

namespace OstrandFleet {
namespace {

constexpr size_t kMaxFileLen = 1024 * 1024;
constexpr size_t kMaxUrlLen = 63;
constexpr size_t kMaxIdLen = 32;

using Words = std::vector<std::string_view>;

Words SplitWords(std::string_view line) {
  constexpr std::string_view kBlanks = " \t\r";
  Words words;
  line = line.substr(0, line.find('#'));
  for (;;) {
    const size_t begin = line.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) {
      return words;
    }
    line.remove_prefix(begin);
    const size_t end = std::min(line.find_first_of(kBlanks), line.size());
    words.push_back(line.substr(0, end));
    line.remove_prefix(end);
  }
}

// Parses line after line; every operation answers what is wrong with the line, or null.
class Parser {
 public:
  const char* ParseLine(const Words& words) {
    struct Keyword {
      std::string_view word;
      size_t min_words;
      size_t max_words;
      const char* (Parser::*parse)(const Words&);
    };
    static constexpr Keyword kKeywords[] = {
        {"zone", 2, 2, &Parser::ParseZone},   {"proxy", 2, 3, &Parser::ParseProxy},
        {"fault", 3, 4, &Parser::ParseFault}, {"down", 2, 2, &Parser::ParseDown},
        {"stop", 2, 2, &Parser::ParseStop},
    };
    for (const Keyword& keyword : kKeywords) {
      if (words[0] == keyword.word) {
        const bool fits = words.size() >= keyword.min_words && words.size() <= keyword.max_words;
        return fits ? (this->*keyword.parse)(words) : "too few or too many words";
      }
    }
    return "it begins with none of zone, proxy, fault, down, stop";
  }

  const FleetFile& file() const { return m_file; }

 private:
  const char* ParseZone(const Words& words) {
    int64_t zone = 0;
    if (!ParseNumber(words[1], zone) || zone < INT32_MIN || zone > INT32_MAX) {
      return "the zone is not a number";
    }
    m_route = &m_file.routes[static_cast<int32_t>(zone)];
    return nullptr;
  }

  const char* ParseProxy(const Words& words) {
    if (m_route == nullptr) {
      return "no zone line stands before it";
    }
    const std::string id =
        words.size() > 2 ? std::string(words[2]) : "proxy-" + std::to_string(m_route->size());
    if (words[1].size() > kMaxUrlLen || id.size() > kMaxIdLen) {
      return "the address has over 63 characters, or the id over 32";
    }
    m_route->push_back({std::string(words[1]), id});
    return nullptr;
  }

  const char* ParseFault(const Words& words) {
    const std::string_view value = words.size() > 3 ? words[3] : std::string_view();
    if (words[1] == "directory") {
      return ParseDirectory(words[2], value);
    }
    return SetSwitch(m_file.faults[std::string(words[1])], words[2], value)
               ? nullptr
               : "there is no such switch, or it does not take this value";
  }

  const char* ParseDirectory(std::string_view name, std::string_view value) {
    const bool good = ParseDirectoryFault(name, m_file.directory_fault) &&
                      (value.empty() || ParseNumber(value, m_file.directory_fault_value));
    return good ? nullptr : "there is no such fault, or it does not take this value";
  }

  const char* ParseDown(const Words& words) {
    m_file.down.emplace(words[1]);
    return nullptr;
  }

  const char* ParseStop(const Words& words) {
    m_file.stopped.emplace(words[1]);
    return nullptr;
  }

  FleetFile m_file;
  Route* m_route = nullptr;  // of the zone line before
};

}  // namespace

bool ParseFleetFile(std::string_view text, FleetFile& file, std::string& error) {
  Parser parser;
  for (size_t number = 1; !text.empty(); ++number) {
    const size_t end = std::min(text.find('\n'), text.size());
    const Words words = SplitWords(text.substr(0, end));
    if (!words.empty()) {
      if (const char* fault = parser.ParseLine(words)) {
        error = "line " + std::to_string(number) + ": " + fault;
        return false;
      }
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  file = parser.file();
  return true;
}

std::string WriteFleetFile(int32_t zone, const Route& route) {
  std::string text =
      "# The proxies of each zone; change it while the fleet runs. docs/fleet.md says what else\n"
      "# may stand here.\nzone " +
      std::to_string(zone) + "\n";
  for (const RouteRow& row : route) {
    text += "proxy " + row.url + " " + row.id + "\n";
  }
  return text;
}

bool ReadTextFile(const std::string& path, std::string& text) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return false;
  }
  text.clear();
  char buffer[4096];
  ssize_t len = 0;
  do {
    len = read(fd, buffer, sizeof(buffer));
    text.append(buffer, static_cast<size_t>(std::max<ssize_t>(len, 0)));
  } while ((len > 0 && text.size() <= kMaxFileLen) || (len < 0 && errno == EINTR));
  close(fd);
  return len == 0;
}

}  // namespace OstrandFleet
