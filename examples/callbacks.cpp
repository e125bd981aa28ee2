// Callbacks: many requests in flight, none of which blocks a thread. The callbacks run on the
// client's background thread, so they only note what they see; each answer sends the next request.
//
//   example_callbacks [directory url]     as tcp://127.0.0.1:9000
//
// Without a url the program starts a development fleet of its own. It writes records, reads all of
// them back, and compares.
#include <cstdint>
#include <cstdlib>
#include <future>
#include <iostream>
#include <string>

#include "client/client.h"
#include "client/error_text.h"
#include "fleet/fleet.h"

using namespace OstrandService;  // NOLINT: the whole program is about it

namespace {

constexpr char kTable[] = "number";
constexpr int kRecords = 5000;
constexpr int kAtOnce = 256;

// Writes and reads each record, kAtOnce of them at a time. All but Run happens in callbacks, one
// after the other: nothing here needs a lock.
class Round {
 public:
  explicit Round(Client& client) : m_client(client) {}

  // The number of records that came back as they were written.
  int Run() {
    // The first ones; what follows is sent by the callbacks, on the background thread. Sending them
    // there, too, leaves all that they share to one thread.
    Count(m_client.Send(Get(kTable).Key("id", 0), [this](ClientResponse&) {
      for (int i = 0; i < kAtOnce; ++i) {
        WriteNext();
      }
    }));
    m_is_over.get_future().wait();
    return m_right;
  }

 private:
  void WriteNext() {
    if (m_next == kRecords) {
      return;
    }
    const int number = m_next++;
    // The callback's 16 bytes fit into a std::function, which then allocates nothing.
    Count(m_client.Send(m_request.Replace(kTable).Key("id", number).Set("copy", number),
                        [this, number](ClientResponse& response) { Written(response, number); }));
  }

  void Written(ClientResponse& response, int number) {
    if (response.GetResult() != 0) {  // kResultTimeOut when no answer came in time
      std::cerr << number << ": " << ErrorText(response.GetResult()) << "\n";
    }
    Count(m_client.Send(m_request.Get(kTable).Key("id", number),
                        [this, number](ClientResponse& answer) { WasRead(answer, number); }));
  }

  void WasRead(ClientResponse& response, int number) {
    int64_t copy = -1;
    const bool is_right =
        response.GetResult() == 0 && response.Get("copy", copy) == 0 && copy == number;
    m_right += is_right ? 1 : 0;
    if (++m_done == kRecords) {
      m_is_over.set_value();
      return;
    }
    WriteNext();
  }

  // Send may refuse a request, and then nobody is told of it but its caller.
  void Count(int ret) {
    if (ret != 0) {
      std::cerr << "not sent: " << ErrorText(ret) << "\n";
      std::exit(1);
    }
  }

  Client& m_client;
  ClientRequest m_request;  // copied by Send: one object serves all
  int m_next = 0;
  int m_done = 0;
  int m_right = 0;
  std::promise<void> m_is_over;
};

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
  Round round(client);
  const int right = round.Run();
  client.Stop(1000);  // no callback runs any more: `round` may go
  const ClientCounters counters = client.Counters();
  std::cout << counters.accepted << " requests, " << counters.outcomes << " outcomes, " << right
            << " records as they were written\n";
  return right == kRecords ? 0 : 1;
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
