// A loop of one's own: the client without a thread beside whatever else the program waits for.
//
//   example_foreign_loop [directory url]     as tcp://127.0.0.1:9000
//
// Without a url the program starts a development fleet of its own. Its loop is poll(); a pipe
// stands for the rest of the program, which asks for records by writing their numbers into it.
#include <poll.h>
#include <unistd.h>

#include <cstdint>
#include <iostream>
#include <string>

#include "client/error_text.h"
#include "client/polling_client.h"
#include "fleet/fleet.h"

using namespace OstrandService;  // NOLINT: the whole program is about it

namespace {

constexpr char kTable[] = "number";
constexpr int kNoSuchRecord = -7949;
constexpr int32_t kRecords = 100;

// One turn of the loop: waits for either descriptor and handles one thing of each. The client's is
// readable while an outcome, a time-out or bytes from the network wait, so that nothing is lost by
// taking one at a time, and nothing has to be asked in vain.
int Turn(PollingClient& client, int asked_fd, int& outcomes) {
  pollfd waiting[] = {{client.Fd(), POLLIN, 0}, {asked_fd, POLLIN, 0}};
  if (poll(waiting, 2, 10000) <= 0) {
    std::cerr << "nothing happens\n";
    return -1;
  }
  if ((waiting[1].revents & POLLIN) != 0) {
    int32_t number = 0;
    if (read(asked_fd, &number, sizeof(number)) == static_cast<ssize_t>(sizeof(number))) {
      const int ret = client.Send(Get(kTable).Key("id", number));
      if (ret != 0) {
        std::cerr << number << " was not sent: " << ErrorText(ret) << "\n";
        return ret;
      }
    }
  }
  if ((waiting[0].revents & POLLIN) != 0) {
    ClientResponse response;
    if (client.Receive(response, 0) == 1) {
      if (response.GetResult() != kNoSuchRecord) {
        std::cerr << ErrorText(response.GetResult()) << "\n";
        return -1;
      }
      ++outcomes;
    }
  }
  return 0;
}

int Run(const std::string& directory_url) {
  ClientOptions options;
  options.app_id = 7;
  options.zones = {1};
  options.directory_urls = {directory_url};
  options.tables = {{kTable, 1, nullptr}};
  options.signature = "a signature";
  PollingClient client(options);
  int pipe_fds[2];
  if (client.Start() != 0 || pipe(pipe_fds) != 0) {
    std::cerr << "the client does not start\n";
    return 1;
  }
  for (int32_t number = 0; number < kRecords; ++number) {
    if (write(pipe_fds[1], &number, sizeof(number)) < 0) {
      return 1;
    }
  }
  // Requests may be sent at once: until the first proxies are there they wait.
  int outcomes = 0;
  int ret = 0;
  while (ret == 0 && outcomes < kRecords) {
    ret = Turn(client, pipe_fds[0], outcomes);
  }
  close(pipe_fds[0]);
  close(pipe_fds[1]);
  std::cout << outcomes << " outcomes, one a turn\n";
  return outcomes == kRecords ? 0 : 1;
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
