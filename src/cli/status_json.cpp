#include "cli/status_json.h"

#include <algorithm>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include "cli/output.h"

namespace OstrandCli {
namespace {

using Figures = std::vector<std::pair<std::string, std::string>>;

struct Delay {
  std::string stage;
  Figures figures;
};

struct Row {  // of a table or an access
  std::string name;
  std::string id;
  Figures figures;
  std::vector<Delay> delays;
};

struct ProxyList {
  std::string state;
  std::vector<std::string> lines;
};

struct Section {
  std::string title;
  Figures figures;
  std::vector<ProxyList> proxies;
  std::vector<Delay> delays;
  std::vector<Row> tables;
  std::vector<Row> accesses;
};

constexpr std::string_view kTable = "table ";
constexpr std::string_view kAccess = "access ";
constexpr std::string_view kStage = "st";
constexpr std::string_view kFirstCounter = " dw";  // names of tables and ids may have blanks
constexpr std::string_view kProxyLists[] = {
    "not_connect_proxy:", "auth_fail_proxy:", "auth_success_proxy:"};

bool StartsWith(std::string_view text, std::string_view beginning) {
  return text.substr(0, beginning.size()) == beginning;
}

// Counters "name:number" with blanks between.
Figures ParseCounters(std::string_view text) {
  Figures figures;
  std::istringstream words{std::string(text)};
  std::string word;
  while (words >> word) {
    const size_t colon = word.find(':');
    if (colon != std::string::npos) {
      figures.emplace_back(word.substr(0, colon), word.substr(colon + 1));
    }
  }
  return figures;
}

// What is before the counters, and they.
std::pair<std::string_view, Figures> SplitRow(std::string_view line) {
  const size_t counters = std::min(line.find(kFirstCounter), line.size());
  return {line.substr(0, counters), ParseCounters(line.substr(counters))};
}

Delay ParseDelay(std::string_view line) {
  auto [stage, figures] = SplitRow(line);
  return {std::string(stage), std::move(figures)};
}

Row ParseTable(std::string_view line) {
  auto [name, figures] = SplitRow(line);
  return {std::string(name), "", std::move(figures), {}};
}

Row ParseAccess(std::string_view line) {
  auto [name, figures] = SplitRow(line);
  const size_t blank = std::min(name.find(' '), name.size());
  return {std::string(name.substr(0, blank)),
          std::string(name.substr(std::min(blank + 1, name.size()))),
          std::move(figures),
          {}};
}

// "name:value unit"; a value that is no number is all that follows.
void AddFigure(Section& section, std::string_view line) {
  const size_t colon = line.find(':');
  if (colon == std::string_view::npos) {
    return;
  }
  const std::string_view value = line.substr(colon + 1);
  const size_t digits = std::min(value.find_first_not_of("0123456789"), value.size());
  const bool is_number = digits > 0 && (digits == value.size() || value[digits] == ' ');
  section.figures.emplace_back(line.substr(0, colon), is_number ? value.substr(0, digits) : value);
}

bool IsProxyList(std::string_view line) {
  return std::find(std::begin(kProxyLists), std::end(kProxyLists), line) != std::end(kProxyLists);
}

// A line with one tab before it.
void AddLine(Section& section, std::string_view line) {
  if (IsProxyList(line)) {
    section.proxies.push_back({std::string(line.substr(0, line.size() - 1)), {}});
  } else if (StartsWith(line, kTable)) {
    section.tables.push_back(ParseTable(line.substr(kTable.size())));
  } else if (StartsWith(line, kAccess)) {
    section.accesses.push_back(ParseAccess(line.substr(kAccess.size())));
  } else if (StartsWith(line, kStage)) {
    section.delays.push_back(ParseDelay(line));
  } else {
    AddFigure(section, line);
  }
}

// A line with two tabs before it: of the last access, or of a list of proxies.
void AddInnerLine(Section& section, std::string_view line) {
  if (!section.accesses.empty()) {
    section.accesses.back().delays.push_back(ParseDelay(line));
  } else if (!section.proxies.empty()) {
    section.proxies.back().lines.emplace_back(line);
  }
}

std::vector<Section> ParseSections(const std::string& text) {
  std::vector<Section> sections;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    if (StartsWith(line, "\t\t") && !sections.empty()) {
      AddInnerLine(sections.back(), std::string_view(line).substr(2));
    } else if (StartsWith(line, "\t") && !sections.empty()) {
      AddLine(sections.back(), std::string_view(line).substr(1));
    } else if (!line.empty() && line[0] != '\t') {
      sections.emplace_back();
      sections.back().title = line;
    }
  }
  return sections;
}

bool IsNumber(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos &&
         (text == "0" || text[0] != '0');
}

void WriteFigures(JsonWriter& json, const char* key, const Figures& figures) {
  if (figures.empty()) {
    return;
  }
  json.Key(key).BeginObject();
  for (const auto& [name, value] : figures) {
    json.Key(name).Raw(IsNumber(value) ? value : JsonString(value));
  }
  json.EndObject();
}

void WriteDelays(JsonWriter& json, const std::vector<Delay>& delays) {
  if (delays.empty()) {
    return;
  }
  json.Key("delays").BeginObject();
  for (const Delay& delay : delays) {
    WriteFigures(json, delay.stage.c_str(), delay.figures);
  }
  json.EndObject();
}

void WriteProxies(JsonWriter& json, const std::vector<ProxyList>& lists) {
  if (lists.empty()) {
    return;
  }
  json.Key("proxies").BeginObject();
  for (const ProxyList& list : lists) {
    json.Key(list.state).BeginArray();
    for (const std::string& line : list.lines) {
      json.String(line);
    }
    json.EndArray();
  }
  json.EndObject();
}

void WriteTables(JsonWriter& json, const std::vector<Row>& tables) {
  if (tables.empty()) {
    return;
  }
  json.Key("tables").BeginArray();
  for (const Row& table : tables) {
    json.BeginObject().Key("name").String(table.name);
    WriteFigures(json, "figures", table.figures);
    json.EndObject();
  }
  json.EndArray();
}

void WriteAccesses(JsonWriter& json, const std::vector<Row>& accesses) {
  if (accesses.empty()) {
    return;
  }
  json.Key("accesses").BeginArray();
  for (const Row& access : accesses) {
    json.BeginObject().Key("url").String(access.name).Key("id").String(access.id);
    WriteFigures(json, "figures", access.figures);
    WriteDelays(json, access.delays);
    json.EndObject();
  }
  json.EndArray();
}

}  // namespace

std::string StatusAsJson(const std::string& status_text) {
  JsonWriter json;
  json.BeginObject().Key("sections").BeginArray();
  for (const Section& section : ParseSections(status_text)) {
    json.BeginObject().Key("title").String(section.title);
    WriteFigures(json, "figures", section.figures);
    WriteProxies(json, section.proxies);
    WriteDelays(json, section.delays);
    WriteTables(json, section.tables);
    WriteAccesses(json, section.accesses);
    json.EndObject();
  }
  json.EndArray().EndObject();
  return json.Text();
}

}  // namespace OstrandCli
