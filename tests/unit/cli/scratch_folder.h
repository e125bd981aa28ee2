// A folder for a test's files, removed with all that is in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace OstrandCli {

class ScratchFolder {
 public:
  ScratchFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "ostrand_unit_XXXXXX").string();
    m_path = mkdtemp(name.data()) != nullptr ? name : "";
  }
  ~ScratchFolder() {
    std::error_code error;
    if (!m_path.empty()) {
      std::filesystem::remove_all(m_path, error);
    }
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  std::string Path(const std::string& name) const { return m_path + "/" + name; }

  std::string Write(const std::string& name, const std::string& text) const {
    std::ofstream(Path(name), std::ios::binary) << text;
    return Path(name);
  }

  std::string Read(const std::string& name) const {
    std::ifstream file(Path(name), std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }

  bool Has(const std::string& name) const { return std::filesystem::exists(Path(name)); }

 private:
  std::string m_path;
};

}  // namespace OstrandCli
