#include "client/client_loop.h"

#include <sched.h>

#include <algorithm>
#include <new>
#include <utility>

#include "client/client_errors.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {

using OstrandCommon::ScopedLock;

namespace {

// The loop whose background thread this is; null: none's.
thread_local const ClientLoop* t_current = nullptr;

}  // namespace

bool ClientLoop::IsCurrent() const { return t_current == this; }

void ClientLoop::Run() {
  t_current = this;
  {
    const OSTRNET::LoopScope scope(m_core->Loop());
    while (!IsOver()) {
      try {
        Round();
      } catch (const std::bad_alloc&) {
        m_look_again = true;  // what was interrupted goes on with the next round
      }
    }
    if (InChild()) {  // a callback forked, and this is the child's only thread
      return;
    }
    FinishRun();
    while (m_wakers.load() != 0) {  // at most a system call's time
      sched_yield();
    }
  }
  m_core.reset();
  t_current = nullptr;
}

bool ClientLoop::IsOver() {
  if (InChild()) {
    return true;
  }
  return m_is_stopping.load() &&
         ((m_in_flight.load() == 0 && !m_has_posted.load()) || NowMs() >= m_stop_at_ms.load());
}

void ClientLoop::Round() {
  m_core->LookAfterOwner();  // callbacks are what it did else
  TakePosted();
  RetryHeld();
  int64_t until_ms = m_is_stopping.load() ? m_stop_at_ms.load() : INT64_MAX;
  for (const Ticket* held = m_held.first; held != nullptr; held = held->next) {
    until_ms = std::min(until_ms, held->deadline_ms);
  }
  m_core->Round(m_look_again ? INT64_MIN : until_ms);
  HandOutOutcomes();
  TellReadyWaiters();
}

// Ends all that is left with CLIENT_ERR_CANCELLED, and answers whoever waits for something else.
void ClientLoop::FinishRun() {
  m_is_finishing = true;
  {
    const ScopedLock lock(m_mutex);
    m_state = State::kEnded;
  }
  TakePosted();
  while (!m_held.empty()) {
    GiveUp(m_held.TakeFirst(), CLIENT_ERR_CANCELLED);
  }
  m_core->EndAll(CLIENT_ERR_CANCELLED);
  while (m_core->InFlight() != 0 &&
         m_core->TakeOutcome(m_response) == ClientCore::Taken::kOutcome) {
    HandOut(m_response);
  }
  for (const std::shared_ptr<Waiter>& waiter : m_ready_waiters) {
    waiter->Wake(CLIENT_ERR_NOT_STARTED);
  }
  m_ready_waiters.clear();
  const ClientCounters counters = Counters();
  m_own = ClientCounters();
  m_by_slot.clear();
  m_look_again = false;
  m_is_stopping.store(false);
  m_is_finishing = false;
  const ScopedLock lock(m_mutex);
  m_tickets.ReturnAll(m_freed);
  m_final_counters = counters;
}

void ClientLoop::TakePosted() {
  if (!m_has_posted.load() && m_freed.empty()) {
    return;
  }
  {
    const ScopedLock lock(m_mutex);
    m_has_posted.store(false);
    m_taken.records.Swap(m_posted.records);
    m_taken.questions.swap(m_posted.questions);
    m_taken.ready_waiters.swap(m_posted.ready_waiters);
    m_tickets.ReturnAll(m_freed);
  }
  m_taken.records.ForEach(
      [this](const PostQueue::Post& post, const RequestHead* head, const char* bytes) {
        if (!InChild()) {
          TakeRecord(post, head, bytes);
        }
      });
  m_taken.records.Clear();
  AnswerQuestions();
}

void ClientLoop::TakeRecord(const PostQueue::Post& post, const RequestHead* head,
                            const char* bytes) {
  Ticket& ticket = *post.ticket;
  switch (post.kind) {
    case PostQueue::Kind::kRequest: TakeRequest(ticket, *head, bytes); break;
    case PostQueue::Kind::kCall:
      TakeRequest(ticket, ticket.request->Head(), ticket.request->Bytes());
      break;
    case PostQueue::Kind::kCancel: TakeCancel(ticket); break;
  }
}

// A Call that finds no room waits for it, behind those that wait already.
void ClientLoop::TakeRequest(Ticket& ticket, const RequestHead& head, const char* bytes) {
  ticket.core_id = 0;
  if (m_is_finishing) {
    GiveUp(ticket, CLIENT_ERR_CANCELLED);
    return;
  }
  const bool is_call = ticket.kind == Ticket::Kind::kCall;
  int ret = CLIENT_ERR_TOO_MANY;
  if (!is_call || m_held.empty()) {
    ret = ticket.deadline_ms <= m_core->Loop().NowMs() ? int{ClientResponse::kResultTimeOut}
                                                       : SendToCore(ticket, head, bytes);
  }
  if (ret == CLIENT_ERR_TOO_MANY && is_call) {
    ticket.is_held = true;
    m_held.Append(ticket);
  } else if (ret != 0) {
    GiveUp(ticket, ret);
  }
}

// The request's time began when it was posted.
int ClientLoop::SendToCore(Ticket& ticket, const RequestHead& head, const char* bytes) {
  RequestHead sent = head;
  sent.timeout_ms = static_cast<int32_t>(
      std::min<int64_t>(ticket.deadline_ms - m_core->Loop().NowMs(), INT32_MAX));
  uint64_t id = 0;
  try {
    if (const int ret = m_core->Send(sent, bytes, id)) {
      return ret;
    }
    const size_t slot = PendingRequests::SlotOfId(id);
    if (slot >= m_by_slot.size()) {
      m_by_slot.resize(std::max(2 * m_by_slot.size(), slot + 1));
    }
    m_by_slot[slot] = &ticket;
  } catch (const std::bad_alloc&) {
    if (id != 0) {
      m_core->Cancel(id);
      --m_own.accepted;
      --m_own.cancelled;
    }
    return ROUTER_ERR_ALLOCATION;
  }
  ticket.core_id = id;
  return 0;
}

// Its id was taken out: nobody else ends it.
void ClientLoop::TakeCancel(Ticket& ticket) {
  if (ticket.is_held) {
    m_held.Remove(ticket);
    ++m_own.accepted;
    ++m_own.cancelled;
  } else if (ticket.core_id != 0) {
    m_core->Cancel(ticket.core_id);
  }
  End(ticket, CLIENT_ERR_CANCELLED);
}

void ClientLoop::RetryHeld() {
  while (!m_held.empty()) {
    Ticket& ticket = *m_held.first;
    const bool is_over = ticket.deadline_ms <= m_core->Loop().NowMs();
    const int ret = is_over ? int{CLIENT_ERR_TOO_MANY}
                            : SendToCore(ticket, ticket.request->Head(), ticket.request->Bytes());
    if (ret == CLIENT_ERR_TOO_MANY && !is_over) {
      break;
    }
    m_held.TakeFirst();
    ticket.is_held = false;
    if (ret != 0) {
      GiveUp(ticket, ret);
    }
  }
  // Behind the first there may be some whose time is over before.
  for (Ticket* held = m_held.first; held != nullptr;) {
    Ticket& ticket = *held;
    held = held->next;
    if (ticket.deadline_ms <= m_core->Loop().NowMs()) {
      m_held.Remove(ticket);
      GiveUp(ticket, CLIENT_ERR_TOO_MANY);
    }
  }
}

void ClientLoop::AnswerQuestions() {
  for (const std::shared_ptr<Question>& question : m_taken.questions) {
    int ret = 0;
    try {
      (*question->work)(*m_core);
    } catch (const std::bad_alloc&) {
      ret = ROUTER_ERR_ALLOCATION;
    }
    question->waiter.Wake(ret);
  }
  m_taken.questions.clear();
  m_ready_waiters.reserve(m_ready_waiters.size() + m_taken.ready_waiters.size());
  for (std::shared_ptr<Waiter>& waiter : m_taken.ready_waiters) {
    m_ready_waiters.push_back(std::move(waiter));
  }
  m_taken.ready_waiters.clear();
}

void ClientLoop::TellReadyWaiters() {
  if (m_ready_waiters.empty()) {
    return;
  }
  const int ret = LookIfReady(*m_core);
  const bool is_over = ret == 0 || m_core->GetService().SchemaRefusal() != 0;
  for (const std::shared_ptr<Waiter>& waiter : m_ready_waiters) {
    if (is_over) {
      waiter->Wake(ret);
    }
  }
  // Who held the last other one waits no more.
  m_ready_waiters.erase(std::remove_if(m_ready_waiters.begin(), m_ready_waiters.end(),
                                       [is_over](const std::shared_ptr<Waiter>& waiter) {
                                         return is_over || waiter.use_count() == 1;
                                       }),
                        m_ready_waiters.end());
}

}  // namespace OstrandService
