// A JSON object (RFC 8259) of one line, as far as a record needs it: its members are texts,
// numbers, truth values, null, or {"hex":"00ff"} for any bytes.
//
// Threads: any.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace OstrandCli {

struct JsonField {
  enum class Kind {
    kText,    // text: the bytes
    kScalar,  // text: the number as it stands, or "true", "false"
    kBytes,   // text: the bytes
    kNull,
  };

  std::string name;
  Kind kind = Kind::kNull;
  std::string text;
};

// The members in their order. False: `error` says what is wrong and at which column (a byte, from
// 1); also for a name that is there twice.
bool ParseJsonLine(std::string_view line, std::vector<JsonField>& fields, std::string& error);

}  // namespace OstrandCli
