// How much of a client's processor a request takes over real TCP, the network layer included.
//
// A fleet in stand-in mode runs in a process of its own, pinned to another core; this process sends
// requests, half reads half writes, keys of 16 bytes, values of 100, and keeps a window of them in
// flight. One line a configuration:
//
//   mode,ports,window,reqs,secs,req/s,user us,sys us,cpu us,voluntary switches,errors,
//   calls/req,p50 us,p90 us,p99 us,p99.9 us,p99.99 us
//
// Processor times are those of the client's process, per request (getrusage). Mode "client" is the
// library. Mode "plain" is the least that a client can do for the same traffic: frames made
// beforehand, one epoll loop, no router, codec or statistics; what the library adds is the
// difference of the two.
//
// Usage: end_to_end [--quick] [--ports N --window N] [--requests N] [--json FILE]
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cli/latency_histogram.h"
#include "client/error_text.h"
#include "client/polling_client.h"
#include "common/clock.h"
#include "end_to_end_plain.h"
#include "fleet/fleet_program.h"

extern char** environ;

namespace {

using ostrand_bench::Configuration;
using ostrand_bench::Figures;
using OstrandCli::LatencyHistogram;
using OstrandService::ClientOptions;
using OstrandService::ClientRequest;
using OstrandService::ClientResponse;
using OstrandService::PollingClient;

constexpr size_t kKeys = 65536;
constexpr char kTable[] = "bench";
constexpr int32_t kZone = 1;

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

std::string KeyOf(uint64_t number) {
  char key[17];
  std::snprintf(key, sizeof(key), "key%013llu", static_cast<unsigned long long>(number % kKeys));
  return key;
}

class ClientLoad {
 public:
  explicit ClientLoad(PollingClient& client)
      : m_client(client), m_value(100, 'v'), m_keys(kKeys), m_sent_at(kKeys * 2) {
    for (size_t i = 0; i < kKeys; ++i) {
      m_keys[i] = KeyOf(i * 2654435761u);
    }
  }

  // Keeps `window` requests in flight until `requests` had their outcome.
  void Run(uint64_t requests, uint64_t window, Figures& figures) {
    uint64_t sent = 0;
    uint64_t done = 0;
    while (done < requests) {
      while (sent < requests && sent - done < window) {
        done += SendOne(sent, figures) ? 0 : 1;
        ++sent;
      }
      int ret = m_client.Receive(m_response, 1000);
      while (ret == 1) {
        TakeOutcome(figures);
        ++done;
        ret = sent < requests && sent - done > window / 2 ? m_client.Receive(m_response, 0) : 0;
      }
    }
  }

 private:
  bool SendOne(uint64_t number, Figures& figures) {
    const bool is_read = number % 2 == 0;
    if (is_read) {
      m_request.Get(kTable);
    } else {
      m_request.Replace(kTable).Set("value", m_value);
    }
    m_request.Zone(kZone).Key("k", m_keys[number % kKeys]);
    const int ret = m_client.Send(m_request);
    if (ret != 0) {
      ++figures.errors;
      return false;
    }
    m_sent_at[m_request.GetAsynID() % m_sent_at.size()] = ostrand_bench::NowNs();
    return true;
  }

  void TakeOutcome(Figures& figures) {
    if (m_response.GetResult() != 0) {
      ++figures.errors;
      return;
    }
    const int64_t sent_at = m_sent_at[m_response.GetAsynID() % m_sent_at.size()];
    figures.latency_ns.Add(static_cast<uint64_t>(ostrand_bench::NowNs() - sent_at));
  }

  PollingClient& m_client;
  const std::string m_value;
  std::vector<std::string> m_keys;
  std::vector<int64_t> m_sent_at;  // by asynchronous id; more than ever are in flight
  ClientRequest m_request;
  ClientResponse m_response;
};

bool MeasureClient(const FleetProcess& fleet, const Configuration& configuration,
                   Figures& figures) {
  ClientOptions options;
  options.app_id = 1;
  options.zones = {kZone};
  options.directory_urls = {fleet.Urls()[0]};
  options.tables = {{kTable, kZone, nullptr}};
  options.signature = "bench";
  PollingClient client(options);
  int ret = client.Start();
  ret = ret == 0 ? client.WaitReady(10000) : ret;
  if (ret != 0) {
    std::fprintf(stderr, "end_to_end: %s\n", OstrandService::ErrorText(ret));
    return false;
  }
  ClientLoad load(client);
  Figures warm_up;
  load.Run(configuration.requests / 10, configuration.window, warm_up);
  const uint64_t calls_before = client.SystemCalls();
  ostrand_bench::Meter meter;
  load.Run(configuration.requests, configuration.window, figures);
  meter.Stop(figures);
  figures.system_calls = client.SystemCalls() - calls_before;
  return true;
}

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

struct Arguments {
  bool quick = false;
  std::vector<int> ports = {1, 8, 200};
  std::vector<uint64_t> windows = {1, 64, 256, 1024};
  uint64_t requests = 0;  // 0: as many as the window needs
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
    } else if (name == "--ports" && number > 0 && number <= 200) {
      arguments.ports = {static_cast<int>(number)};
    } else if (name == "--window" && number > 0 && number <= 65536) {
      arguments.windows = {static_cast<uint64_t>(number)};
    } else if (name == "--requests" && number > 0) {
      arguments.requests = static_cast<uint64_t>(number);
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
  const uint64_t requests = window == 1 ? 50000 : 1000000;
  return arguments.quick ? requests / 50 : requests;
}

int Run(const Arguments& arguments) {
  FILE* json = arguments.json != nullptr ? std::fopen(arguments.json, "w") : nullptr;
  if (arguments.json != nullptr && json == nullptr) {
    std::fprintf(stderr, "end_to_end: %s cannot be written: %s\n", arguments.json,
                 std::strerror(errno));
    return 1;
  }
  std::printf(
      "mode,ports,window,reqs,secs,req/s,user us,sys us,cpu us,voluntary switches,errors,"
      "calls/req,p50 us,p90 us,p99 us,p99.9 us,p99.99 us\n");
  const char* separator = "[";
  bool all_well = true;
  for (const int ports : arguments.ports) {
    const FleetProcess fleet(ports);
    if (fleet.Urls().size() != static_cast<size_t>(ports) + 1) {
      std::fprintf(stderr, "end_to_end: the fleet did not start\n");
      return 1;
    }
    for (const uint64_t window : arguments.windows) {
      const Configuration configuration = {ports, window, RequestsOf(arguments, window)};
      for (const char* mode : {"plain", "client"}) {
        Figures figures;
        const bool measured =
            std::strcmp(mode, "client") == 0
                ? MeasureClient(fleet, configuration, figures)
                : ostrand_bench::MeasurePlain(fleet.Urls(), configuration, figures);
        all_well = all_well && measured && figures.errors == 0;
        if (!measured) {
          continue;
        }
        Print(stdout, mode, configuration, figures, false);
        if (json != nullptr) {
          std::fputs(separator, json);
          Print(json, mode, configuration, figures, true);
          separator = ",\n";
        }
      }
    }
  }
  if (json != nullptr) {
    std::fputs("]\n", json);
    all_well = std::fclose(json) == 0 && all_well;
  }
  return all_well ? 0 : 1;
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
                 "usage: end_to_end [--quick] [--ports N] [--window N] [--requests N] "
                 "[--json FILE]\n");
    return 2;
  }
  Pin(0);
  return Run(arguments);
}
