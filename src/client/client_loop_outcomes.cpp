// How outcomes leave a client's loop: to callbacks, to the executor, to futures, to waiting
// callers.
#include <new>
#include <utility>

#include "client/client_errors.h"
#include "client/client_loop.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {
namespace {

// An exception out of a callback ends the program, as out of a thread of the application's own.
void RunHere(const ClientLoop::Callback& callback, ClientResponse& response) noexcept {
  callback(response);
}

// What Call answers to an outcome of the loop's own: no answer in time is an outcome as others.
int CodeOfCall(int result) { return result == ClientResponse::kResultTimeOut ? 0 : result; }

}  // namespace

void ClientLoop::HandOutOutcomes() {
  m_look_again = true;
  for (int handed_out = 0; handed_out < kOutcomesARound && !InChild(); ++handed_out) {
    const ClientCore::Taken taken = m_core->TakeOutcome(m_response);
    if (taken == ClientCore::Taken::kNothing) {
      m_look_again = false;
      return;
    }
    if (taken == ClientCore::Taken::kLookAgain) {
      return;
    }
    HandOut(m_response);
  }
}

// A package of an answer, or what stands in its place.
void ClientLoop::HandOut(ClientResponse& response) {
  Ticket& ticket = *m_by_slot[PendingRequests::SlotOfId(response.GetAsynID())];
  response.SetAsynID(ticket.id);
  const bool is_last = response.HaveMoreResPkgs() == 0;
  if (is_last) {
    ticket.core_id = 0;
    if (!Close(ticket)) {  // the record of its Cancel comes
      --m_own.outcomes;
      ++m_own.cancelled;
      return;
    }
    m_cut_off += m_is_finishing && response.GetResult() == CLIENT_ERR_CANCELLED ? 1 : 0;
    const int code = ticket.kind == Ticket::Kind::kCallback || response.GetResult() != 0
                         ? 0
                         : Collect(ticket, response);
    if (code != 0) {
      End(ticket, code);
    } else {
      const bool is_cancelled = response.GetResult() == CLIENT_ERR_CANCELLED;
      Finish(ticket, response, is_cancelled ? int{CLIENT_ERR_CANCELLED} : 0);
    }
  } else if (ticket.open_id.load() == ticket.id) {
    if (ticket.kind == Ticket::Kind::kCallback) {
      RunCallback(ticket, response, false);
    } else if (const int code = Collect(ticket, response)) {
      GiveUp(ticket, code);
    }
  }
}

// Adds a package to the answer. An answer of one package, and the last one of any, stay where they
// are. 0; CLIENT_ERR_ANSWER_TOO_LARGE; ROUTER_ERR_ALLOCATION.
int ClientLoop::Collect(Ticket& ticket, ClientResponse& response) {
  ticket.collected_bytes += response.SizeInMemory();
  if (ticket.collected_bytes > m_options.max_answer_bytes) {
    return CLIENT_ERR_ANSWER_TOO_LARGE;
  }
  try {
    if (ticket.collected != nullptr) {
      ticket.collected->AppendPackage(std::move(response));
    } else if (response.HaveMoreResPkgs() == 1) {
      ticket.collected = std::make_unique<ClientResponse>(std::move(response));
    }
  } catch (const std::bad_alloc&) {
    return ROUTER_ERR_ALLOCATION;
  }
  return 0;
}

// Takes the request back from the core, where it is there, and ends it, unless Cancel does.
void ClientLoop::GiveUp(Ticket& ticket, int code) {
  ticket.is_held = false;
  const bool was_sent = ticket.core_id != 0;
  if (was_sent) {
    m_core->Cancel(std::exchange(ticket.core_id, 0));
    --m_own.cancelled;
  } else {
    ++m_own.accepted;
  }
  if (!Close(ticket)) {
    ++m_own.cancelled;
    return;
  }
  ++m_own.outcomes;
  m_own.timed_out += code == ClientResponse::kResultTimeOut ? 1 : 0;
  m_cut_off += m_is_finishing ? 1 : 0;
  End(ticket, code);
}

// Whether the outcome is ours to decide: no Cancel was before.
bool ClientLoop::Close(Ticket& ticket) {
  uint64_t expected = ticket.id;
  return ticket.open_id.compare_exchange_strong(expected, 0);
}

// REQUIRES: closed. The outcome is the code.
void ClientLoop::End(Ticket& ticket, int code) {
  OutcomeHead outcome;
  const TableOptions& table = m_catalog.At(ticket.table);
  outcome.result = code;
  outcome.cmd = ticket.cmd + 1;
  outcome.async_id = ticket.id;
  outcome.sequence = ticket.sequence;
  outcome.app_id = static_cast<int32_t>(m_options.app_id);
  outcome.zone_id = table.zone_id;
  outcome.table = table.name;
  m_ended.SetOutcome(outcome);
  Finish(ticket, m_ended, CodeOfCall(code));
}

// REQUIRES: closed. response: the last package, which was collected where packages are, or what
// stands in the answer's place. code: of Call.
void ClientLoop::Finish(Ticket& ticket, ClientResponse& response, int code) {
  const std::unique_ptr<ClientResponse> collected = std::move(ticket.collected);
  ticket.collected_bytes = 0;
  ClientResponse& whole = collected != nullptr && response.GetCmd() == 0 ? *collected : response;
  m_in_flight.fetch_sub(1);
  switch (ticket.kind) {
    case Ticket::Kind::kCallback:
    case Ticket::Kind::kWhole:
      RunCallback(ticket, whole, true);
      Free(ticket);
      break;
    case Ticket::Kind::kFuture:
      ticket.promise->set_value(std::move(whole));
      ticket.promise.reset();
      Free(ticket);
      break;
    case Ticket::Kind::kCall:
      std::swap(*ticket.response, whole);
      ticket.waiter.Wake(code);  // from here on it is its caller's
      break;
  }
}

void ClientLoop::RunCallback(Ticket& ticket, ClientResponse& response, bool is_last) {
  if (ticket.delivery == nullptr && !ticket.callback) {
    return;  // it was given its end already
  }
  if (ticket.delivery == nullptr && m_options.executor) {
    try {
      ticket.delivery = &m_deliveries->Take();
      ticket.delivery->callback = std::exchange(ticket.callback, nullptr);
    } catch (const std::bad_alloc&) {  // then here, as if the executor had refused
    }
  }
  if (ticket.delivery == nullptr) {
    RunHere(ticket.callback, response);
    return;
  }
  Delivery& delivery = *ticket.delivery;
  if (is_last) {
    ticket.delivery = nullptr;
  }
  if (!Deliver(delivery, response, is_last, m_options.executor) && !is_last) {
    ticket.delivery = nullptr;
    GiveUp(ticket, ROUTER_ERR_ALLOCATION);
  }
}

void ClientLoop::Free(Ticket& ticket) {
  ticket.callback = nullptr;
  m_freed.Append(ticket);
}

}  // namespace OstrandService
