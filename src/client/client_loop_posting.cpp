// What other threads do with a client's loop.
#include <algorithm>
#include <cassert>
#include <new>
#include <utility>

#include "client/client_errors.h"
#include "client/client_loop.h"
#include "common/clock.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {

using OstrandCommon::ScopedLock;

namespace {

int64_t MonotonicMs() { return OstrandCommon::GetMonotonicNanoseconds() / 1000000; }

}  // namespace

ClientLoop::ClientLoop(const ClientOptions& options, OSTRNET::System& system)
    : m_options(options),
      m_options_error(CheckOptions(m_options)),
      m_catalog(m_options),
      m_deliveries(std::make_shared<DeliveryPool>()),
      m_system(system),
      m_book(system) {}

int ClientLoop::Start() {
  if (m_options_error != nullptr) {
    return CLIENT_ERR_OPTIONS;
  }
  if (IsCurrent()) {
    return CLIENT_ERR_NOT_STARTED;
  }
  const ScopedLock life(m_life);
  {
    const ScopedLock lock(m_mutex);
    if (m_state != State::kIdle) {
      return CLIENT_ERR_NOT_STARTED;
    }
  }
  m_core = std::make_unique<ClientCore>(m_options, m_book);
  m_core->Loop().SetWorkQuestion([this] { return m_has_posted.load(); });
  int ret = 0;
  {
    const OSTRNET::LoopScope scope(m_core->Loop());
    ret = m_core->Start();
  }
  if (ret == 0) {
    m_holders.fetch_add(1);
    ret = m_thread.Start("ostrand-client", [this] {
      Run();
      Release();
    });
    if (ret != 0) {
      m_holders.fetch_sub(1);
      ret = ROUTER_ERR_FAILED;
    }
  }
  if (ret != 0) {
    m_core.reset();
    return ret;
  }
  const ScopedLock lock(m_mutex);
  m_state = State::kRunning;
  return 0;
}

void ClientLoop::AskToStop(int drain_ms) {
  bool is_to_wake = false;
  {
    const ScopedLock lock(m_mutex);
    if (m_state != State::kRunning) {
      return;
    }
    m_state = State::kStopping;
    m_stop_at_ms.store(NowMs() + std::max(drain_ms, 0));
    m_is_stopping.store(true);
    is_to_wake = NoteWork();
  }
  if (is_to_wake) {
    WakeLoop();
  }
}

int ClientLoop::Stop(int drain_ms) {
  const ScopedLock life(m_life);
  {
    const ScopedLock lock(m_mutex);
    if (m_state == State::kIdle) {
      return 0;
    }
  }
  AskToStop(drain_ms);
  m_thread.Join();
  const ScopedLock lock(m_mutex);
  m_state = State::kIdle;
  return std::exchange(m_cut_off, 0);
}

void ClientLoop::Leave() {
  if (InChild()) {
    m_book.CloseAll();  // nothing else of it can be trusted, and nobody else has it
    return;
  }
  if (IsCurrent()) {
    AskToStop(0);
    m_thread.Detach();
  } else {
    Stop(0);
  }
  Release();
}

void ClientLoop::Release() {
  if (m_holders.fetch_sub(1) == 1) {
    delete this;
  }
}

// Called after posting. Whether the caller has to wake the loop, once it has left the lock: until
// then the core stays for its sake.
bool ClientLoop::NoteWork() {
  if (m_has_posted.exchange(true) || IsCurrent()) {
    return false;
  }
  m_wakers.fetch_add(1);
  return true;
}

void ClientLoop::WakeLoop() {
  m_core->Loop().WakeIfAsleep();
  m_wakers.fetch_sub(1);
}

// What of a request can be told without the loop.
int ClientLoop::Check(ClientRequest& request) const {
  const int ret = m_catalog.Prepare(request);
  return ret == 0 && ClientCore::IsTooLarge(request.Head(), m_options) ? int{CLIENT_ERR_TOO_LARGE}
                                                                       : ret;
}

// fill(ticket) makes the ticket ready; it may throw while nothing of it was changed.
template <typename Fill>
int ClientLoop::Post(ClientRequest& request, PostQueue::Kind kind, Fill fill) {
  const RequestHead& head = request.Head();
  const int64_t now_ms = NowMs();
  bool is_to_wake = false;
  {
    const ScopedLock lock(m_mutex);
    if (m_state != State::kRunning) {
      return CLIENT_ERR_NOT_STARTED;
    }
    const bool is_copied = kind == PostQueue::Kind::kRequest;
    if (is_copied && (m_in_flight.load() >= m_options.max_in_flight ||
                      m_posted.records.size() + head.BytesLen() > kMostPosted)) {
      return CLIENT_ERR_TOO_MANY;
    }
    Ticket& ticket = m_tickets.Take();
    try {
      if (!m_posted.records.Append(kind, ticket, is_copied ? &head : nullptr, request.Bytes())) {
        throw std::bad_alloc();
      }
    } catch (const std::bad_alloc&) {
      m_tickets.Return(ticket);
      throw;
    }
    fill(ticket);
    ticket.table = static_cast<uint16_t>(head.table);
    ticket.cmd = head.cmd;
    ticket.sequence = head.sequence;
    ticket.deadline_ms =
        now_ms + (head.timeout_ms > 0 ? head.timeout_ms : m_options.default_timeout_ms);
    ticket.open_id.store(ticket.id);
    request.SetAsynID(ticket.id);
    m_in_flight.fetch_add(1);
    is_to_wake = NoteWork();
  }
  if (is_to_wake) {
    WakeLoop();
  }
  return 0;
}

int ClientLoop::Send(ClientRequest& request, Ticket::Kind kind, Callback& callback) {
  if (const int ret = Check(request)) {
    return ret;
  }
  return Post(request, PostQueue::Kind::kRequest, [kind, &callback](Ticket& ticket) {
    ticket.kind = kind;
    ticket.callback = std::move(callback);
  });
}

int ClientLoop::Send(ClientRequest& request, std::promise<ClientResponse>& promise) {
  if (const int ret = Check(request)) {
    return ret;
  }
  return Post(request, PostQueue::Kind::kRequest, [&promise](Ticket& ticket) {
    ticket.kind = Ticket::Kind::kFuture;
    ticket.promise.emplace(std::move(promise));
  });
}

void ClientLoop::SendForFuture(ClientLoop* loop, int refused, ClientRequest& request,
                               std::future<ClientResponse>& answer) {
  std::promise<ClientResponse> promise;
  answer = promise.get_future();
  int ret = refused;
  try {
    ret = ret != 0 ? ret : loop->Send(request, promise);
  } catch (const std::bad_alloc&) {
    ret = ROUTER_ERR_ALLOCATION;
  }
  if (ret != 0) {
    OutcomeHead outcome;
    outcome.result = ret;
    outcome.cmd = request.GetCmd() + 1;
    outcome.sequence = request.GetSequence();
    ClientResponse response;
    response.SetOutcome(outcome);
    promise.set_value(std::move(response));
  }
}

int ClientLoop::Call(ClientRequest& request, ClientResponse& response) {
  if (const int ret = Check(request)) {
    return ret;
  }
  Ticket* called = nullptr;
  int ret = Post(request, PostQueue::Kind::kCall, [&request, &response, &called](Ticket& ticket) {
    ticket.kind = Ticket::Kind::kCall;
    ticket.request = &request;
    ticket.response = &response;
    called = &ticket;
  });
  if (ret != 0) {
    return ret;
  }
  ret = called->waiter.Wait();
  const ScopedLock lock(m_mutex);
  m_tickets.Return(*called);
  return ret;
}

bool ClientLoop::Cancel(uint64_t id) {
  bool is_to_wake = false;
  {
    const ScopedLock lock(m_mutex);
    if (m_state != State::kRunning && m_state != State::kStopping) {
      return false;
    }
    Ticket* const ticket = id != 0 ? m_tickets.PlaceOf(id) : nullptr;
    if (ticket == nullptr || ticket->open_id.load() != id) {
      return false;
    }
    // First the record: the loop may not come to know of a Cancel that it is not told of.
    if (!m_posted.records.Append(PostQueue::Kind::kCancel, *ticket, nullptr, nullptr)) {
      return false;
    }
    uint64_t expected = id;
    if (!ticket->open_id.compare_exchange_strong(expected, 0)) {
      m_posted.records.TakeBackLast();
      return false;
    }
    is_to_wake = NoteWork();
  }
  if (is_to_wake) {
    WakeLoop();
  }
  return true;
}

int ClientLoop::Ask(const std::function<void(ClientCore&)>& question) {
  if (IsCurrent()) {
    if (m_core == nullptr) {
      return CLIENT_ERR_NOT_STARTED;
    }
    question(*m_core);
    return 0;
  }
  const auto asked = std::make_shared<Question>();
  asked->work = &question;
  bool is_to_wake = false;
  {
    const ScopedLock lock(m_mutex);
    if (m_state != State::kRunning && m_state != State::kStopping) {
      return CLIENT_ERR_NOT_STARTED;
    }
    m_posted.questions.push_back(asked);
    is_to_wake = NoteWork();
  }
  if (is_to_wake) {
    WakeLoop();
  }
  return asked->waiter.Wait();
}

// 0: ready; what refused a schema; else what kept it from being ready so far.
int ClientLoop::LookIfReady(ClientCore& core) const {
  Service& service = core.GetService();
  if (service.IsReady()) {
    return 0;
  }
  const int32_t refusal = service.SchemaRefusal();
  const int32_t trouble = service.SchemaTrouble();
  return refusal != 0 ? refusal : trouble != 0 ? trouble : int{CLIENT_ERR_NOT_READY_IN_TIME};
}

int ClientLoop::WaitReady(int timeout_ms) {
  const int64_t deadline_ms = MonotonicMs() + std::max(timeout_ms, 0);
  int ret = 0;
  bool is_over = false;
  const std::function<void(ClientCore&)> look = [this, &ret, &is_over](ClientCore& core) {
    ret = LookIfReady(core);
    is_over = ret == 0 || core.GetService().SchemaRefusal() != 0;
  };
  if (const int refused = Ask(look)) {
    return refused;
  }
  if (is_over || timeout_ms <= 0) {
    return ret;
  }
  if (IsCurrent()) {
    return CLIENT_ERR_IN_CALLBACK;
  }
  const auto waiter = std::make_shared<Waiter>();
  bool is_to_wake = false;
  {
    const ScopedLock lock(m_mutex);
    if (m_state != State::kRunning && m_state != State::kStopping) {
      return CLIENT_ERR_NOT_STARTED;
    }
    m_posted.ready_waiters.push_back(waiter);
    is_to_wake = NoteWork();
  }
  if (is_to_wake) {
    WakeLoop();
  }
  if (waiter->WaitUntil(deadline_ms, &MonotonicMs, ret)) {
    return ret;
  }
  const int refused = Ask(look);
  return refused != 0 ? refused : ret;
}

ClientCounters ClientLoop::Counters() {
  ClientCounters counters;
  const std::function<void(ClientCore&)> add = [this, &counters](ClientCore& core) {
    counters = core.Counters();
    counters.accepted += m_own.accepted;
    counters.outcomes += m_own.outcomes;
    counters.timed_out += m_own.timed_out;
    counters.cancelled += m_own.cancelled;
  };
  if (Ask(add) == 0) {
    return counters;
  }
  const ScopedLock lock(m_mutex);
  return m_final_counters;
}

}  // namespace OstrandService
