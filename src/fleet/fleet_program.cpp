#include "fleet/fleet_program.h"

#include <signal.h>

#include <cstdio>
#include <string>
#include <string_view>

#include "fleet/fleet.h"
#include "fleet/fleet_file.h"

namespace OstrandFleet {
namespace {

constexpr char kUsage[] =
    "usage: [--proxies N] [--port P] [--route FILE] [--stand-in]\n"
    "  --proxies N   number of proxies, 1 to 1000 (1)\n"
    "  --port P      port of the directory, the proxies have the ports behind it (0: free ports)\n"
    "  --route FILE  the fleet file to follow; written where there is none\n"
    "  --stand-in    answer at the least possible cost, without a store\n";
constexpr int64_t kMaxProxies = 1000;
constexpr int32_t kZoneOfNewFile = 1;
constexpr int kExitUsage = 2;

bool ParseRange(const char* text, int64_t min, int64_t max, int64_t& number) {
  return ParseNumber(text, number) && number >= min && number <= max;
}

bool ParseArguments(int argc, char** argv, FleetOptions& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view name = argv[i];
    if (name == "--stand-in") {
      options.stand_in = true;
      continue;
    }
    if (++i == argc) {
      return false;
    }
    int64_t number = 0;
    if (name == "--proxies" && ParseRange(argv[i], 1, kMaxProxies, number)) {
      options.proxies = static_cast<size_t>(number);
    } else if (name == "--port" && ParseRange(argv[i], 0, UINT16_MAX, number)) {
      options.port = static_cast<uint16_t>(number);
    } else if (name == "--route") {
      options.fleet_file = argv[i];
    } else {
      return false;
    }
  }
  return static_cast<size_t>(options.port) + options.proxies <= UINT16_MAX;
}

void PrintUrls(Fleet& fleet) {
  std::printf("directory %s\n", fleet.DirectoryUrl().c_str());
  for (size_t i = 0; i < fleet.ProxyCount(); ++i) {
    std::printf("proxy %s p%zu\n", fleet.ProxyUrl(i).c_str(), i);
  }
  std::fflush(stdout);
}

Route OwnRoute(Fleet& fleet) {
  Route route;
  for (const std::string& url : fleet.ProxyUrls()) {
    route.push_back({url, "p" + std::to_string(route.size())});
  }
  return route;
}

// The fleet sees the new file like any change of it.
void WriteFileIfMissing(Fleet& fleet, const std::string& path) {
  std::FILE* const file = path.empty() ? nullptr : std::fopen(path.c_str(), "wxe");
  if (file != nullptr) {
    std::fputs(WriteFleetFile(kZoneOfNewFile, OwnRoute(fleet)).c_str(), file);
    std::fclose(file);
  }
}

}  // namespace

int RunFleetProgram(int argc, char** argv) {
  FleetOptions options;
  options.create_unknown_tables = true;
  options.remark = [](const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); };
  if (!ParseArguments(argc, argv, options)) {
    std::fputs(kUsage, stderr);
    return kExitUsage;
  }
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  const std::string file = options.fleet_file;
  Fleet fleet(options);
  if (fleet.Start() != 0) {
    std::fprintf(stderr, "the fleet does not start: %s\n", fleet.Error().c_str());
    return 1;
  }
  WriteFileIfMissing(fleet, file);
  PrintUrls(fleet);
  int signal_number = 0;
  sigwait(&signals, &signal_number);
  return 0;
}

}  // namespace OstrandFleet
