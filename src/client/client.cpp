#include "client/client.h"

#include <algorithm>
#include <new>
#include <utility>

#include "client/pending_requests.h"
#include "client/request_check.h"
#include "client/router_request.h"
#include "client/router_response.h"
#include "client/service.h"
#include "common/clock.h"

namespace OstrandService {
namespace {

using OstrandCommon::GetMonotonicMilliseconds;

constexpr size_t kSendTogether = 256;
constexpr size_t kUpdatesForAllOverdue = 100;
constexpr size_t kPassOverInAPoll = 1024;  // packages that are no outcome
constexpr int kPollAgain = 2;

// Memory that runs out is a code here like everything else.
template <typename Body>
int WithCodes(Body body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return ROUTER_ERR_ALLOCATION;
  }
}

}  // namespace

struct Client::Impl {
  explicit Impl(const ClientOptions& given)
      : options(given), options_error(CheckOptions(options)), pending(options.max_in_flight) {}

  int Start();
  int WaitReady(int timeout_ms);
  int Send(ClientRequest& request);
  int SendToRouter(OstrandRouter& router, PendingRequest& entry);
  int Poll(ClientResponse& response);
  bool IsOutcome();
  void TimeOut(PendingRequest& request, ClientResponse& response);
  int Receive(ClientResponse& response, int timeout_ms);
  int Call(ClientRequest& request, ClientResponse& response);
  int64_t UpdateIfDue();

  const ClientOptions options;
  const char* const options_error;
  std::unique_ptr<Service> service;  // null before Start and behind Stop
  PendingRequests pending;
  ClientCounters counters;
  RouterRequest router_request;
  RouterResponse router_response;
  ClientResponse own_response;  // for answers that nobody waits for
  int64_t update_due_ms = 0;
  size_t queued = 0;     // requests sent since the last flush
  size_t next_zone = 0;  // polled first
};

Client::Client(const ClientOptions& options) {
  WithCodes([this, &options] {
    m_impl = std::make_unique<Impl>(options);
    return 0;
  });
}

Client::~Client() { Stop(0); }

// What stands behind every operation that can fail: a client that has its memory, and is started.
template <typename Body>
int Client::Run(Body body) {
  if (m_impl == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  if (m_impl->service == nullptr) {
    return CLIENT_ERR_NOT_STARTED;
  }
  return WithCodes([this, &body] { return body(*m_impl); });
}

int Client::Start() {
  return m_impl != nullptr ? WithCodes([this] { return m_impl->Start(); }) : ROUTER_ERR_ALLOCATION;
}

int Client::Impl::Start() {
  if (options_error != nullptr) {
    return CLIENT_ERR_OPTIONS;
  }
  if (service != nullptr) {
    return CLIENT_ERR_NOT_STARTED;
  }
  auto started = std::make_unique<Service>(options);
  const int ret = started->Start();
  if (ret == 0) {
    service = std::move(started);
  }
  return ret;
}

int Client::WaitReady(int timeout_ms) {
  return Run([timeout_ms](Impl& impl) { return impl.WaitReady(timeout_ms); });
}

int Client::Impl::WaitReady(int timeout_ms) {
  const int64_t deadline_ms = GetMonotonicMilliseconds() + timeout_ms;
  for (;;) {
    UpdateIfDue();
    if (service->IsReady()) {
      return 0;
    }
    const uint64_t seen = service->Connectors().FramesSeen();
    if (pending.size() == 0) {
      Poll(own_response);  // answers about schemas
    }
    for (const TableOptions& table : options.tables) {
      const int32_t ret = service->TableCheckResult(table.zone_id, table.name.c_str());
      if (ret < 0) {
        return ret;
      }
    }
    if (GetMonotonicMilliseconds() >= deadline_ms) {
      return CLIENT_ERR_NOT_READY_IN_TIME;
    }
    service->Connectors().WaitForFrames(seen, std::min(deadline_ms, update_due_ms));
  }
}

int Client::Send(ClientRequest& request) {
  return Run([&request](Impl& impl) { return impl.Send(request); });
}

int Client::Impl::Send(ClientRequest& request) {
  const int64_t now_ms = UpdateIfDue();
  if (const int ret = CheckComplete(request)) {
    return ret;
  }
  const char* const table_name = request.GetTableName();
  const int32_t zone_id = service->ZoneOfTable(request.GetZoneId(), table_name);
  OstrandRouter* const router = service->RouterOf(zone_id);
  const int32_t subscript = service->FindTable(zone_id, table_name);
  if (router == nullptr || subscript < 0) {
    return CLIENT_ERR_TABLE;
  }
  if (const int ret = request.ApplySchema(service->TableSchema(zone_id, table_name))) {
    return ret;
  }
  PendingRequest* entry = pending.Add();
  if (entry == nullptr) {
    return CLIENT_ERR_TOO_MANY;
  }
  const int32_t timeout_ms =
      request.GetTimeout() > 0 ? request.GetTimeout() : options.default_timeout_ms;
  entry->cmd = request.GetCmd();
  entry->zone_id = zone_id;
  entry->subscript = subscript;
  entry->seq = request.GetSequence();
  entry->deadline_ms = now_ms + timeout_ms;
  request.SetAsynID(entry->asyn_id);
  router_request.Load(request.Head(), request.Bytes());
  router_request.SetZoneId(zone_id);
  router_request.SetTimeout(timeout_ms);
  router_request.SetTableSubscript(subscript);
  router_request.SetAppId(static_cast<int32_t>(options.app_id));
  router_request.SetMetaVersion(service->GetTableMetaVersion(zone_id, table_name));
  const int ret = SendToRouter(*router, *entry);
  if (ret != 0) {
    pending.Remove(entry->asyn_id);
    return ret;
  }
  ++counters.accepted;
  ++queued;
  if (queued >= kSendTogether || pending.size() == 1) {
    service->Connectors().Flush();
    queued = 0;
  }
  return 0;
}

int Client::Impl::SendToRouter(OstrandRouter& router, PendingRequest& entry) {
  const size_t in_flight = service->InFlight(entry.zone_id);
  const int ret = router.SendRequest(&router_request);
  if (ret != 0) {
    return ret;
  }
  if (router_request.net_size == 0) {
    return CLIENT_ERR_NOT_READY;
  }
  if (service->InFlight(entry.zone_id) == in_flight) {  // it went without a routing context
    pending.Watch(entry);
  }
  return 0;
}

int Client::Flush() {
  return Run([](Impl& impl) {
    impl.service->Connectors().Flush();
    impl.queued = 0;
    return 0;
  });
}

int Client::Receive(ClientResponse& response, int timeout_ms) {
  return Run([&response, timeout_ms](Impl& impl) { return impl.Receive(response, timeout_ms); });
}

int Client::Impl::Receive(ClientResponse& response, int timeout_ms) {
  int64_t deadline_ms = -1;
  for (;;) {
    UpdateIfDue();
    const uint64_t seen = service->Connectors().FramesSeen();
    const int ret = Poll(response);
    if (ret == 1) {
      return 1;
    }
    service->Connectors().Flush();
    queued = 0;
    const int64_t now_ms = GetMonotonicMilliseconds();
    if (deadline_ms < 0) {
      deadline_ms = now_ms + timeout_ms;
    }
    if (now_ms >= deadline_ms) {
      return 0;
    }
    if (ret == 0) {
      service->Connectors().WaitForFrames(seen, std::min(deadline_ms, update_due_ms));
    }
  }
}

// 1: `response` is an outcome, or a package of one; 0: nothing is there; kPollAgain: so much was no
// outcome that whoever waits should look at the time. The router says 0 also for a package that it
// refused; others may wait behind that.
int Client::Impl::Poll(ClientResponse& response) {
  const TcpConnectorMgr& connectors = service->Connectors();
  const size_t zones = service->ZoneCount();
  size_t passed_over = 0;
  router_response.SetTarget(&response);
  for (size_t i = 0; i < zones; ++i) {
    // The next poll begins behind it, so that a busy zone does not keep the others from their turn.
    OstrandRouter& router = service->RouterAt(next_zone);
    next_zone = (next_zone + 1) % zones;
    for (bool is_empty = false; !is_empty && passed_over < kPassOverInAPoll; ++passed_over) {
      const uint64_t consumed = connectors.FramesConsumed();
      if (router.RecvResponse(&router_response, nullptr) == 1) {
        if (IsOutcome()) {
          router_response.HandOver();
          return 1;
        }
      } else {
        is_empty = connectors.FramesConsumed() == consumed;
      }
    }
  }
  PendingRequest* overdue = pending.FindOverdue(GetMonotonicMilliseconds(), kUpdatesForAllOverdue);
  if (overdue != nullptr) {
    TimeOut(*overdue, response);
    return 1;
  }
  return passed_over < kPassOverInAPoll ? 0 : kPollAgain;
}

// Whether it goes to the application: an answer to one of its pending requests.
bool Client::Impl::IsOutcome() {
  if (service->TakeOwnAnswer(router_response)) {
    return false;
  }
  const RouterResponse& response = router_response;
  const uint64_t asyn_id = response.GetAsynID();
  PendingRequest* request = pending.Find(asyn_id);
  if (request == nullptr || request->cmd + 1 != response.GetCmd()) {
    if (request != nullptr) {
      pending.Watch(*request);  // the router takes it for answered
    }
    ++counters.dropped;
    return false;
  }
  if (response.GetResult() == 0 && router_response.HaveMoreResPkgs() == 1) {
    request->deadline_ms = GetMonotonicMilliseconds() + options.default_timeout_ms;
    return true;
  }
  if (response.GetResult() == ClientResponse::kResultTimeOut) {
    ++counters.timed_out;
  }
  ++counters.outcomes;
  pending.Remove(asyn_id);
  return true;
}

void Client::Impl::TimeOut(PendingRequest& request, ClientResponse& response) {
  OutcomeHead outcome;
  outcome.result = ClientResponse::kResultTimeOut;
  outcome.cmd = request.cmd + 1;
  outcome.async_id = request.asyn_id;
  outcome.sequence = request.seq;
  outcome.app_id = static_cast<int32_t>(options.app_id);
  outcome.zone_id = request.zone_id;
  outcome.table = service->TableName(request.zone_id, request.subscript);
  response.SetOutcome(outcome);
  ++counters.timed_out;
  ++counters.outcomes;
  pending.Remove(request.asyn_id);
}

int Client::Call(ClientRequest& request, ClientResponse& response) {
  return Run([&request, &response](Impl& impl) { return impl.Call(request, response); });
}

int Client::Impl::Call(ClientRequest& request, ClientResponse& response) {
  if (pending.size() != 0) {
    return CLIENT_ERR_BUSY;
  }
  const int ret = Send(request);
  if (ret != 0) {
    return ret;
  }
  // The request times out by itself.
  while (Receive(response, 1000) == 0) {
  }
  return 0;
}

int Client::Update() {
  return Run([](Impl& impl) {
    impl.UpdateIfDue();
    return 0;
  });
}

// Returns the monotonic time at its end.
int64_t Client::Impl::UpdateIfDue() {
  const int64_t now_ms = GetMonotonicMilliseconds();
  if (now_ms < update_due_ms) {
    return now_ms;
  }
  service->Update();
  queued = 0;
  update_due_ms = now_ms + options.update_interval_ms;
  return GetMonotonicMilliseconds();
}

size_t Client::Stop(int drain_ms, const std::function<void(ClientResponse&)>& on_outcome) {
  if (m_impl == nullptr || m_impl->service == nullptr) {
    return 0;
  }
  Impl& impl = *m_impl;
  const auto hand_out = [&impl, &on_outcome] {
    if (on_outcome) {
      on_outcome(impl.own_response);
    }
  };
  const uint64_t timed_out_before = impl.counters.timed_out;
  const int64_t deadline_ms = GetMonotonicMilliseconds() + drain_ms;
  for (int64_t left_ms = drain_ms; impl.pending.size() != 0 && left_ms > 0;
       left_ms = deadline_ms - GetMonotonicMilliseconds()) {
    if (Receive(impl.own_response, static_cast<int>(left_ms)) == 1) {
      hand_out();
    }
  }
  while (PendingRequest* request = impl.pending.Any()) {
    impl.TimeOut(*request, impl.own_response);
    hand_out();
  }
  impl.service->Stop();
  impl.service.reset();
  return static_cast<size_t>(impl.counters.timed_out - timed_out_before);
}

size_t Client::InFlight() const { return m_impl != nullptr ? m_impl->pending.size() : 0; }

ClientCounters Client::Counters() const {
  return m_impl != nullptr ? m_impl->counters : ClientCounters();
}

const char* Client::OptionsError() const {
  return m_impl != nullptr ? m_impl->options_error : "out of memory";
}

void Client::GetLastError(int32_t& code, std::string& text) {
  code = 0;
  text.clear();
  Run([&code, &text](Impl& impl) {
    impl.service->GetLastError(code, text);
    return 0;
  });
}

std::string Client::StatusText() {
  std::string text;
  Run([&text](Impl& impl) {
    text = impl.service->StatusText();
    return 0;
  });
  return text;
}

const char* Client::UsedProxyUrl(int32_t zone_id) const {
  const OstrandRouter* const router = m_impl != nullptr && m_impl->service != nullptr
                                          ? m_impl->service->RouterOf(zone_id)
                                          : nullptr;
  return router != nullptr ? router->GetUsedProxyUrl() : nullptr;
}

uint64_t Client::SystemCalls() const {
  return m_impl != nullptr && m_impl->service != nullptr
             ? m_impl->service->Connectors().SystemCalls()
             : 0;
}

}  // namespace OstrandService
