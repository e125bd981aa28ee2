// Where a load begins, and what it leaves for the next.
#include <sys/stat.h>

#include "cli/loader.h"
#include "protocol/ostrand_api_cmds.h"

namespace OstrandCli {
namespace {

constexpr size_t kMaxStateSize = size_t{64} << 20;

bool Exists(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0;
}

}  // namespace

bool Loader::Prepare() {
  if (!m_source.Open(m_options.path, m_options.format, m_options.key_fields)) {
    m_error = m_source.Error();
    return false;
  }
  return m_options.state_path.empty() || PrepareState();
}

bool Loader::Begin() {
  if (!m_errors.Open(m_options.errors_path, ErrorsMode())) {
    m_error = m_errors.Error();
    return false;
  }
  return SaveState();
}

LoadErrors::Mode Loader::ErrorsMode() const {
  if (m_options.mode == LoadOptions::Mode::kErrorsOnly) {
    return LoadErrors::Mode::kRetry;
  }
  if (m_options.errors_path.empty()) {
    return LoadErrors::Mode::kNone;
  }
  return m_is_resumed ? LoadErrors::Mode::kContinue : LoadErrors::Mode::kNew;
}

uint64_t Loader::Missing() const {
  return m_options.mode == LoadOptions::Mode::kErrorsOnly ? m_errors.ListedCount()
                                                          : m_counts.failed + m_counts.malformed;
}

bool Loader::PrepareState() {
  if (!Exists(m_options.state_path)) {
    if (m_options.mode == LoadOptions::Mode::kResume) {
      PrintRemark("no earlier load stopped: beginning at the first record");
    }
    return true;
  }
  LoadState state;
  if (m_options.mode == LoadOptions::Mode::kResume) {
    return ReadState(state) && Resume(state);
  }
  if (m_options.is_restart) {
    return true;
  }
  m_error = "an earlier load of " + m_options.path + " did not come to its end: go on with " +
            "--resume, or begin again with --restart (its state is in " + m_options.state_path +
            ")";
  return false;
}

bool Loader::ReadState(LoadState& state) {
  std::string text;
  if (!ReadFile(m_options.state_path, kMaxStateSize, text, m_error)) {
    return false;
  }
  if (!ParseLoadState(text, state)) {
    m_error = m_options.state_path + " is not the state of a load; begin again with --restart";
    return false;
  }
  if (state.job != Job()) {
    m_error = "the earlier load was another one (" + state.job + "; this one is " + Job() +
              "): give the same options, or begin again with --restart";
    return false;
  }
  return true;
}

bool Loader::Resume(const LoadState& state) {
  uint32_t checksum = 0;
  if (!m_source.ChecksumBefore(state.offset, checksum)) {
    m_error = m_source.Error();
    return false;
  }
  if (checksum != state.checksum) {
    m_error = m_options.path + " has changed before line " + std::to_string(state.line) +
              ", where the earlier load stopped; begin again with --restart";
    return false;
  }
  if (!m_source.GoTo(state.line, state.offset)) {
    m_error = m_source.Error();
    return false;
  }
  m_is_resumed = true;
  m_counts = state.counts;
  m_position = LoadPosition(state.done);
  PrintRemark("going on at line " + std::to_string(state.line));
  return true;
}

std::string Loader::Job() const {
  std::string keys;
  for (const FieldName& field : m_options.key_fields) {
    keys += (keys.empty() ? "" : ",") + field.name;
  }
  return "application " + std::to_string(m_connection.app_id) + ", zone " +
         std::to_string(m_connection.zone) + ", table " + m_connection.table + ", command " +
         ostrand_protocol_cs::NameOfCmd(m_options.window.cmd) + ", key " + keys;
}

LoadState Loader::StateNow() {
  LoadState state;
  state.job = Job();
  state.line = m_position.HasOpen() ? m_position.FirstOpenLine() : m_source.NextLine();
  state.offset = m_position.HasOpen() ? m_position.FirstOpenOffset() : m_source.NextOffset();
  state.counts = m_counts;
  state.done = m_position.DoneBehind();
  return state;
}

bool Loader::SaveState() {
  if (m_options.state_path.empty()) {
    return true;
  }
  LoadState state = StateNow();
  if (!m_source.ChecksumBefore(state.offset, state.checksum)) {
    FailWith(m_source.Error());
    return false;
  }
  std::string error;
  if (WriteFile(m_options.state_path, WriteLoadState(state), error)) {
    return true;
  }
  FailWith(error + "; --state names another file, --state none does without");
  return false;
}

}  // namespace OstrandCli
