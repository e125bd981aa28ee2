#include "common/text.h"

#include <algorithm>

namespace OstrandCommon {

char* HexDump(char* out, size_t cap, const char* data, size_t len) {
  constexpr char kDigits[] = "0123456789abcdef";
  constexpr size_t kCharactersPerByte = 3;
  if (out == nullptr || cap == 0) {
    return out;
  }
  const size_t wanted = data == nullptr ? 0 : std::min(len, kHexDumpMaxBytes);
  const size_t shown = std::min(wanted, (cap - 1) / kCharactersPerByte);
  char* end = out;
  for (size_t i = 0; i < shown; ++i) {
    const auto byte = static_cast<unsigned char>(data[i]);
    *end++ = kDigits[byte >> 4];
    *end++ = kDigits[byte & 0xFU];
    *end++ = ' ';
  }
  *end = '\0';
  return out;
}

void SplitString(const std::string& text, const std::string& separator,
                 std::vector<std::string>& parts) {
  parts.clear();
  size_t begin = 0;
  if (!separator.empty()) {
    for (size_t end = text.find(separator); end != std::string::npos;
         end = text.find(separator, begin)) {
      parts.emplace_back(text, begin, end - begin);
      begin = end + separator.size();
    }
  }
  parts.emplace_back(text, begin);
}

}  // namespace OstrandCommon
