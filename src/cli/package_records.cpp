#include "cli/package_records.h"

#include <strings.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <unordered_set>

#include "cli/output.h"
#include "fleet/proxy_faults.h"

namespace OstrandCli {
namespace {

constexpr size_t kMaxLineBytes = size_t{1} << 20;

// Lines of a file, without their ends.
class StanzaLines {
 public:
  explicit StanzaLines(std::FILE* file) : m_file(file) {}
  ~StanzaLines() { std::free(m_buffer); }
  StanzaLines(const StanzaLines&) = delete;
  StanzaLines& operator=(const StanzaLines&) = delete;

  // False behind the last line and when reading fails.
  bool Next(std::string_view& line) {
    const ssize_t len = getline(&m_buffer, &m_room, m_file);
    if (len < 0) {
      return false;
    }
    line = {m_buffer, static_cast<size_t>(len)};
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) {
      line.remove_suffix(1);
    }
    ++m_number;
    return true;
  }
  size_t Number() const { return m_number; }

 private:
  std::FILE* const m_file;
  char* m_buffer = nullptr;
  size_t m_room = 0;
  size_t m_number = 0;
};

std::string_view Trim(std::string_view text) {
  const size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string_view::npos) {
    return {};
  }
  return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

// One stanza while its lines come. What is wrong with it is kept until its end.
class Stanza {
 public:
  bool IsEmpty() const { return m_first_line == 0; }
  const std::string& Fault() const { return m_fault; }
  PackageRecord& Record() { return m_record; }

  void AddLine(std::string_view line, size_t number) {
    m_first_line = m_first_line != 0 ? m_first_line : number;
    if (line.size() > kMaxLineBytes) {
      Blame(number, "it is longer than 1 MiB");
    } else if (line[0] == ' ' || line[0] == '\t') {
      AddContinuation(line, number);
    } else {
      AddField(line, number);
    }
  }

  // Looks at the stanza as a whole.
  void Check() {
    const struct {
      const char* field;
      const std::string& text;
      size_t min;
      size_t max;
    } kLimits[] = {
        {"Package", m_record.name, 1, kMaxPackageKeyBytes},
        {"Version", m_record.version, 1, kMaxPackageKeyBytes},
        {"Section", m_record.section, 0, kMaxPackageTextBytes},
        {"Description", m_record.description, 0, kMaxPackageTextBytes},
    };
    for (const auto& limit : kLimits) {
      if (limit.text.size() < limit.min) {
        Blame(m_first_line, std::string("the stanza that begins here has no ") + limit.field);
      } else if (limit.text.size() > limit.max) {
        Blame(m_first_line, std::string("the stanza that begins here has over ") +
                                std::to_string(limit.max) + " bytes of " + limit.field);
      } else if (limit.text.find('\0') != std::string::npos) {
        Blame(m_first_line,
              std::string("the stanza that begins here has a NUL in its ") + limit.field);
      }
    }
  }

 private:
  void Blame(size_t number, const std::string& reason) {
    if (m_fault.empty()) {
      m_fault = "line " + std::to_string(number) + ": " + reason;
    }
  }

  void AddContinuation(std::string_view line, size_t number) {
    if (!m_has_field) {
      Blame(number, "it goes on with a field, but none stands before it");
    } else if (m_text != nullptr) {
      m_text->append("\n").append(Trim(line));
    }
  }

  void AddField(std::string_view line, size_t number) {
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0) {
      Blame(number, "it is not of the form \"Field: value\"");
      return;
    }
    const std::string name(line.substr(0, colon));
    const std::string_view value = Trim(line.substr(colon + 1));
    m_has_field = true;
    m_text = TextOf(name);
    if (m_text != nullptr) {
      *m_text = value;
    } else if (strcasecmp(name.c_str(), "Size") == 0 && !ParseSize(value)) {
      Blame(number, "the size is not a number of bytes");
    }
  }

  // Where a field's text goes; null for fields that nobody wants as text.
  std::string* TextOf(const std::string& name) {
    const struct {
      const char* name;
      std::string* text;
    } kTexts[] = {{"Package", &m_record.name},
                  {"Version", &m_record.version},
                  {"Section", &m_record.section},
                  {"Description", &m_record.description}};
    for (const auto& text : kTexts) {
      if (strcasecmp(name.c_str(), text.name) == 0) {
        return text.text;
      }
    }
    return nullptr;
  }

  bool ParseSize(std::string_view value) {
    int64_t number = 0;
    if (!OstrandFleet::ParseNumber(value, number) || number < 0) {
      return false;
    }
    m_record.size = static_cast<uint64_t>(number);
    return true;
  }

  PackageRecord m_record;
  std::string* m_text = nullptr;  // of the field before; null: it is not kept
  bool m_has_field = false;
  size_t m_first_line = 0;  // 0: no line came yet
  std::string m_fault;
};

// Takes whole stanzas.
class Collector {
 public:
  Collector(const PackageReadOptions& options, PackageReading& reading)
      : m_options(options), m_reading(reading) {}

  // False: the reading ends; Error says why, when something is wrong.
  bool Take(Stanza& stanza) {
    if (stanza.IsEmpty()) {
      return true;
    }
    stanza.Check();
    if (!stanza.Fault().empty()) {
      m_reading.malformed.push_back(stanza.Fault());
      error = m_options.skip_malformed ? "" : stanza.Fault();
      return m_options.skip_malformed;
    }
    PackageRecord& record = stanza.Record();
    if (!m_keys.insert(record.name + '\0' + record.version).second) {
      ++m_reading.repeated;
      return true;
    }
    m_reading.records.push_back(std::move(record));
    return m_reading.records.size() < m_options.max_records;
  }

  std::string error;

 private:
  const PackageReadOptions& m_options;
  PackageReading& m_reading;
  std::unordered_set<std::string> m_keys;
};

}  // namespace

bool ReadPackages(std::FILE* file, const PackageReadOptions& options, PackageReading& reading,
                  std::string& error) {
  StanzaLines lines(file);
  Collector collector(options, reading);
  std::string_view line;
  Stanza stanza;
  bool goes_on = options.max_records > 0;
  while (goes_on && lines.Next(line)) {
    if (!line.empty()) {
      stanza.AddLine(line, lines.Number());
      continue;
    }
    goes_on = collector.Take(stanza);
    stanza = Stanza();
  }
  if (goes_on && std::ferror(file) != 0) {
    error = "it cannot be read behind line " + std::to_string(lines.Number()) + ": " +
            std::strerror(errno);
    return false;
  }
  if (goes_on) {
    collector.Take(stanza);
  }
  error = collector.error;
  return error.empty();
}

}  // namespace OstrandCli
