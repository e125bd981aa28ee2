// The fleet in a process of its own.
//
// Ownership: owns the process, which does not outlive it. Threads: one at a time.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace OstrandTests {

// A fleet that tests can stop and kill. Its tables come to be when they are named. It keeps its
// ports for life.
class FleetProcess {
 public:
  explicit FleetProcess(size_t proxies, const std::string& more_options = "");
  ~FleetProcess();
  FleetProcess(const FleetProcess&) = delete;
  FleetProcess& operator=(const FleetProcess&) = delete;

  const std::string& DirectoryUrl() const { return m_directory_url; }
  const std::vector<std::string>& ProxyUrls() const { return m_proxy_urls; }

  // Once it returns, SIGSTOP has stopped the process.
  void Signal(int signal_number);
  // Ends it with SIGKILL, and waits until it is gone.
  void Kill();
  // Starts it again. Its store is empty then.
  void Restart();

  // Replaces the file that the fleet follows.
  void WriteFleetFile(const std::string& text) {
    PrepareFleetFile(text);
    PublishFleetFile();
  }
  // The two halves of this: the second needs no descriptor.
  void PrepareFleetFile(const std::string& text);
  void PublishFleetFile();

 private:
  bool Start();

  const size_t m_proxies;
  const std::string m_more_options;
  const std::string m_file;
  int m_port = 0;
  pid_t m_pid = -1;
  std::FILE* m_output = nullptr;
  std::string m_directory_url;
  std::vector<std::string> m_proxy_urls;
};

}  // namespace OstrandTests
