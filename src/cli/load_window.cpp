#include "cli/load_window.h"

#include <algorithm>
#include <iterator>

#include "cli/record_request.h"
#include "common/clock.h"
#include "service_api/ostrand_router.h"

namespace OstrandCli {
namespace {

using OstrandCommon::GetMonotonicMilliseconds;

constexpr int64_t kPauseMs = 50;  // before a record is sent again

struct TemporaryCode {
  int code;
  bool is_answer;  // of the cluster; else nothing came of it
};

constexpr TemporaryCode kTemporaryCodes[] = {
    {OstrandService::ROUTER_ERR_SEND_BUFFER_FULL, false},
    {OstrandService::ROUTER_ERR_NO_ROUTE, false},
    {OstrandService::CLIENT_ERR_DIRECTORY, false},
    {OstrandService::CLIENT_ERR_NOT_READY, false},
    {OstrandService::CLIENT_ERR_TOO_MANY, false},
    {OstrandService::CLIENT_ERR_CONNECTION_LOST, false},
    {OstrandService::ClientResponse::kResultTimeOut, false},
    {-9233, false},  // proxies: the sign-up is refused, after it was accepted once
    {-6413, false},  // as above: the client is too old
    {-6669, false},  // as above: the client is too new
    {-3089, true},   // proxy: the request could not be routed to a server
    {-5393, true},   // proxy: the request could not be sent to a server
    {-8209, true},   // proxy: the data are being transferred
};

const TemporaryCode* FindTemporary(int code) {
  const auto found = std::find_if(std::begin(kTemporaryCodes), std::end(kTemporaryCodes),
                                  [code](const TemporaryCode& one) { return one.code == code; });
  return found != std::end(kTemporaryCodes) ? found : nullptr;
}

bool IsAnswer(int code) {
  const TemporaryCode* const temporary = FindTemporary(code);
  return temporary == nullptr || temporary->is_answer;
}

// The same for records with the same key, and no others: key fields come in one order.
std::string KeyOf(const ParsedRecord& record) {
  std::string key;
  for (const Field& field : record.keys) {
    key += std::to_string(field.value.size()) + ":" + field.value;
  }
  return key;
}

}  // namespace

bool IsTemporary(int code) { return FindTemporary(code) != nullptr; }

bool LoadWindow::CanTake(const ParsedRecord& record) const {
  return m_records.size() < m_options.size && m_keys.count(KeyOf(record)) == 0;
}

void LoadWindow::Add(uint64_t line, ParsedRecord record, const OnOutcome& on_outcome) {
  std::string key = KeyOf(record);
  m_keys.insert(key);
  m_records[line] = {std::move(record), std::move(key), GetMonotonicMilliseconds()};
  Send(line, on_outcome);
}

void LoadWindow::Work(int timeout_ms, const OnOutcome& on_outcome) {
  SendWaiting(on_outcome);
  TakeAnswers(m_waiting.empty() ? timeout_ms : std::min<int>(timeout_ms, kPauseMs), on_outcome);
}

void LoadWindow::SendWaiting(const OnOutcome& on_outcome) {
  const int64_t now_ms = GetMonotonicMilliseconds();
  while (!m_waiting.empty() && m_waiting.front().due_ms <= now_ms) {
    const uint64_t line = m_waiting.front().line;
    m_waiting.pop_front();
    Send(line, on_outcome);
  }
}

void LoadWindow::Send(uint64_t line, const OnOutcome& on_outcome) {
  const ParsedRecord& record = m_records[line].record;
  int code = FillRequest(m_request, m_options.cmd, m_connection, record.keys, record.values);
  if (code == 0) {
    code = m_client.Send(m_request);
  }
  if (code != 0) {
    Settle(line, code, on_outcome);
    return;
  }
  m_lines[m_request.GetAsynID()] = line;
}

void LoadWindow::TakeAnswers(int timeout_ms, const OnOutcome& on_outcome) {
  int wait_ms = timeout_ms;
  while (m_client.Receive(m_response, wait_ms) == 1) {
    wait_ms = 0;
    const auto found = m_lines.find(m_response.GetAsynID());
    if (found == m_lines.end()) {
      continue;
    }
    const uint64_t line = found->second;
    m_lines.erase(found);
    if (IsAnswer(m_response.GetResult())) {
      m_last_answer_ms = GetMonotonicMilliseconds();
    }
    Settle(line, m_response.GetResult(), on_outcome);
  }
}

void LoadWindow::Settle(uint64_t line, int code, const OnOutcome& on_outcome) {
  const auto entry = m_records.find(line);
  if (IsTemporary(code)) {
    const int64_t now_ms = GetMonotonicMilliseconds();
    const int64_t first_ms = entry->second.first_ms;
    const bool is_given_up = now_ms - first_ms >= m_options.give_up_ms;
    m_last_code = code;
    m_is_silent =
        m_is_silent || (is_given_up && now_ms - m_last_answer_ms >= m_options.give_up_ms / 2);
    if (!is_given_up || m_is_silent) {
      m_waiting.push_back({line, now_ms + kPauseMs});
      return;
    }
  }
  m_keys.erase(entry->second.key);
  m_records.erase(entry);
  on_outcome(line, code);
}

}  // namespace OstrandCli
