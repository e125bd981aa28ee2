#include "fleet/answer_gate.h"

#include <algorithm>
#include <utility>

namespace OstrandFleet {
namespace {

constexpr int64_t kLongestDelayMs = 24 * 3600 * 1000;
constexpr int64_t kLongestHoldMs = 100;
constexpr int64_t kEndlessPackageMs = 1;

// Counts, and says whether it is the turn of this one.
bool IsTurn(uint64_t& count, int64_t every) {
  return every > 0 && ++count % static_cast<uint64_t>(every) == 0;
}

}  // namespace

AnswerGate::AnswerGate(FleetLoop& loop, FaultyConnection& connection, Misbehaviour& misbehaviour,
                       ProxyCounters& counters)
    : m_net(loop.net()),
      m_connection(connection),
      m_misbehaviour(misbehaviour),
      m_counters(counters),
      m_wait_timer(loop.net(), [this] { SendDue(); }),
      m_held_timer(loop.net(),
                   [this] {
                     ReleaseHeld();
                     m_connection.Flush();
                   }),
      m_endless_timer(loop.net(), [this] { SendNextOfEndless(); }) {}

bool AnswerGate::IsOpenFor(AnswerScope scope) const {
  const ProxyFaults& faults = m_misbehaviour.faults;
  const bool in_scope = faults.scope == scope || faults.scope == AnswerScope::kAll;
  const bool quiet = faults.delay_ms <= 0 && faults.drop_every <= 0 &&
                     faults.answer == AnswerFault::kNone && m_held.empty();
  return !in_scope || quiet;
}

void AnswerGate::Pass(AnswerScope scope, std::string_view frame) {
  if (IsOpenFor(scope)) {
    Send(frame, false);
    return;
  }
  const ProxyFaults& faults = m_misbehaviour.faults;
  if (IsTurn(m_misbehaviour.droppable, faults.drop_every)) {
    ++m_counters.answers_dropped;
    return;
  }
  if (faults.answer != AnswerFault::kNone &&
      IsTurn(m_misbehaviour.spoilable, std::max<int64_t>(faults.answer_every, 1))) {
    ++m_counters.answers_spoilt;
    PassSpoilt(faults.answer, frame);
    return;
  }
  Forward(frame);
  ReleaseHeld();
}

void AnswerGate::PassSpoilt(AnswerFault fault, std::string_view frame) {
  switch (fault) {
    case AnswerFault::kCutFrame: Forward(frame.substr(0, frame.size() / 2), 0, true); return;
    case AnswerFault::kDuplicate:
      Forward(frame);
      Forward(frame);
      return;
    case AnswerFault::kReplay:
      Forward(frame);
      if (!m_last.empty()) {
        Forward(m_last);
      }
      m_last = frame;
      return;
    case AnswerFault::kReorder: Hold(frame); return;
    case AnswerFault::kLate: Forward(frame, m_misbehaviour.faults.late_ms); return;
    case AnswerFault::kEndlessMore:
      if (MayHaveMorePackages(frame)) {
        KeepGoing(frame);
      } else {
        Forward(frame);
      }
      return;
    default: Forward(Spoil(fault, frame, m_misbehaviour.random)); return;
  }
}

void AnswerGate::Shut() {
  m_waiting.clear();
  m_waiting_len = 0;
  for (Timer* timer : {&m_wait_timer, &m_held_timer, &m_endless_timer}) {
    timer->Cancel();
  }
}

void AnswerGate::Forward(std::string_view bytes, int64_t extra_delay_ms, bool close_behind) {
  const int64_t delay_ms = std::clamp<int64_t>(m_misbehaviour.faults.delay_ms, 0, kLongestDelayMs) +
                           std::clamp<int64_t>(extra_delay_ms, 0, kLongestDelayMs);
  if (delay_ms <= 0) {
    Send(bytes, close_behind);
    return;
  }
  m_waiting_len += bytes.size();
  m_waiting.emplace(m_net.NowMs() + delay_ms, Waiting{std::string(bytes), close_behind});
  SetWaitTimer();
}

void AnswerGate::Send(std::string_view bytes, bool close_behind) {
  ++m_counters.answers;
  m_connection.Queue(bytes);
  if (close_behind) {
    m_connection.CloseWhenFlushed();
  }
}

void AnswerGate::SendDue() {
  const int64_t now_ms = m_net.NowMs();
  while (!m_waiting.empty() && m_waiting.begin()->first <= now_ms && m_connection.IsOpen()) {
    const Waiting due = std::move(m_waiting.begin()->second);
    m_waiting.erase(m_waiting.begin());
    m_waiting_len -= due.bytes.size();
    Send(due.bytes, due.close_behind);
  }
  SetWaitTimer();
  m_connection.Flush();
  m_connection.HandleInput();  // requests that waited for room
}

void AnswerGate::SetWaitTimer() {
  if (m_waiting.empty()) {
    m_wait_timer.Cancel();
  } else {
    m_wait_timer.SetAt(m_waiting.begin()->first);
  }
}

void AnswerGate::Hold(std::string_view frame) {
  if (!m_held.empty()) {
    Forward(frame);
    ReleaseHeld();
    return;
  }
  m_held = frame;
  m_held_timer.SetIn(kLongestHoldMs);
}

void AnswerGate::ReleaseHeld() {
  if (m_held.empty()) {
    return;
  }
  const std::string held = std::exchange(m_held, std::string());
  m_held_timer.Cancel();
  Forward(held);
}

void AnswerGate::KeepGoing(std::string_view frame) {
  m_endless = frame;
  SetPackageNumber(m_endless, PackageNumber(frame));
  Forward(m_endless);
  m_endless_timer.SetIn(kEndlessPackageMs);
}

void AnswerGate::SendNextOfEndless() {
  if (m_misbehaviour.faults.answer != AnswerFault::kEndlessMore) {
    return;
  }
  if (m_connection.HasRoom()) {
    SetPackageNumber(m_endless, PackageNumber(m_endless) + 1);
    Send(m_endless, false);
    m_connection.Flush();
  }
  if (m_connection.IsOpen()) {
    m_endless_timer.SetIn(kEndlessPackageMs);
  }
}

}  // namespace OstrandFleet
