// A client of the table store without a thread of its own: all of its work is done inside its
// calls, on its owner's thread. `Client` (client/client.h) is the one for services; this one is for
// who has a loop already, or wants the last bit of speed.
//
//   OstrandService::ClientOptions options;
//   options.app_id = 7;
//   options.zones = {1};
//   options.directory_urls = {"tcp://127.0.0.1:9000"};
//   options.tables = {{"user", 1, nullptr}};
//   options.signature = "...";
//   OstrandService::PollingClient client(options);
//   if (client.Start() != 0 || client.WaitReady(5000) != 0) { ... }
//   OstrandService::ClientResponse response;
//   int ret = client.Call(Get("user").Key("id", 42), response);   // 0: response holds the outcome
//
// Outcomes: each request that Send accepted has exactly one, which Receive hands out once: its
// answer, or what stands in its place (response.GetResult() tells: no answer in time, connection
// lost, no proxy). An answer in several packages is handed out package by package;
// HaveMoreResPkgs() tells whether another follows. What comes for a request that has had its
// outcome is dropped and counted.
//
// Waiting: a request that cannot be sent now, because no proxy can take it or a queue is full,
// waits for that as long as its time-out; it then ends with the reason. One that asks for it
// (SetRepeat) is sent again when its connection is lost or a share of its time is over.
//
// Pauses: an owner that calls nothing for a while loses nothing but time. What came meanwhile is
// read first, and only then silence begins to count. For heartbeats to go on, call Update, or
// Receive, when NextDueMs says so.
//
// Other loops: Fd() is readable while there is something to do; then call Receive with a time-out
// of 0, as often as it hands out something or once a turn.
//
// Sending: Send queues. Queued requests leave together when Receive, Update or Flush is called,
// when 256 of them wait, and at once when nothing else is in flight (as Nagle's algorithm, RFC 896,
// does with bytes).
//
// Errors: codes (client/client_errors.h, and those of router, codec and store; ErrorText has a text
// for each); nothing throws. Without memory operations answer ROUTER_ERR_ALLOCATION. In a forked
// child they answer CLIENT_ERR_FORKED, and the destructor only closes the child's descriptors.
// Threads: one at a time; nothing is shared between two clients.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "client/client_counters.h"
#include "client/client_errors.h"
#include "client/client_options.h"
#include "client/client_request.h"
#include "client/client_response.h"
#include "common/export.h"

namespace OSTRNET {
class System;
}

namespace OstrandService {

class OSTRAND_API PollingClient {
 public:
  explicit PollingClient(const ClientOptions& options);
  // For tests: in another world.
  PollingClient(const ClientOptions& options, OSTRNET::System& system);
  ~PollingClient();  // as Stop(0)
  PollingClient(const PollingClient&) = delete;
  PollingClient& operator=(const PollingClient&) = delete;

  // Begins to ask the directory. Returns at once. 0; CLIENT_ERR_OPTIONS; CLIENT_ERR_NOT_STARTED for
  // a second Start; ROUTER_ERR_FAILED when the system gives no descriptor.
  int Start();

  // Waits until requests can be sent: enough proxies signed up in every zone, schemas checked.
  // timeout_ms: from 0 on. 0; CLIENT_ERR_NOT_READY_IN_TIME, or what kept a schema from being
  // checked; the code of a schema that does not fit.
  int WaitReady(int timeout_ms);

  // Sends a request, or lets it wait; its object may be used again at once. request.GetAsynID() is
  // then the id that the outcome carries. 0: accepted. Else it has no outcome: the request's own
  // fault (request.FaultText() says which field); CLIENT_ERR_REQUEST, _KEY, _TABLE, _TOO_LARGE;
  // CLIENT_ERR_TOO_MANY at one of the options' bounds.
  int Send(ClientRequest& request);
  int Send(ClientRequest&& request) { return Send(request); }

  // Sends what is queued now.
  int Flush();

  // Hands out the next outcome, waiting for it up to timeout_ms (0: not at all). 1: `response`
  // holds it; 0: none in time; negative: a code.
  int Receive(ClientResponse& response, int timeout_ms);

  // Sends one request and waits for its outcome. 0: `response` holds it (response.GetResult() says
  // what it is); else a code. Outcomes of other requests that come meanwhile are kept for Receive;
  // when they fill kMostKeptBytes, CLIENT_ERR_BUSY. Of an answer in several packages it is the
  // first package; the others follow with Receive, until the next Call refuses them.
  int Call(ClientRequest& request, ClientResponse& response);
  int Call(ClientRequest&& request, ClientResponse& response) { return Call(request, response); }
  static constexpr size_t kMostKeptBytes = size_t{16} << 20;

  // Gives a request up: what is still to come for it is refused. Whether there was one.
  bool Cancel(uint64_t asyn_id);

  // Does what is due, without waiting.
  int Update();

  // Milliseconds until Update, or Receive for a time-out, has something to do by the clock; 0: now.
  int64_t NextDueMs();

  // A descriptor for the owner's own loop, readable while Receive has something to do; it is never
  // to be read. -1 when there is none.
  int Fd();

  // Receives outcomes for up to drain_ms, then ends; requests without an outcome by then time out.
  // Every outcome goes to `on_outcome`, if there is one; inside it Send answers
  // CLIENT_ERR_NOT_STARTED and Stop does nothing. Returns the number that timed out.
  size_t Stop(int drain_ms, const std::function<void(ClientResponse&)>& on_outcome = {});

  // Requests without outcome, waiting ones included.
  size_t InFlight() const;
  ClientCounters Counters() const;

  // What is wrong with the options, or null.
  const char* OptionsError() const;

  // The last error that directories, connecting, signing up or a schema met: a code (0: none) and a
  // text.
  void GetLastError(int32_t& code, std::string& text);

  // Proxies, ring and statistics as text.
  std::string StatusText();

  // Url of the proxy that the zone's last request was sent to; null before the first, and for
  // another zone. Valid until the next call.
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
