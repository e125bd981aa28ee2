// What a Client is: a ClientCore, the thread that owns it, and what other threads hand over to it.
//
// A request is posted as its head and bytes, or, of a Call, whose caller stays, as a pointer. The
// thread takes all that was posted at once, sends it, and lets it leave together at the end of its
// round. It is woken only when it sleeps.
//
//   any thread: Send ──> post ┐                          ┌─> callback, executor, future
//               Call ──> post ┼─> loop: send, wait, take ┼─> wake the caller
//               Cancel ─> post┘   hand out               └─> CLIENT_ERR_CANCELLED
//
// Who decides a request's outcome: whoever takes its id out of its ticket's open_id. A ticket that
// Cancel took it out of is closed when the loop comes to the record of that Cancel, never before.
//
// Ownership: held by its client and by its thread; the last one deletes it. Borrows the system.
// Threads: any, where it does not say otherwise.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <vector>

#include "client/client_core.h"
#include "client/client_counters.h"
#include "client/client_options.h"
#include "client/client_request.h"
#include "client/client_response.h"
#include "client/descriptor_book.h"
#include "client/executor_delivery.h"
#include "client/fork_guard.h"
#include "client/post_queue.h"
#include "client/table_catalog.h"
#include "client/ticket.h"
#include "common/mutex.h"
#include "net/background_thread.h"

namespace OstrandService {

class ClientLoop {
 public:
  using Callback = std::function<void(ClientResponse&)>;

  // Bytes that are posted and not taken yet; a Send over it answers CLIENT_ERR_TOO_MANY.
  static constexpr size_t kMostPosted = size_t{64} << 20;
  // Outcomes that are handed out before the sockets are looked at again.
  static constexpr int kOutcomesARound = 256;

  // May throw std::bad_alloc, as all operations but where they say so.
  ClientLoop(const ClientOptions& options, OSTRNET::System& system);
  ~ClientLoop() = default;
  ClientLoop(const ClientLoop&) = delete;
  ClientLoop& operator=(const ClientLoop&) = delete;

  // Its client is gone: stops, and deletes this in the end. Throws nothing.
  void Leave();

  bool InChild() const { return m_fork_guard.InChild(); }
  // Whether this is the background thread.
  bool IsCurrent() const;
  const char* OptionsError() const { return m_options_error; }

  int Start();
  // REQUIRES: not the background thread.
  int Stop(int drain_ms);

  int Send(ClientRequest& request, Ticket::Kind kind, Callback& callback);
  // loop: may be null. refused: 0, or why it takes nothing.
  static void SendForFuture(ClientLoop* loop, int refused, ClientRequest& request,
                            std::future<ClientResponse>& answer);
  // REQUIRES: not the background thread.
  int Call(ClientRequest& request, ClientResponse& response);
  bool Cancel(uint64_t id);
  int WaitReady(int timeout_ms);

  // Asks the core something on its thread, and waits for that. 0; CLIENT_ERR_NOT_STARTED;
  // ROUTER_ERR_ALLOCATION.
  int Ask(const std::function<void(ClientCore&)>& question);
  ClientCounters Counters();
  size_t InFlight() const { return m_in_flight.load(); }

 private:
  enum class State {
    kIdle,
    kRunning,
    kStopping,  // takes no requests
    kEnded,     // takes nothing; the thread ends, or has ended
  };

  struct Question {
    const std::function<void(ClientCore&)>* work = nullptr;
    Waiter waiter;
  };

  // What other threads hand over; on both sides of the lock.
  struct Posted {
    PostQueue records;
    std::vector<std::shared_ptr<Question>> questions;
    std::vector<std::shared_ptr<Waiter>> ready_waiters;
  };

  // Other threads' side: client_loop_posting.cpp
  int Check(ClientRequest& request) const;
  template <typename Fill>
  int Post(ClientRequest& request, PostQueue::Kind kind, Fill fill);
  int Send(ClientRequest& request, std::promise<ClientResponse>& promise);
  bool NoteWork() OSTRAND_REQUIRES(m_mutex);
  void WakeLoop();
  int64_t NowMs() { return m_system.MonotonicNanoseconds() / 1000000; }
  int LookIfReady(ClientCore& core) const;
  void AskToStop(int drain_ms);
  void Release();

  // The thread's side: client_loop.cpp
  void Run();
  bool IsOver();
  void Round();
  void FinishRun();
  void TakePosted();
  void TakeRecord(const PostQueue::Post& post, const RequestHead* head, const char* bytes);
  void TakeRequest(Ticket& ticket, const RequestHead& head, const char* bytes);
  int SendToCore(Ticket& ticket, const RequestHead& head, const char* bytes);
  void TakeCancel(Ticket& ticket);
  void RetryHeld();
  void AnswerQuestions();
  void TellReadyWaiters();
  // and client_loop_outcomes.cpp
  void HandOutOutcomes();
  void HandOut(ClientResponse& response);
  int Collect(Ticket& ticket, ClientResponse& response);
  void GiveUp(Ticket& ticket, int code);
  bool Close(Ticket& ticket);
  void End(Ticket& ticket, int code);
  void Finish(Ticket& ticket, ClientResponse& response, int code);
  void RunCallback(Ticket& ticket, ClientResponse& response, bool is_last);
  void Free(Ticket& ticket);

  // Constant.
  const ClientOptions m_options;
  const char* const m_options_error;
  const TableCatalog m_catalog;
  const std::shared_ptr<DeliveryPool> m_deliveries;
  OSTRNET::System& m_system;
  const ForkGuard m_fork_guard;

  std::atomic<int> m_holders{1};
  OstrandCommon::Mutex m_life;  // held while starting or stopping; before m_mutex
  OSTRNET::BackgroundThread m_thread;
  DescriptorBook m_book;  // the core's system
  // Made before the thread begins, destroyed at its end.
  std::unique_ptr<ClientCore> m_core;

  OstrandCommon::Mutex m_mutex;
  State m_state OSTRAND_GUARDED_BY(m_mutex) = State::kIdle;
  TicketPool m_tickets OSTRAND_GUARDED_BY(m_mutex);
  Posted m_posted OSTRAND_GUARDED_BY(m_mutex);
  ClientCounters m_final_counters OSTRAND_GUARDED_BY(m_mutex);  // of the last run

  // Accepted and without outcome: those with the core, those on their way to it, and Calls that
  // wait for room. Raised under m_mutex.
  std::atomic<size_t> m_in_flight{0};
  std::atomic<bool> m_has_posted{false};  // set after posting, under m_mutex
  std::atomic<int> m_wakers{0};           // threads that are about to wake the loop
  std::atomic<bool> m_is_stopping{false};
  std::atomic<int64_t> m_stop_at_ms{0};

  // The thread's.
  Posted m_taken;
  std::vector<std::shared_ptr<Waiter>> m_ready_waiters;
  std::vector<Ticket*> m_by_slot;  // by the core's slot
  TicketChain m_held;
  TicketChain m_freed;  // to be returned
  ClientResponse m_response;
  ClientResponse m_ended;     // what stands in place of an answer
  ClientCounters m_own;       // what the core did not count, or did too much
  bool m_look_again = false;  // outcomes may be there
  bool m_is_finishing = false;
  int m_cut_off = 0;  // requests that the stop left without answer
};

}  // namespace OstrandService
