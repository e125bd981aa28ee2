// Coroutines (C++20): requests one after the other in plain sight, and no thread waits for any.
//
//   example_coroutines [directory url]     as tcp://127.0.0.1:9000
//
// Without a url the program starts a development fleet of its own. Each of many coroutines raises a
// counter of its own several times, reading it and writing it back if nobody else did meanwhile.
#include <atomic>
#include <cstdint>
#include <exception>
#include <future>
#include <iostream>
#include <string>

#include "client/awaitable.h"
#include "client/error_text.h"
#include "fleet/fleet.h"

using namespace OstrandService;  // NOLINT: the whole program is about it

namespace {

constexpr char kTable[] = "counter";
constexpr int kCounters = 100;
constexpr int kSteps = 20;

// A coroutine that nobody waits for: it begins at once and goes on where its answers come.
struct Detached {
  struct promise_type {
    Detached get_return_object() { return {}; }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_never final_suspend() noexcept { return {}; }
    void return_void() {}
    void unhandled_exception() { std::terminate(); }
  };
};

// What all coroutines report to. They run on the client's background thread, one after the other,
// but for the beginning of each.
struct Report {
  std::atomic<int> left{kCounters};
  std::atomic<int> right{0};
  std::promise<void> is_over;

  void Add(bool is_right) {
    right += is_right ? 1 : 0;
    if (--left == 0) {
      is_over.set_value();
    }
  }
};

bool IsWell(const ClientResponse& response) {
  if (response.GetResult() != 0) {
    std::cerr << ErrorText(response.GetResult()) << "\n";
  }
  return response.GetResult() == 0;
}

Detached Raise(Client& client, int id, Report& report) {
  bool is_well = IsWell(co_await Request(client, Replace(kTable).Key("id", id).Set("value", 0)));
  int64_t value = 0;
  for (int step = 0; step < kSteps && is_well; ++step) {
    ClientResponse read = co_await Request(client, Get(kTable).Key("id", id));
    RecordView record;
    is_well = IsWell(read) && read.NextRecord(record) && record.Get("value", value) == 0;
    if (is_well) {
      is_well = IsWell(co_await Request(
          client,
          Update(kTable).Key("id", id).Set("value", value + 1).Expect(record.mark.version)));
    }
  }
  report.Add(is_well && value + 1 == kSteps);
}

int Run(const std::string& directory_url) {
  ClientOptions options;
  options.app_id = 7;
  options.zones = {1};
  options.directory_urls = {directory_url};
  options.tables = {{kTable, 1, nullptr}};
  options.signature = "a signature";
  Client client(options);
  int ret = client.Start();
  ret = ret != 0 ? ret : client.WaitReady(5000);
  if (ret != 0) {
    std::cerr << "not ready: " << ErrorText(ret) << " (" << ret << ")\n";
    return 1;
  }
  Report report;
  for (int id = 0; id < kCounters; ++id) {
    Raise(client, id, report);
  }
  report.is_over.get_future().wait();
  client.Stop(1000);
  std::cout << report.right << " of " << kCounters << " counters stand at " << kSteps << "\n";
  return report.right == kCounters ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) {
    return Run(argv[1]);
  }
  OstrandFleet::FleetOptions options;
  options.proxies = 3;
  options.create_unknown_tables = true;
  OstrandFleet::Fleet fleet(options);
  if (fleet.Start() != 0) {
    std::cerr << fleet.Error() << "\n";
    return 1;
  }
  return Run(fleet.DirectoryUrl());
}
