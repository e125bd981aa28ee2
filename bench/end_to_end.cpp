// How much of a client's processor a request takes over real TCP, the network layer included.
//
// A fleet in stand-in mode runs in a process of its own, pinned to another core; this process sends
// requests, half reads half writes, keys of 16 bytes, values of 100, and keeps a window of them in
// flight. One line a configuration:
//
//   mode,ports,window,reqs,secs,req/s,user us,sys us,cpu us,voluntary switches,errors,
//   calls/req,p50 us,p90 us,p99 us,p99.9 us,p99.99 us
//
// Processor times are those of the client's process, per request (getrusage). Modes:
//
//   plain    the least that a client can do for the same traffic: frames made beforehand, one epoll
//            loop, no router, codec or statistics
//   own      the benchmark's own share, in all below: requests built, clocks read, times counted
//   polling  a PollingClient
//   client   a Client: one thread sends, callbacks count on the client's own
//   calls    (only when named) four threads in Client::Call, beside four PollingClients each called
//            on a thread of its own ("calls-polling")
//   idle     (only when named) clients that are asked for nothing, for ten seconds: wake-ups and
//            memory
//
// Usage: end_to_end [--quick] [--mode NAME] [--ports N] [--window N] [--requests N] [--value-len N]
//                   [--json FILE]
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "end_to_end_library.h"
#include "end_to_end_plain.h"
#include "fleet/fleet_program.h"

extern char** environ;

namespace {

using ostrand_bench::Configuration;
using ostrand_bench::Figures;

void Pin(int core) {
  cpu_set_t cores;
  CPU_ZERO(&cores);
  CPU_SET(core, &cores);
  sched_setaffinity(0, sizeof(cores), &cores);  // a machine with one core measures all the same
}

// This program again, as the fleet.
class FleetProcess {
 public:
  explicit FleetProcess(int proxies) {
    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) {
      return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    std::string count = std::to_string(proxies);
    char program[] = "/proc/self/exe";
    char fleet[] = "fleet";
    char option[] = "--proxies";
    char stand_in[] = "--stand-in";
    char* arguments[] = {program, fleet, option, count.data(), stand_in, nullptr};
    const bool spawned = posix_spawn(&m_pid, program, &actions, nullptr, arguments, environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    FILE* lines = fdopen(out[0], "r");
    char line[128];
    for (int i = 0; spawned && i <= proxies && std::fgets(line, sizeof(line), lines) != nullptr;
         ++i) {
      char url[96];
      if (std::sscanf(line, "%*s %95s", url) == 1) {
        m_urls.emplace_back(url);
      }
    }
    std::fclose(lines);
  }
  ~FleetProcess() {
    if (m_pid > 0) {
      kill(m_pid, SIGTERM);
      waitpid(m_pid, nullptr, 0);
    }
  }
  FleetProcess(const FleetProcess&) = delete;
  FleetProcess& operator=(const FleetProcess&) = delete;

  // The directory's, then the proxies'.
  const std::vector<std::string>& Urls() const { return m_urls; }

 private:
  pid_t m_pid = 0;
  std::vector<std::string> m_urls;
};

void Print(FILE* out, const char* mode, const Configuration& configuration, const Figures& figures,
           bool json) {
  const auto count = static_cast<double>(configuration.requests);
  const auto percentile_us = [&figures](double percent) {
    return static_cast<double>(figures.latency_ns.Percentile(percent)) / 1000.0;
  };
  const char* const format =
      json ? "{\"mode\":\"%s\",\"ports\":%d,\"window\":%llu,\"reqs\":%llu,\"secs\":%.3f,"
             "\"req_per_s\":%.0f,\"user_us\":%.3f,\"sys_us\":%.3f,\"cpu_us\":%.3f,"
             "\"voluntary_switches\":%llu,\"errors\":%llu,\"calls_per_req\":%.3f,\"p50_us\":%.1f,"
             "\"p90_us\":%.1f,\"p99_us\":%.1f,\"p99_9_us\":%.1f,\"p99_99_us\":%.1f}"
           : "%s,%d,%llu,%llu,%.3f,%.0f,%.3f,%.3f,%.3f,%llu,%llu,%.3f,%.1f,%.1f,%.1f,%.1f,%.1f\n";
  std::fprintf(out, format, mode, configuration.ports,
               static_cast<unsigned long long>(configuration.window),
               static_cast<unsigned long long>(configuration.requests), figures.seconds,
               count / figures.seconds, figures.user_us / count, figures.system_us / count,
               (figures.user_us + figures.system_us) / count,
               static_cast<unsigned long long>(figures.voluntary_switches),
               static_cast<unsigned long long>(figures.errors),
               static_cast<double>(figures.system_calls) / count, percentile_us(50),
               percentile_us(90), percentile_us(99), percentile_us(99.9), percentile_us(99.99));
  std::fflush(out);
}

using Measurement = bool (*)(const std::vector<std::string>& urls, const Configuration&, Figures&);

struct Mode {
  const char* name;
  Measurement measure;
  bool is_asked_for;  // only measured when it is named, once for each number of ports
};

constexpr Mode kModes[] = {
    {"plain", ostrand_bench::MeasurePlain, false},
    {"own", ostrand_bench::MeasureOwn, false},
    {"polling", ostrand_bench::MeasurePolling, false},
    {"client", ostrand_bench::MeasureClient, false},
    {"calls", ostrand_bench::MeasureCalls, true},
    {"calls", ostrand_bench::MeasurePollingCalls, true},
};
constexpr char kIdle[] = "idle";

bool IsMode(std::string_view name) {
  return name == kIdle || std::any_of(std::begin(kModes), std::end(kModes),
                                      [name](const Mode& mode) { return name == mode.name; });
}

struct Arguments {
  bool quick = false;
  std::vector<int> ports = {1, 8, 200};
  std::vector<uint64_t> windows = {1, 64, 256, 1024};
  uint64_t requests = 0;  // 0: as many as the window needs
  size_t value_len = 100;
  std::string_view mode;  // empty: all that need not be asked for
  const char* json = nullptr;
};

bool Parse(int argc, char** argv, Arguments& arguments) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view name = argv[i];
    if (name == "--quick") {
      arguments.quick = true;
      continue;
    }
    if (++i == argc) {
      return false;
    }
    const long long number = std::atoll(argv[i]);
    if (name == "--json") {
      arguments.json = argv[i];
    } else if (name == "--mode" && IsMode(argv[i])) {
      arguments.mode = argv[i];
    } else if (name == "--ports" && number > 0 && number <= 200) {
      arguments.ports = {static_cast<int>(number)};
    } else if (name == "--window" && number > 0 && number <= 65536) {
      arguments.windows = {static_cast<uint64_t>(number)};
    } else if (name == "--requests" && number > 0) {
      arguments.requests = static_cast<uint64_t>(number);
    } else if (name == "--value-len" && number > 0 && number <= 65536) {
      arguments.value_len = static_cast<size_t>(number);
    } else {
      return false;
    }
  }
  return true;
}

uint64_t RequestsOf(const Arguments& arguments, uint64_t window) {
  if (arguments.requests != 0) {
    return arguments.requests;
  }
  const uint64_t requests = window <= ostrand_bench::kCallers ? 50000 : 1000000;
  return arguments.quick ? requests / 50 : requests;
}

// Measures what the arguments ask for and prints it, as a table and as a list in JSON.
class Report {
 public:
  Report(const Arguments& arguments, FILE* json) : m_arguments(arguments), m_json(json) {}

  bool Run() {
    std::printf(
        "mode,ports,window,reqs,secs,req/s,user us,sys us,cpu us,voluntary switches,errors,"
        "calls/req,p50 us,p90 us,p99 us,p99.9 us,p99.99 us\n");
    bool all_well = true;
    for (const int ports : m_arguments.ports) {
      const FleetProcess fleet(ports);
      if (fleet.Urls().size() != static_cast<size_t>(ports) + 1) {
        std::fprintf(stderr, "end_to_end: the fleet did not start\n");
        return false;
      }
      all_well =
          (m_arguments.mode == kIdle ? RunIdle(fleet, ports) : RunModes(fleet, ports)) && all_well;
    }
    if (m_json != nullptr) {
      std::fprintf(m_json, "%s]\n", m_separator[0] == '[' ? "[" : "");
    }
    return all_well;
  }

 private:
  bool RunModes(const FleetProcess& fleet, int ports) {
    bool all_well = true;
    const bool is_by_calls = m_arguments.mode == "calls";
    const std::vector<uint64_t> callers = {ostrand_bench::kCallers};
    for (const uint64_t window : is_by_calls ? callers : m_arguments.windows) {
      const Configuration configuration = {ports, window, RequestsOf(m_arguments, window),
                                           m_arguments.value_len};
      for (const Mode& mode : kModes) {
        if (m_arguments.mode.empty() ? !mode.is_asked_for : m_arguments.mode == mode.name) {
          all_well = RunOne(fleet, mode, configuration) && all_well;
        }
      }
    }
    return all_well;
  }

  bool RunOne(const FleetProcess& fleet, const Mode& mode, const Configuration& configuration) {
    Figures figures;
    if (!mode.measure(fleet.Urls(), configuration, figures)) {
      return false;
    }
    const bool polls = mode.measure == ostrand_bench::MeasurePollingCalls;
    const char* const name = polls ? "calls-polling" : mode.name;
    Print(stdout, name, configuration, figures, false);
    if (FILE* const json = NextJson()) {
      Print(json, name, configuration, figures, true);
    }
    return figures.errors == 0;
  }

  bool RunIdle(const FleetProcess& fleet, int ports) {
    const int seconds = m_arguments.quick ? 1 : 10;
    bool all_well = true;
    for (const bool with_threads : {false, true}) {
      const char* const name = with_threads ? "idle-client" : "idle-polling";
      ostrand_bench::IdleFigures figures;
      if (!ostrand_bench::MeasureIdle(fleet.Urls(), with_threads, seconds, figures)) {
        all_well = false;
        continue;
      }
      std::printf("%s,%d ports: %.2f wake-ups a second, %.0f KiB resident, a client of %d\n", name,
                  ports, figures.wake_ups_a_second, figures.resident_kib,
                  ostrand_bench::kIdleClients);
      if (FILE* const json = NextJson()) {
        std::fprintf(json,
                     "{\"mode\":\"%s\",\"ports\":%d,\"secs\":%d,\"clients\":%d,"
                     "\"wake_ups_per_s\":%.3f,\"resident_kib\":%.0f}",
                     name, ports, seconds, ostrand_bench::kIdleClients, figures.wake_ups_a_second,
                     figures.resident_kib);
      }
    }
    return all_well;
  }

  // Null when nothing is kept as JSON.
  FILE* NextJson() {
    if (m_json != nullptr) {
      std::fputs(m_separator, m_json);
      m_separator = ",\n";
    }
    return m_json;
  }

  const Arguments& m_arguments;
  FILE* const m_json;
  const char* m_separator = "[";
};

int Run(const Arguments& arguments) {
  FILE* json = arguments.json != nullptr ? std::fopen(arguments.json, "w") : nullptr;
  if (arguments.json != nullptr && json == nullptr) {
    std::fprintf(stderr, "end_to_end: %s cannot be written: %s\n", arguments.json,
                 std::strerror(errno));
    return 1;
  }
  const bool all_well = Report(arguments, json).Run();
  return (json == nullptr || std::fclose(json) == 0) && all_well ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::strcmp(argv[1], "fleet") == 0) {
    Pin(1);
    return OstrandFleet::RunFleetProgram(argc - 1, argv + 1);
  }
  Arguments arguments;
  if (!Parse(argc, argv, arguments)) {
    std::fprintf(stderr,
                 "usage: end_to_end [--quick] [--mode plain|own|polling|client|calls|idle]\n"
                 "                  [--ports N] [--window N] [--requests N] [--value-len N] "
                 "[--json FILE]\n");
    return 2;
  }
  Pin(0);
  return Run(arguments);
}
