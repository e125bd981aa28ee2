// The table store's client, as an application uses it.
//
//   OstrandService::ClientOptions options;
//   options.app_id = 7;
//   options.zones = {1};
//   options.directory_urls = {"tcp://127.0.0.1:9000"};
//   options.tables = {{"user", 1, nullptr}};
//   options.signature = "...";
//   OstrandService::Client client(options);
//   if (client.Start() != 0 || client.WaitReady(5000) != 0) { ... }
//   OstrandService::ClientResponse response;
//   int ret = client.Call(Get("user").Key("id", 42), response);   // 0: response holds the answer
//
// Outcomes: each request that Send accepted has exactly one outcome, which Receive hands out once:
// its answer, or an answer with result -20499 when none came in time. An answer in several packages
// is handed out package by package; HaveMoreResPkgs() tells whether another follows. What comes for
// a request that has had its outcome is dropped and counted.
//
// Errors: codes; nothing throws. Without memory every operation answers ROUTER_ERR_ALLOCATION.
// Threads: one Client a thread; nothing inside is shared between two Clients. The Client has one
// network thread of its own.
//
// Time: the Client works inside Send, Receive, Call and Update. An application that calls none of
// them for a while calls Update at least every 100 ms; if it pauses longer than check_heartbeat_ms,
// proxies may be connected anew.
//
// Sending: Send queues. Queued requests leave together when Receive or Flush is called, when 32 of
// them wait, and at once when nothing else is in flight (as Nagle's algorithm, RFC 896, does with
// bytes).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "client/client_options.h"
#include "client/client_request.h"
#include "client/client_response.h"
#include "common/export.h"

namespace OstrandService {

// Codes of the Client; those of router, codec and store come through as they are. ErrorText has a
// text for each.
enum ClientError : int {
  CLIENT_ERR_OPTIONS = -36883,      // 0x9013: the options are wrong; OptionsError tells what
  CLIENT_ERR_NOT_STARTED = -37139,  // 0x9113: before Start or behind Stop; also a second Start
  CLIENT_ERR_NOT_READY = -37395,    // 0x9213: no proxy has taken the sign-up yet; nothing was sent
  CLIENT_ERR_NOT_READY_IN_TIME = -37651,  // 0x9313
  CLIENT_ERR_BUSY = -37907,               // 0x9413: Call while other requests are in flight
  CLIENT_ERR_TABLE = -38163,              // 0x9513: the request's table or zone is not registered,
                                          // or the table is in several zones and none was named
  CLIENT_ERR_TOO_MANY = -38419,           // 0x9613: max_in_flight requests are in flight
  CLIENT_ERR_REQUEST = -38675,            // 0x9713: the command is none of the application's
  CLIENT_ERR_KEY = -38931,                // 0x9813: a record without key, a key field without value
};

struct ClientCounters {
  uint64_t accepted = 0;   // by Send
  uint64_t outcomes = 0;   // handed out: answers and time-outs
  uint64_t timed_out = 0;  // of these, without an answer
  uint64_t dropped = 0;    // came for a request that had its outcome, or for nobody
};

class OSTRAND_API Client {
 public:
  explicit Client(const ClientOptions& options);
  ~Client();  // as Stop(0)
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // Starts the network thread and begins to ask the directory. Returns at once. 0, or a code.
  int Start();

  // Waits until requests can be sent: enough proxies signed up in every zone, schemas checked.
  // timeout_ms: from 0 on. 0; CLIENT_ERR_NOT_READY_IN_TIME; the code of a schema that does not fit.
  int WaitReady(int timeout_ms);

  // Sends a request; its object may be used again at once. request.GetAsynID() is then the id that
  // the outcome carries (the Client gives it). A time-out of 0 stands for the options' default.
  // 0: accepted. Else nothing is in flight for it: the fault of the request (request.FaultText says
  // which field), a code of CheckComplete, of ClientRequest::ApplySchema, of the router.
  int Send(ClientRequest& request);
  int Send(ClientRequest&& request) { return Send(request); }

  // Sends what is queued now.
  int Flush();

  // Hands out the next outcome, waiting for it up to timeout_ms (0: not at all). 1: `response`
  // holds it; 0: none in time; negative: a code.
  int Receive(ClientResponse& response, int timeout_ms);

  // Sends one request and waits for its outcome. 0: `response` holds it (an answer's own result is
  // response.GetResult()); else a code. Of an answer in several packages it is the first package;
  // the others follow with Receive.
  int Call(ClientRequest& request, ClientResponse& response);
  int Call(ClientRequest&& request, ClientResponse& response) { return Call(request, response); }

  // Does what is due.
  int Update();

  // Receives outcomes for up to drain_ms, then ends; requests without an outcome by then time out.
  // Every outcome goes to `on_outcome`, if there is one. Returns the number that timed out.
  size_t Stop(int drain_ms, const std::function<void(ClientResponse&)>& on_outcome = {});

  size_t InFlight() const;
  ClientCounters Counters() const;

  // What is wrong with the options, or null.
  const char* OptionsError() const;

  // The last error that connecting, signing up or a schema met: a code (0: none) and a text.
  void GetLastError(int32_t& code, std::string& text);

  // Proxies, ring and statistics as text.
  std::string StatusText();

  // Url of the proxy that the zone's last accepted request went to; null before the first, and for
  // another zone. Valid until the next Send.
  const char* UsedProxyUrl(int32_t zone_id) const;

  // System calls that the network layer made; for benchmarks.
  uint64_t SystemCalls() const;

 private:
  struct Impl;
  template <typename Body>
  int Run(Body body);

  std::unique_ptr<Impl> m_impl;  // null: no memory for it
};

}  // namespace OstrandService
