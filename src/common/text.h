// Small helpers for texts. Threads: no state, callable from any.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "common/export.h"

namespace OstrandCommon {

// How many bytes HexDump shows at most.
constexpr size_t kHexDumpMaxBytes = 32;

// Writes "%02x " for each of the first bytes of `data`: at most kHexDumpMaxBytes, and only as many
// as fit whole, with the NUL, into `cap` characters. Returns `out`, which ends in a NUL whenever
// `cap` > 0. With a null `data` the text is empty; with a null `out` nothing is written.
OSTRAND_API char* HexDump(char* out, size_t cap, const char* data, size_t len);

// Cuts `text` at every `separator` (taken whole, from left to right) and puts the pieces into
// `parts`, whose old contents go. Empty pieces are kept: "a;;b" gives "a", "" and "b", ";" gives
// two empty ones, "" gives one. An empty separator cuts nothing. `text` is not an element of
// `parts`.
OSTRAND_API void SplitString(const std::string& text, const std::string& separator,
                             std::vector<std::string>& parts);

}  // namespace OstrandCommon
