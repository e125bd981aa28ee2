// What a load that did not come to its end leaves behind, so that another run can go on: a text of
// lines "name value", in a file beside the loaded one.
//
// Threads: any.
#pragma once

#include <cstdint>
#include <set>
#include <string>

namespace OstrandCli {

struct LoadCounts {
  uint64_t loaded = 0;
  uint64_t failed = 0;     // refused by the cluster
  uint64_t malformed = 0;  // not sent
};

struct LoadState {
  std::string job;  // cluster's application, zone and table, command and key: what must not change
  uint64_t line = 1;    // to go on with
  uint64_t offset = 0;  // of its first byte
  // Of the last bytes before it (LineReader::ChecksumBefore): the file may change behind it only.
  uint32_t checksum = 0;
  LoadCounts counts;
  std::set<uint64_t> done;  // finished lines behind `line`
};

std::string WriteLoadState(const LoadState& state);
// False for a text that is none; `state` is then as it was.
bool ParseLoadState(const std::string& text, LoadState& state);

}  // namespace OstrandCli
