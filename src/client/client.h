// A client of the table store for services: any number of threads use one object.
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
//   int ret = client.Call(Get("user").Key("id", 42), response);   // 0: response holds the outcome
//
// Work goes on by itself: one background thread keeps connections, heartbeats, route and time-outs,
// whether anybody calls or not. `PollingClient` (client/polling_client.h) is the one without a
// thread.
//
// Outcomes: each request that was accepted has exactly one: its answer, or what stands in its place
// (response.GetResult() tells: no answer in time, connection lost, no proxy). Its time-out counts
// from Send or Call. Waiting and repeating are as PollingClient's.
//
// Answers in several packages: a callback of Send is told of each package; HaveMoreResPkgs() says
// whether another follows. Call, futures and SendForWhole collect them: one response holds all, and
// its NextPackage() goes through them. Over the options' max_answer_bytes the outcome is
// CLIENT_ERR_ANSWER_TOO_LARGE; an answer that breaks off is what broke it off.
//
// Threads: any, every operation, but construction and destruction: nobody is inside an operation of
// an object that is destroyed. Call Stop first where somebody may be: each Call then has its
// outcome. Callbacks run on the background thread, one after the other: while one runs nothing else
// goes on, so they are quick; or on the options' executor, in order for one request's packages. A
// task that the executor refuses runs on the background thread. A callback may call everything, but
// on the background thread Call and Stop, and a WaitReady that would wait, answer
// CLIENT_ERR_IN_CALLBACK. A client that is destroyed there ends its thread when the callback has
// returned, and needs the logger and the schemas until then. An exception out of a callback or the
// executor ends the program, as it does out of a thread. The background thread takes no signals.
//
// Bounds: with max_in_flight requests without outcome, or kMostPosted bytes that the background
// thread has not taken yet, Send answers CLIENT_ERR_TOO_MANY at once. At the bounds of waiting and
// kept requests (max_waiting, max_kept_bytes) this becomes the outcome, as all that is found later.
// Call waits for room within its time-out, and only then answers it.
//
// Memory: a request is copied when it is sent; the object is free again at once. Nothing is
// allocated per request once warm, but by a future for what it shares, by a response that is moved
// away for the next one's bytes, by an answer's further packages when they are collected, and by
// the std::function that holds a callback with more than 16 bytes.
//
// fork: in the child every operation answers CLIENT_ERR_FORKED, or nothing, and the destructor only
// closes the child's descriptors. A child that was forked inside a callback on the background
// thread ends when that callback returns.
//
// Errors: codes (client/client_errors.h, and those of router, codec and store; ErrorText has a text
// for each); nothing throws. Without memory operations answer ROUTER_ERR_ALLOCATION.
// Ownership: owns its thread and connections; borrows the options' logger and schemas.
#pragma once

#include <cstdint>
#include <functional>
#include <future>
#include <string>
#include <utility>

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

class ClientCore;
class ClientLoop;

class OSTRAND_API Client {
 public:
  // May take the response's bytes by moving it; what it points at is gone after the call.
  using Callback = std::function<void(ClientResponse& response)>;

  // Bytes of requests that were sent and that the background thread has not taken yet.
  static constexpr size_t kMostPosted = size_t{64} << 20;

  explicit Client(const ClientOptions& options);
  // For tests: in another world.
  Client(const ClientOptions& options, OSTRNET::System& system);
  ~Client();  // as Stop(0)
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // Starts the background thread and begins to ask the directory. 0; CLIENT_ERR_OPTIONS;
  // CLIENT_ERR_NOT_STARTED while it is started; ROUTER_ERR_FAILED when the system gives no
  // descriptor or thread. A stopped client may be started again.
  int Start();

  // Waits until requests can be sent: enough proxies signed up in every zone, schemas checked. 0;
  // CLIENT_ERR_NOT_READY_IN_TIME, or what kept a schema from being checked; the code of a schema
  // that does not fit; CLIENT_ERR_NOT_STARTED, also when it stops meanwhile.
  int WaitReady(int timeout_ms);

  // Sends one request and waits for its outcome. 0: `response` holds it, all packages of it
  // (response.GetResult() says what it is). Else a code: the request's own fault, as Send; what
  // kept it from being sent (CLIENT_ERR_TOO_MANY when there was no room in its time),
  // CLIENT_ERR_CANCELLED or CLIENT_ERR_ANSWER_TOO_LARGE, which response.GetResult() repeats.
  int Call(ClientRequest& request, ClientResponse& response);
  int Call(ClientRequest&& request, ClientResponse& response) { return Call(request, response); }

  // Sends a request; the callback is told of its outcome, package by package. request.GetAsynID()
  // is the id that the outcome carries. 0: accepted. Else the callback is never called: the
  // request's own fault (request.FaultText() says which field); CLIENT_ERR_REQUEST, _KEY, _TABLE,
  // _TOO_LARGE; CLIENT_ERR_TOO_MANY; CLIENT_ERR_NOT_STARTED.
  int Send(ClientRequest& request, Callback callback);
  int Send(ClientRequest&& request, Callback callback) {
    return Send(request, std::move(callback));
  }

  // The same; the callback is called once, with all packages.
  int SendForWhole(ClientRequest& request, Callback callback);
  int SendForWhole(ClientRequest&& request, Callback callback) {
    return SendForWhole(request, std::move(callback));
  }

  // The same as a future. What Send would answer is there at once as the response's result. Without
  // memory for a future the one answered is not valid().
  std::future<ClientResponse> Send(ClientRequest& request);
  std::future<ClientResponse> Send(ClientRequest&& request) { return Send(request); }

  // Gives a request up. True: its outcome is CLIENT_ERR_CANCELLED, whatever is still to come for
  // it; of its callback only a call that has begun may still run before that. False: it has, or
  // had, its outcome.
  bool Cancel(uint64_t asyn_id);

  // Takes no requests any more, waits up to drain_ms for outcomes, and ends; what has none by then
  // ends with CLIENT_ERR_CANCELLED. When it returns, all callbacks of the background thread are
  // over; those given to an executor are its. The number of requests that were ended so, or a code.
  int Stop(int drain_ms);

  // Requests without outcome.
  size_t InFlight() const;
  // After Stop those of the run that ended. A request that was cancelled counts as such, and not as
  // an outcome.
  ClientCounters Counters() const;

  // What is wrong with the options, or null.
  const char* OptionsError() const;

  // These ask the background thread, and answer nothing while the client is not started.
  // The last error that directories, connecting, signing up or a schema met: a code (0: none) and a
  // text.
  void GetLastError(int32_t& code, std::string& text) const;
  // Proxies, ring and statistics as text.
  std::string StatusText() const;
  // Url of the proxy that the zone's last request was sent to; empty before the first.
  std::string UsedProxyUrl(int32_t zone_id) const;
  // System calls that the network layer made; for benchmarks.
  uint64_t SystemCalls() const;

 private:
  int Usable() const;
  bool Ask(const std::function<void(ClientCore&)>& question) const;

  ClientLoop* m_loop = nullptr;  // shared with its thread; null: no memory for it
};

}  // namespace OstrandService
