// Values out of the JSON that the program writes: without blanks, in a known order.
#pragma once

#include <cstdlib>
#include <string>
#include <vector>

namespace OstrandTest {

// Every number that stands behind "name":, in order.
inline std::vector<double> JsonNumbers(const std::string& json, const std::string& name) {
  const std::string key = "\"" + name + "\":";
  std::vector<double> numbers;
  for (size_t at = json.find(key); at != std::string::npos; at = json.find(key, at + 1)) {
    const char* const begin = json.c_str() + at + key.size();
    char* end = nullptr;
    const double number = std::strtod(begin, &end);
    if (end != begin) {
      numbers.push_back(number);
    }
  }
  return numbers;
}

// The first one; -1 when there is none.
inline double JsonNumber(const std::string& json, const std::string& name) {
  const std::vector<double> numbers = JsonNumbers(json, name);
  return numbers.empty() ? -1 : numbers.front();
}

// Every text that stands behind "name":, in order; escapes are left as they are.
inline std::vector<std::string> JsonTexts(const std::string& json, const std::string& name) {
  const std::string key = "\"" + name + "\":\"";
  std::vector<std::string> texts;
  for (size_t at = json.find(key); at != std::string::npos; at = json.find(key, at + 1)) {
    const size_t begin = at + key.size();
    texts.push_back(json.substr(begin, json.find('"', begin) - begin));
  }
  return texts;
}

}  // namespace OstrandTest
