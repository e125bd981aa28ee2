// Requests in coroutines. C++20, and empty without; header only; nothing of the library needs it.
//
//   Task Example(Client& client) {
//     ClientResponse response = co_await Request(client, Get("user").Key("id", 42));
//     if (response.GetResult() != 0) { ... }
//   }
//
// The response holds the whole answer, all packages of it (ClientResponse::NextPackage). What Send
// would answer instead of accepting the request is its result, as everything else.
//
// Threads: the coroutine goes on where callbacks run: on the client's background thread, or on the
// executor that the options name. On the background thread it is as quick as a callback, and
// Call and Stop answer CLIENT_ERR_IN_CALLBACK there. A request that was not accepted does not
// suspend: the coroutine goes on where it is.
//
// Ownership: the coroutine's frame holds request and response while it waits. It is not destroyed
// meanwhile: Cancel, or Stop, ends the wait.
#pragma once

#include <version>

#if defined(__cpp_impl_coroutine) && defined(__cpp_lib_coroutine)

#include <coroutine>
#include <utility>

#include "client/client.h"

namespace OstrandService {

class RequestAwaiter {
 public:
  RequestAwaiter(Client& client, ClientRequest&& request)
      : m_client(client), m_request(std::move(request)) {}

  bool await_ready() const noexcept { return false; }

  bool await_suspend(std::coroutine_handle<> coroutine) {
    // After a Send that was accepted nothing here is touched: the coroutine may be over already.
    const int ret = m_client.SendForWhole(m_request, [this, coroutine](ClientResponse& response) {
      m_response = std::move(response);
      coroutine.resume();
    });
    if (ret != 0) {
      OutcomeHead outcome;
      outcome.result = ret;
      outcome.cmd = m_request.GetCmd() + 1;
      outcome.sequence = m_request.GetSequence();
      m_response.SetOutcome(outcome);
    }
    return ret == 0;
  }

  ClientResponse await_resume() noexcept { return std::move(m_response); }

 private:
  Client& m_client;
  ClientRequest m_request;
  ClientResponse m_response;
};

inline RequestAwaiter Request(Client& client, ClientRequest&& request) {
  return RequestAwaiter(client, std::move(request));
}

}  // namespace OstrandService

#endif
