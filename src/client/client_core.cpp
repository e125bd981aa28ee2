#include "client/client_core.h"

#include <algorithm>
#include <new>

#include "client/client_errors.h"
#include "common/clock.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {
namespace {

constexpr size_t kPassOverInAPoll = 1024;  // packages that are no outcome
// The owner did something else for so long that what it sent meanwhile is stamped anew.
constexpr int64_t kRestampMs = 20;
// After a pause of the owner: so long at most what came meanwhile goes before time-outs.
constexpr int64_t kAnswersFirstMs = 1000;

}  // namespace

ClientCore::ClientCore(const ClientOptions& options, OSTRNET::System& system)
    : m_options(options),
      m_catalog(m_options),
      m_loop(system),
      m_pending(m_options.max_in_flight),
      m_service(m_loop, m_options, m_catalog, *this) {
  m_stamped.reserve(kSendTogether);
}

ClientCore::~ClientCore() {
  EndAll(CLIENT_ERR_CANCELLED);
  ClientResponse unused;
  while (!m_ended.empty()) {
    Forget(m_pending.At(m_ended.first));
  }
  m_service.Stop();
}

int ClientCore::Start() {
  const ostrand_protocol_cs::OStrandPkg* answer = nullptr;
  if (m_loop.Error() != 0) {
    return ROUTER_ERR_FAILED;
  }
  if (m_request.GetPkg() == nullptr || m_response.GetOstrandPackagePtr(answer) != 0) {
    return ROUTER_ERR_ALLOCATION;
  }
  return m_service.Start();
}

void ClientCore::LookAfterOwner() {
  const int64_t passed_ms = LookAtClock();
  if (passed_ms >= kPauseMs) {
    OwnerPaused(passed_ms);
    m_loop.RunOnce(0);  // what came meanwhile, before anybody is called silent
    AfterRound();
  }
}

void ClientCore::OwnerPaused(int64_t paused_ms) {
  m_service.OnOwnerPaused(paused_ms);
  m_answers_first_until_ms = m_loop.NowMs() + kAnswersFirstMs;
  for (size_t i = 0; i < m_service.ZoneCount(); ++i) {
    m_service.ZoneAt(i).latency->HoldExpiry(true);
  }
}

void ClientCore::EndAnswersFirst() {
  m_answers_first_until_ms = INT64_MIN;
  for (size_t i = 0; i < m_service.ZoneCount(); ++i) {
    m_service.ZoneAt(i).latency->HoldExpiry(false);
  }
}

// Looks at the clock. How much of its time passed since the last look.
int64_t ClientCore::LookAtClock() {
  const int64_t before_ms = m_loop.NowMs();
  m_loop.LookAtClock();
  const int64_t passed_ms = m_loop.NowMs() - before_ms;
  if (passed_ms >= kRestampMs) {
    Restamp();
  }
  m_stamped.clear();
  return passed_ms;
}

// Requests that were sent since the clock was looked at have its old time; their own begins now.
void ClientCore::Restamp() {
  const int64_t now_ms = m_loop.NowMs();
  const int64_t wall_ms = OstrandCommon::GetCurrentMilliseconds();
  for (const uint64_t id : m_stamped) {
    PendingRequest* const request = m_pending.Find(id);
    if (request == nullptr || request->state == PendingRequest::State::kEnded ||
        request->has_package || request->wire_id != request->id) {
      continue;
    }
    const int64_t later_ms = now_ms + request->timeout_ms - request->deadline_ms;
    request->deadline_ms += later_ms;
    request->try_deadline_ms += later_ms;
    m_pending.SetDue(*request, m_pending.DueOf(*request) + later_ms);
    LatencyDataTable& latency = *m_service.ZoneAt(request->zone).latency;
    LatencyData* const record = latency.GetLatencyData(request->latency_id);
    if (record != nullptr) {
      latency.RenewalLatencyData(wall_ms, record);
    }
  }
}

void ClientCore::Round(int64_t until_ms) {
  const int64_t now_ms = m_loop.NowMs();
  m_loop.FlushAll();
  const bool has_room = RoomCame();  // then the round does not wait
  const int64_t due_ms = has_room ? now_ms : std::min(until_ms, NextDueMs());
  constexpr int64_t kLongestWaitMs = 60000;
  const int64_t wait_ms = due_ms <= now_ms ? 0 : std::min(due_ms - now_ms, kLongestWaitMs);
  m_may_have_outcome = m_loop.RunOnce(static_cast<int>(wait_ms)) || m_may_have_outcome;
  m_queued = 0;
  m_stamped.clear();
  const int64_t passed_ms = m_loop.NowMs() - now_ms;
  if (passed_ms - wait_ms >= kPauseMs) {  // a machine that stood still
    OwnerPaused(passed_ms - wait_ms);
  }
  AfterRound();
}

// Looks for room. Whether some came that requests waited for.
bool ClientCore::RoomCame() {
  bool came = false;
  for (size_t i = 0; i < m_service.ZoneCount(); ++i) {
    came = m_service.ZoneAt(i).connectors->CheckRoom() || came;
  }
  return came;
}

void ClientCore::AfterRound() {
  RoomCame();
  if (m_service.NextUpdateMs() <= m_loop.NowMs()) {
    m_service.Update();
  }
  for (size_t i = 0; i < m_service.ZoneCount(); ++i) {
    Zone& zone = m_service.ZoneAt(i);
    if (!zone.waiting.empty() && m_service.CanRoute(zone) && zone.wake) {
      SendWaiting(zone);
    }
  }
  m_loop.FlushAll();
}

void ClientCore::Flush() {
  m_loop.FlushAll();
  m_queued = 0;
  const int64_t passed_ms = LookAtClock();  // the owner may have paused before it sent
  if (passed_ms >= kPauseMs) {
    OwnerPaused(passed_ms);
  }
}

int64_t ClientCore::NextDueMs() {
  int64_t due_ms = m_service.NextUpdateMs();
  if (due_ms == INT64_MIN) {
    return due_ms;
  }
  const int64_t first_ms = m_pending.FirstDueMs();
  due_ms = std::min(due_ms, first_ms == INT64_MAX ? first_ms : first_ms + 1);
  for (size_t i = 0; i < m_service.ZoneCount(); ++i) {
    const int64_t deadline_ms = m_service.ZoneAt(i).latency->NextDeadlineMs();
    if (deadline_ms != INT64_MAX) {
      const int64_t left_ms = deadline_ms + 1 - OstrandCommon::GetCurrentMilliseconds();
      due_ms = std::min(due_ms, m_loop.NowMs() + std::max<int64_t>(left_ms, 0));
    }
  }
  return due_ms;
}

bool ClientCore::HasWork() {
  return !m_ended.empty() || (m_may_have_outcome && m_pending.size() != 0) ||
         NextDueMs() <= m_loop.NowMs();
}

ClientCore::Taken ClientCore::TakeOutcome(ClientResponse& response) {
  if (m_answers_first_until_ms != INT64_MIN) {
    const Taken taken = PollZones(response);
    if (taken == Taken::kOutcome ||
        (taken == Taken::kLookAgain && m_loop.NowMs() < m_answers_first_until_ms)) {
      return taken;
    }
    EndAnswersFirst();
  }
  while (m_ended.empty()) {
    PendingRequest* const overdue = m_pending.FirstOverdue(m_loop.NowMs());
    if (overdue == nullptr) {
      break;
    }
    Overdue(*overdue);
  }
  if (!m_ended.empty()) {
    HandOutEnded(response);
    return Taken::kOutcome;
  }
  return PollZones(response);
}

ClientCore::Taken ClientCore::PollZones(ClientResponse& response) {
  size_t passed_over = 0;
  const size_t zones = m_service.ZoneCount();
  for (size_t i = 0; i < zones; ++i) {
    // The next poll begins with the zone after this one, so that a busy zone does not keep the
    // others from their turn.
    Zone& zone = m_service.ZoneAt(m_next_zone);
    m_next_zone = m_next_zone + 1 < zones ? m_next_zone + 1 : 0;
    const Taken taken = PollZone(zone, response, passed_over);
    if (taken != Taken::kNothing) {
      return taken;
    }
  }
  m_may_have_outcome = false;
  return Taken::kNothing;
}

// The router says 0 also for a package that it refused; others may wait after that.
ClientCore::Taken ClientCore::PollZone(Zone& zone, ClientResponse& response, size_t& passed_over) {
  for (; passed_over < kPassOverInAPoll; ++passed_over) {
    const uint64_t taken_before = zone.connectors->FramesTaken();
    m_response.SetTarget(&response);
    if (zone.router->RecvResponse(&m_response, nullptr) == 1) {
      if (IsOutcome(response)) {
        return Taken::kOutcome;
      }
    } else if (zone.connectors->FramesTaken() == taken_before) {
      return Taken::kNothing;
    }
  }
  return Taken::kLookAgain;
}

// Whether it goes to the application: an answer to one of its pending requests.
bool ClientCore::IsOutcome(ClientResponse& response) {
  PendingRequest* const request = m_pending.FindTry(m_response.GetAsynID());
  if (request == nullptr || request->cmd + 1 != m_response.GetCmd()) {
    if (request != nullptr) {  // the router takes it for answered: nobody else times it now
      m_pending.SetDue(*request, request->try_deadline_ms);
    }
    ++m_counters.dropped;
    response.Clear();
    return false;
  }
  const bool is_time_out = m_response.GetResult() == ClientResponse::kResultTimeOut;
  if (is_time_out && MayTryAgain(*request)) {
    TryIsOver(*request, ClientResponse::kResultTimeOut);
    response.Clear();
    return false;
  }
  m_response.HandOver();
  response.SetAsynID(request->id);
  if (response.HaveMoreResPkgs() == 1) {
    request->has_package = true;
    request->deadline_ms = m_loop.NowMs() + request->timeout_ms;
    request->try_deadline_ms = request->deadline_ms;
    m_pending.SetDue(*request, m_pending.WithGrace(*request));
    return true;
  }
  ++m_counters.outcomes;
  m_counters.timed_out += is_time_out ? 1 : 0;
  Forget(*request);
  return true;
}

void ClientCore::HandOutEnded(ClientResponse& response) {
  PendingRequest& request = m_pending.At(m_ended.first);
  const Zone& zone = m_service.ZoneAt(request.zone);
  OutcomeHead outcome;
  outcome.result = request.end_result;
  outcome.cmd = request.cmd + 1;
  outcome.async_id = request.id;
  outcome.sequence = request.sequence;
  outcome.app_id = static_cast<int32_t>(m_options.app_id);
  outcome.zone_id = zone.zone_id;
  outcome.table = m_catalog.At(request.table).name;
  if (request.stored != nullptr) {
    outcome.user_bytes = {request.stored->bytes.data(), request.stored->head.user_len};
  }
  response.SetOutcome(outcome);
  ++m_counters.outcomes;
  m_counters.timed_out += request.end_result == ClientResponse::kResultTimeOut ? 1 : 0;
  m_counters.lost += request.end_result == CLIENT_ERR_CONNECTION_LOST ? 1 : 0;
  Forget(request);
}

bool ClientCore::Cancel(uint64_t id) {
  PendingRequest* const request = m_pending.Find(id);
  if (request == nullptr) {
    return false;
  }
  ForgetTry(*request);
  Forget(*request);
  ++m_counters.cancelled;
  return true;
}

void ClientCore::EndAll(int32_t result) {
  m_pending.ForEach([this, result](PendingRequest& request) {
    if (request.state != PendingRequest::State::kEnded) {
      ForgetTry(request);
      End(request, result);
    }
  });
}

}  // namespace OstrandService
