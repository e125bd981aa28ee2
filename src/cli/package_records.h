// Records of software packages, read from the text that `apt-cache dumpavail` prints: stanzas of
// lines "Field: value", a blank or tab at the beginning of a line goes on with the value before it,
// an empty line ends the stanza (deb-control(5)).
//
// Threads: no state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace OstrandCli {

struct PackageRecord {
  std::string name;     // 1 to 255 bytes
  std::string version;  // the same; name and version together are the key
  std::string section;  // may be empty, as the description
  uint64_t size = 0;    // bytes; 0 where it is not said
  std::string description;
};

constexpr size_t kMaxPackageKeyBytes = 255;
constexpr size_t kMaxPackageTextBytes = 65536;  // of section and description

struct PackageReading {
  std::vector<PackageRecord> records;  // as they stood; no two have one key
  size_t repeated = 0;                 // stanzas whose key was there already
  std::vector<std::string> malformed;  // "line 12: ...", those left out
};

struct PackageReadOptions {
  size_t max_records = SIZE_MAX;
  bool skip_malformed = false;  // else the first one ends the reading
};

// Reads to the end of the file, or up to max_records. False for a malformed stanza that is not to
// be skipped, or a file that cannot be read: `error` says which line and why.
bool ReadPackages(std::FILE* file, const PackageReadOptions& options, PackageReading& reading,
                  std::string& error);

// Reads what this machine's package index knows. False when there is none.
bool ReadPackageIndex(const PackageReadOptions& options, PackageReading& reading,
                      std::string& error);

// Reads a file of the user's. False when it cannot be opened, too.
bool ReadPackageFile(const std::string& path, const PackageReadOptions& options,
                     PackageReading& reading, std::string& error);

}  // namespace OstrandCli
