// A logger of one's own: the library's lines go where the application's go.
//
//   example_custom_logger [directory url]     as tcp://127.0.0.1:9000
//
// Without a url the program starts a development fleet of its own. It logs at INFO, so that one
// sees proxies being connected and the ring being written.
#include <cstdarg>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <string>

#include "client/client.h"
#include "client/error_text.h"
#include "fleet/fleet.h"

namespace {

using OstrandCommon::LogLevel;

// Log and IsPriorityEnabled are called by the client's background thread, and by any other that is
// inside the client: what they share is locked or constant. They must be quick and must not call
// the library.
class CountingLogger : public OstrandCommon::Logger {
 public:
  explicit CountingLogger(LogLevel level) : m_level(level) {}

  // file is the source unit without extension, function the operation that speaks. The line has no
  // end of line yet. The text is best made before the lock is taken.
  void Log(LogLevel level, int /*reserved*/, int module_id, const char* file, int line,
           const char* function, const char* format, ...) override
      __attribute__((format(printf, 8, 9))) {
    if (!IsPriorityEnabled(level)) {
      return;  // the library asks before costly texts only
    }
    char text[1024];  // longer lines are cut
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_lines;
    std::clog << level << " [" << module_id << "] " << file << ":" << line << " " << function
              << ": " << text << "\n";
  }

  // DEBUG would also dump each request, with the sign-up's signature and password in it: keep it
  // for looking into a fault.
  bool IsPriorityEnabled(LogLevel level) override { return level <= m_level; }

  int Lines() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
  }

  // What a logger with files and native handles would need.
  int InitLogger(const char* /*configuration*/) override { return 0; }
  OstrandCommon::Logger* CloneLogger() override { return nullptr; }  // not supported
  OstrandCommon::Logger* GetLogger() override { return this; }
  void ResetLogHandler(void* /*handle*/) override {}
  void* GetLoggerHandle() override { return nullptr; }
  void* GetCurThreadLoggerHandle() override { return nullptr; }
  void Fini() override {}

 private:
  const LogLevel m_level;
  std::mutex m_mutex;
  int m_lines = 0;  // guarded by m_mutex
};

int Run(const std::string& directory_url) {
  // The client borrows the logger: it stands above the client, so that it dies after it.
  CountingLogger logger(OstrandCommon::OSTRAND_LOG_LEVEL_INFO);
  OstrandService::ClientOptions options;
  options.logger = &logger;
  options.module_id = 12;  // printed with each line: tells this client's from others'
  options.app_id = 7;
  options.zones = {1};
  options.directory_urls = {directory_url};
  options.tables = {{"user", 1, nullptr}};
  options.signature = "a signature";
  OstrandService::Client client(options);
  int ret = client.Start();
  ret = ret != 0 ? ret : client.WaitReady(5000);
  if (ret != 0) {
    std::cerr << "not ready: " << OstrandService::ErrorText(ret) << " (" << ret << ")\n";
    return 1;
  }
  client.Stop(0);
  std::cout << "the library wrote " << logger.Lines() << " lines\n";
  return logger.Lines() > 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) {
    return Run(argv[1]);
  }
  OstrandFleet::FleetOptions options;
  options.proxies = 3;
  OstrandFleet::Fleet fleet(options);
  if (fleet.Start() != 0) {
    std::cerr << fleet.Error() << "\n";
    return 1;
  }
  return Run(fleet.DirectoryUrl());
}
