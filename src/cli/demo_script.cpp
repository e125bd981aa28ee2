#include "cli/demo_script.h"

#include <utility>

namespace OstrandCli {
namespace {

using OstrandFleet::ProxyState;

// By step; nothing is under way in the last one.
constexpr const char* kFaults[] = {
    "the client did not connect to the first proxy that joined",
    "the client did not connect to the second proxy that joined",
    "the proxy that asked to stop was not allowed to in time",
    "the killed proxy still runs",
    "",
};

std::string Name(size_t proxy) { return "p" + std::to_string(proxy); }

}  // namespace

DemoScript::DemoScript(OstrandFleet::Fleet& fleet, int64_t duration_ms)
    : m_fleet(fleet), m_pause_ms(duration_ms / (kSteps + 1)) {}

bool DemoScript::Update(int64_t now_ms) {
  if (!m_fault.empty()) {
    return true;
  }
  if (m_due_ms < 0) {
    m_due_ms = now_ms + m_pause_ms;
  }
  if (m_under_way && StepIsComplete()) {
    m_under_way = false;
    m_step = static_cast<Step>(static_cast<int>(m_step) + 1);
    m_due_ms = now_ms + m_pause_ms;
  }
  if (now_ms < m_due_ms) {
    return false;
  }
  if (m_under_way) {
    m_fault = kFaults[static_cast<int>(m_step)];
    return true;
  }
  if (IsComplete()) {
    return true;
  }
  m_under_way = true;
  m_due_ms = now_ms + kPatienceMs;
  BeginStep();
  return !m_fault.empty();
}

void DemoScript::BeginStep() {
  switch (m_step) {
    case Step::kFirstJoin:
    case Step::kSecondJoin: Join(); break;
    case Step::kStop:
      m_fleet.AskToStop(kStoppedProxy);
      m_remarks.push_back(Name(kStoppedProxy) + " asks to be allowed to stop");
      break;
    case Step::kKill:
      m_fleet.Kill(kKilledProxy);
      m_remarks.push_back(Name(kKilledProxy) + " is killed");
      break;
    case Step::kEnd: break;
  }
}

void DemoScript::Join() {
  const int proxy = m_fleet.AddProxy();
  if (proxy < 0) {
    m_fault = "a proxy could not join: " + m_fleet.Error();
    return;
  }
  m_joined = static_cast<size_t>(proxy);
  m_remarks.push_back(Name(m_joined) + " joins");
}

bool DemoScript::StepIsComplete() {
  switch (m_step) {
    case Step::kFirstJoin:
    case Step::kSecondJoin:
      if (m_fleet.Counters(m_joined).signed_up == 0) {
        return false;
      }
      m_remarks.push_back(Name(m_joined) + " is connected");
      return true;
    case Step::kStop:
      if (m_fleet.State(kStoppedProxy) != ProxyState::kStopped) {
        return false;
      }
      m_remarks.push_back(Name(kStoppedProxy) + " has stopped");
      return true;
    case Step::kKill: return m_fleet.State(kKilledProxy) == ProxyState::kDown;
    case Step::kEnd: break;
  }
  return false;
}

std::vector<std::string> DemoScript::TakeRemarks() { return std::exchange(m_remarks, {}); }

}  // namespace OstrandCli
