// The cluster that a command talks to, as the command line names it; the same options for every
// command that needs one.
//
//   Connection connection;                // outlives the parsing of the command line
//   connection.AddTo(command);
//   ...
//   std::unique_ptr<OstrandService::Client> client;
//   const int status = connection.Open(client);
//   if (status != kExitSuccess) return status;   // the user was told
//
// Defaults: a directory from the environment variable OSTRAND_DIRECTORY, application 1, zone 1,
// table "default" and the signature "ostrand" (a development fleet takes any).
// Threads: one at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/polling_client.h"

namespace CLI {
class App;
}

namespace OstrandCli {

struct Connection {
  std::vector<std::string> directory_urls;  // as given: "tcp://host:port" or "host:port"
  int64_t app_id = 1;
  int32_t zone = 1;
  std::string table = "default";
  std::string signature = "ostrand";  // not used when there is a user
  std::string user;
  std::string password;  // already encrypted
  int32_t timeout_ms = 3000;
  int32_t wait_ms = 5000;  // for the first proxies
  bool verbose = false;    // the library's log on standard error

  // Adds the options to a command. The record is borrowed until the command line is parsed.
  void AddTo(CLI::App* command);

  // The options of a Client for this cluster; directory urls as they were given.
  OstrandService::ClientOptions ToOptions() const;

  // A Client that can send. kExitSuccess; else `client` is null and a sentence on standard error
  // has said what is wrong and what to do: kExitUsage for options that are wrong, kExitFailure for
  // a directory that does not answer, and proxies that cannot be used.
  int Open(std::unique_ptr<OstrandService::PollingClient>& client) const;
  // The same with options made from ToOptions.
  int Open(OstrandService::ClientOptions options,
           std::unique_ptr<OstrandService::PollingClient>& client) const;
};

// Turns "tcp://HOST:PORT" or "HOST:PORT" into the url that the library takes; a name is looked up
// by the library. False: `error` holds a sentence.
bool ReadAddress(const std::string& given, std::string& url, std::string& error);

}  // namespace OstrandCli
