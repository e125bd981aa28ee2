// What both clients are made of: a loop, a service on it, and the requests without outcome.
//
// A request that was accepted is sent at once where that can succeed; else it waits, in the order
// of its zone, until something happens with which it can. A sent one whose connection is lost, or
// whose try is over, is sent again if it may be. So each has exactly one outcome: an answer,
// package by package, or what stands in its place. docs/internals.md draws the states.
//
// Ownership: owns everything below; borrows the options' logger and schemas, and the system.
// Threads: one at a time, with a LoopScope of Loop() around every call; Loop().Wake(): any.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client/client_counters.h"
#include "client/client_options.h"
#include "client/pending_requests.h"
#include "client/router_request.h"
#include "client/router_response.h"
#include "client/service.h"
#include "client/table_catalog.h"
#include "net/event_loop.h"

namespace OstrandService {

class ClientCore final : private ServiceListener {
 public:
  // What of the clock's steps between two looks is taken for the owner's pause.
  static constexpr int64_t kPauseMs = 1000;
  // So many queued requests leave without being told to.
  static constexpr size_t kSendTogether = 256;

  // options: checked. May throw std::bad_alloc, as all operations but where they say so.
  ClientCore(const ClientOptions& options, OSTRNET::System& system);
  ~ClientCore();
  ClientCore(const ClientCore&) = delete;
  ClientCore& operator=(const ClientCore&) = delete;

  OSTRNET::EventLoop& Loop() { return m_loop; }
  const TableCatalog& Catalog() const { return m_catalog; }
  Service& GetService() { return m_service; }

  // Whether a request is larger than a connection can ever take. Any thread.
  static bool IsTooLarge(const RequestHead& head, const ClientOptions& options);

  // 0, or why the system gives no descriptors or memory.
  int Start();

  // Accepts a request that the catalog prepared; its bytes are copied. 0: `id` is what its outcome
  // will carry; else nothing of it is left. Without memory ROUTER_ERR_ALLOCATION.
  int Send(const RequestHead& head, const char* bytes, uint64_t& id);

  // Gives a request up: it has no outcome, and what comes for it is dropped. False: none such.
  bool Cancel(uint64_t id);

  // Hands out the next outcome that is there, without looking at sockets or the clock.
  enum class Taken { kNothing, kOutcome, kLookAgain };  // kLookAgain: so much was none
  Taken TakeOutcome(ClientResponse& response);

  // Looks at the clock after its owner did something else for a time that nobody knows.
  void LookAfterOwner();

  // One round of the loop, waiting until `until_ms` (monotonic) at the latest, and what follows
  // from it.
  void Round(int64_t until_ms);
  // Sends what is queued; the time of what was sent since the last look at the clock begins now.
  void Flush();

  // When there is something to do by the clock; INT64_MIN: now.
  int64_t NextDueMs();
  // Whether TakeOutcome would do something.
  bool HasWork();

  // Ends all requests that are pending with this result.
  void EndAll(int32_t result);

  size_t InFlight() const { return m_pending.size(); }
  const ClientCounters& Counters() const { return m_counters; }

 private:
  // Whether a request may be tried now.
  enum class Chance { kGood, kNoRoute, kNoRoom };

  // ServiceListener
  void OnConnectionLost(RequestChain& in_flight, const std::vector<uint64_t>& answered) override;
  void OnAnswersDropped(const std::vector<uint64_t>& wire_ids) override;

  int Accept(PendingRequest& request, const RequestHead& head, const char* bytes);
  Chance ChanceOf(Zone& zone, const RequestHead& head);
  bool HasRoom(Zone& zone, size_t frame_len, bool has_position, const char* table_name);
  int Try(Zone& zone, PendingRequest& request, Chance chance);
  void Load(const Zone& zone, const PendingRequest& request, const RequestHead& head,
            const char* bytes);
  int Keep(Zone& zone, PendingRequest& request, const RequestHead& head, const char* bytes);
  int Wait(Zone& zone, PendingRequest& request, const RequestHead& head, const char* bytes);
  void SendWaiting(Zone& zone);
  void TryIsOver(PendingRequest& request, int32_t result);
  bool MayTryAgain(const PendingRequest& request) const;
  void End(PendingRequest& request, int32_t result);
  void HandOutEnded(ClientResponse& response);
  void Overdue(PendingRequest& request);
  Taken PollZones(ClientResponse& response);
  Taken PollZone(Zone& zone, ClientResponse& response, size_t& passed_over);
  void OwnerPaused(int64_t paused_ms);
  void EndAnswersFirst();
  bool IsOutcome(ClientResponse& response);
  void Forget(PendingRequest& request);
  void ForgetTry(PendingRequest& request);
  void LeaveWaiting(PendingRequest& request);
  bool RoomCame();
  void AfterRound();
  int64_t LookAtClock();
  void Restamp();
  int32_t ReasonOf(Zone& zone, Chance chance) const;

  const ClientOptions m_options;
  const TableCatalog m_catalog;
  OSTRNET::EventLoop m_loop;
  PendingRequests m_pending;
  RequestChain m_ended;
  Service m_service;
  RouterRequest m_request;
  RouterResponse m_response;
  ClientCounters m_counters;
  std::vector<uint64_t> m_stamped;  // sent since the last look at the clock
  size_t m_next_zone = 0;           // polled first
  size_t m_queued = 0;              // requests queued since the last flush
  bool m_may_have_outcome = true;   // something happened since TakeOutcome found nothing
  // After a pause of the owner answers that came meanwhile are handed out before anything times
  // out, up to this time (monotonic); INT64_MIN: not now.
  int64_t m_answers_first_until_ms = INT64_MIN;
};

}  // namespace OstrandService
