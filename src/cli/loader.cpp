#include "cli/loader.h"

#include <sys/stat.h>
#include <unistd.h>

#include "cli/interrupt.h"
#include "cli/record_request.h"
#include "common/clock.h"

namespace OstrandCli {
namespace {

using OstrandCommon::GetMonotonicMilliseconds;

constexpr int kWorkMs = 100;
constexpr int64_t kSaveIntervalMs = 1000;
constexpr uint64_t kMaxTold = 10;  // errors on standard error, when they are listed in a file too

}  // namespace

LoadEnd Loader::Run(OstrandService::PollingClient& client) {
  InterruptGuard interrupt_guard;
  LoadWindow window(client, m_connection, m_options.window);
  ProgressLine progress("load", CountTotal());
  m_progress = &progress;
  m_on_outcome = [this](uint64_t line, int code) { OnOutcome(line, code); };
  const int64_t began_ms = GetMonotonicMilliseconds();
  m_saved_ms = began_ms;
  while (IsRunning() && !(m_is_at_end && !m_has_next && window.IsEmpty())) {
    ReadRecords(window);
    window.Work(kWorkMs, m_on_outcome);
    CheckPoint();
    progress.Update(m_finished);
    if (window.IsSilent()) {
      m_silent_code = window.LastCode();
      Stop(LoadEnd::kSilent);
    } else if (Interrupted()) {
      Stop(LoadEnd::kInterrupted);
    }
  }
  Drain(window);
  Close();
  m_seconds = static_cast<double>(GetMonotonicMilliseconds() - began_ms) / 1000;
  progress.Finish(m_finished);
  m_progress = nullptr;
  return m_end;
}

uint64_t Loader::CountTotal() {
  return m_options.mode == LoadOptions::Mode::kErrorsOnly ? m_errors.ListedCount()
                                                          : m_source.CountLines();
}

// Fills the window.
void Loader::ReadRecords(LoadWindow& window) {
  while (IsRunning() && (m_has_next || ReadRecord()) && window.CanTake(m_next.record)) {
    m_has_next = false;
    window.Add(m_next.line, std::move(m_next.record), m_on_outcome);
  }
}

// Reads on to the next record that is to be sent. False: there is none.
bool Loader::ReadRecord() {
  while (IsRunning() && !m_is_at_end) {
    const LoadSource::Result result = m_source.Next(m_next);
    if (result == LoadSource::Result::kEnd) {
      m_is_at_end = true;
    } else if (result == LoadSource::Result::kFailed) {
      FailWith(m_source.Error());
    } else if ((m_options.mode == LoadOptions::Mode::kErrorsOnly &&
                !m_errors.IsListed(m_next.line)) ||
               m_position.SkipDone(m_next.line)) {
      continue;
    } else {
      m_position.Begin(m_next.line, m_next.offset);
      m_has_next = result == LoadSource::Result::kRecord;
      if (m_has_next) {
        return true;
      }
      OnMalformed();
    }
  }
  return false;
}

void Loader::OnMalformed() {
  if (!m_options.stops_on_error) {
    ++m_counts.malformed;
  }
  OnError({m_next.line, kMalformedCode, m_next.reason});
}

void Loader::OnOutcome(uint64_t line, int code) {
  if (code == 0) {
    ++m_finished;
    ++m_counts.loaded;
    m_position.Finish(line);
    m_errors.Clear(line);
    return;
  }
  if (!m_options.stops_on_error) {
    ++m_counts.failed;
  }
  OnError({line, std::to_string(code), CodeWithText(code)});
}

// A record that stops the load is not finished: the next run begins with it.
void Loader::OnError(const LoadError& error) {
  ++m_told;
  if (m_options.errors_path.empty() || m_told <= kMaxTold) {
    m_progress->Clear();
    PrintError(m_options.path + ":" + std::to_string(error.line) + ": " + error.reason);
  } else if (m_told == kMaxTold + 1) {
    m_progress->Clear();
    PrintRemark("further errors are listed in " + m_options.errors_path + " only");
  }
  if (m_options.stops_on_error) {
    Stop(LoadEnd::kStopped);
    return;
  }
  ++m_finished;
  m_position.Finish(error.line);
  if (!m_errors.Add(error)) {
    FailWith(m_errors.Error());
  }
}

// What is on its way gets the time of one request to come home.
void Loader::Drain(LoadWindow& window) {
  const int64_t deadline_ms = GetMonotonicMilliseconds() + m_connection.timeout_ms;
  while (!window.IsEmpty() && !window.IsSilent() && GetMonotonicMilliseconds() < deadline_ms) {
    window.Work(kWorkMs, m_on_outcome);
  }
}

void Loader::CheckPoint() {
  const int64_t now_ms = GetMonotonicMilliseconds();
  if (now_ms - m_saved_ms < kSaveIntervalMs) {
    return;
  }
  m_saved_ms = now_ms;
  if (!m_errors.Flush()) {
    FailWith(m_errors.Error());
  } else if (!SaveState()) {
    Stop(LoadEnd::kFileError);
  }
}

void Loader::Close() {
  if (!m_errors.Close()) {
    FailWith(m_errors.Error());
  }
  if (IsRunning()) {
    if (!m_options.state_path.empty()) {
      unlink(m_options.state_path.c_str());
    }
    return;
  }
  m_next_line = StateNow().line;
  if (!SaveState()) {
    Stop(LoadEnd::kFileError);
  }
}

void Loader::Stop(LoadEnd end) {
  if (IsRunning()) {
    m_end = end;
  }
}

void Loader::FailWith(const std::string& error) {
  if (m_error.empty()) {
    m_error = error;
  }
  Stop(LoadEnd::kFileError);
}

}  // namespace OstrandCli
