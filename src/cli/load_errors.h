// The list of records that a load could not bring in: a tab-separated file with the columns line,
// code ("malformed" for a record that was not sent) and reason.
//
// A load adds to the file as it goes; a load of the listed records alone reads it first and writes,
// at its end, what is still to be done. Ownership: the file. Threads: one at a time.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "cli/output.h"

namespace OstrandCli {

struct LoadError {
  uint64_t line = 0;
  std::string code;  // in digits, or kMalformedCode
  std::string reason;
};

constexpr char kMalformedCode[] = "malformed";

class LoadErrors {
 public:
  enum class Mode {
    kNone,      // there is no file
    kNew,       // what an earlier load left there goes
    kContinue,  // behind what is there
    kRetry,     // what is there is to be done again
  };

  // All answer false when the file cannot be read or written: Error says why.

  bool Open(const std::string& path, Mode mode);
  bool Add(const LoadError& error);
  // In a retry: this record needs no other.
  void Clear(uint64_t line) { m_listed.erase(line); }
  bool Flush();
  bool Close();

  // In a retry: whether the line is listed.
  bool IsListed(uint64_t line) const { return m_listed.count(line) != 0; }
  size_t ListedCount() const { return m_listed.size(); }

  const std::string& Error() const { return m_error; }

 private:
  bool ReadListed();
  bool WriteListed();
  bool OpenFile();
  bool Check(bool is_good);

  std::string m_path;
  Mode m_mode = Mode::kNone;
  OutputFile m_file;  // opened with the first error
  std::map<uint64_t, LoadError> m_listed;
  std::string m_error;
};

}  // namespace OstrandCli
