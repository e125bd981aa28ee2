// Pipelined use: many requests in flight, up to a window. It is what makes a client fast, since
// requests that are in flight together share system calls and wake-ups. The client is the one
// without a thread of its own: all happens inside its calls.
//
//   example_pipelined [directory url]     as tcp://127.0.0.1:9000
//
// Without a url the program starts a development fleet of its own. It writes records, reads all of
// them back, and compares.
#include <cstdint>
#include <iostream>
#include <string>

#include "client/error_text.h"
#include "client/polling_client.h"
#include "fleet/fleet.h"

using namespace OstrandService;  // NOLINT: the whole program is about it

namespace {

constexpr int32_t kZone = 1;
constexpr char kTable[] = "number";
constexpr int kRecords = 5000;
constexpr size_t kWindow = 256;

// Tells what became of a request. The sequence number is the sender's own: it comes back with the
// answer.
bool IsRight(const ClientResponse& response, bool is_write) {
  if (response.GetResult() != 0) {  // kResultTimeOut when no answer came in time
    std::cerr << response.GetSequence() << ": " << ErrorText(response.GetResult()) << "\n";
    return false;
  }
  int64_t copy = 0;
  return is_write || (response.Get("copy", copy) == 0 && copy == response.GetSequence());
}

int Send(PollingClient& client, ClientRequest& request, bool is_write, int number) {
  if (is_write) {
    request.Replace(kTable).Set("copy", number);
  } else {
    request.Get(kTable);
  }
  return client.Send(request.Key("id", number).SetSequence(number));  // the object is free again
}

// Sends kRecords writes or reads. Returns how many had the outcome that they should.
int SendAll(PollingClient& client, bool is_write) {
  ClientRequest request;
  ClientResponse response;
  int next = 0;
  int right = 0;
  while (next < kRecords || client.InFlight() > 0) {
    // Fill the window, then take what is there: requests so leave, and answers come, many at a
    // time. A Receive after each Send would send each one by itself.
    while (next < kRecords && client.InFlight() < kWindow) {
      const int ret = Send(client, request, is_write, next);
      if (ret != 0) {
        std::cerr << next << " was not sent: " << ErrorText(ret) << "\n";
      }
      ++next;
    }
    // Answers come in any order. Each request that Send accepted has exactly one outcome. The first
    // one is waited for.
    for (int wait_ms = 5000; client.InFlight() > 0; wait_ms = 0) {
      const int ret = client.Receive(response, wait_ms);
      if (ret < 0) {
        std::cerr << "receive: " << ErrorText(ret) << "\n";
        return right;
      }
      if (ret == 0) {
        break;
      }
      right += IsRight(response, is_write) ? 1 : 0;
    }
  }
  return right;
}

int Run(const std::string& directory_url) {
  ClientOptions options;
  options.app_id = 7;
  options.zones = {kZone};
  options.directory_urls = {directory_url};
  options.tables = {{kTable, kZone, nullptr}};
  options.signature = "a signature";
  PollingClient client(options);
  int ret = client.Start();
  ret = ret != 0 ? ret : client.WaitReady(5000);
  if (ret != 0) {
    std::cerr << "not ready: " << ErrorText(ret) << " (" << ret << ")\n";
    return 1;
  }
  const int written = SendAll(client, true);
  const int read = SendAll(client, false);
  const ClientCounters counters = client.Counters();
  std::cout << counters.accepted << " requests, " << counters.outcomes << " outcomes, "
            << counters.timed_out << " time-outs, " << client.SystemCalls() << " system calls\n";
  return written == kRecords && read == kRecords ? 0 : 1;
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
