// Where package records come from: this machine's index, or a file.
#include <cerrno>
#include <memory>

#include "cli/output.h"
#include "cli/package_records.h"

namespace OstrandCli {
namespace {

constexpr char kIndexCommand[] = "LC_ALL=C apt-cache dumpavail 2>/dev/null";
constexpr char kUseFile[] = "run 'apt-get update' first, or give a file with --data FILE";

}  // namespace

bool ReadPackageIndex(const PackageReadOptions& options, PackageReading& reading,
                      std::string& error) {
  std::FILE* const pipe = popen(kIndexCommand, "re");
  if (pipe == nullptr) {
    error = FileError("apt-cache cannot be started", errno);
    return false;
  }
  std::string fault;
  const bool good = ReadPackages(pipe, options, reading, fault);
  pclose(pipe);  // the status says nothing new: what matters is what was read
  if (!good) {
    error = "what 'apt-cache dumpavail' prints cannot be used: " + fault;
  } else if (reading.records.empty()) {
    error = std::string("this machine has no package index: ") + kUseFile;
  }
  return error.empty();
}

bool ReadPackageFile(const std::string& path, const PackageReadOptions& options,
                     PackageReading& reading, std::string& error) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "re"),
                                                             std::fclose);
  if (file == nullptr) {
    error = FileError(path, errno);
    return false;
  }
  std::string fault;
  if (!ReadPackages(file.get(), options, reading, fault)) {
    error = path + ", " + fault + "; mend it, or leave out such stanzas with --skip-malformed";
  } else if (reading.records.empty()) {
    error = path +
            " has no stanza that can be used: give a file like the output of"
            " 'apt-cache dumpavail'";
  }
  return error.empty();
}

}  // namespace OstrandCli
