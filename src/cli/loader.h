// Loads the records of a file into a table.
//
// Three ways through the file: from the beginning; on from where an earlier load stopped (its state
// file says where, and everything before it is done); only the records that an earlier load listed
// as errors. However a load ends, the state file says how to go on, unless the load is complete:
// then there is none. A second after the last state at most is lost when the process is killed.
//
// Ownership: as the members; borrows the client. Threads: one at a time. Signals: SIGINT and
// SIGTERM end a load in good order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/connection.h"
#include "cli/load_errors.h"
#include "cli/load_position.h"
#include "cli/load_source.h"
#include "cli/load_state.h"
#include "cli/load_window.h"
#include "cli/output.h"

namespace OstrandCli {

struct LoadOptions {
  enum class Mode { kFromBeginning, kResume, kErrorsOnly };

  std::string path;
  LoadFormat format = LoadFormat::kByContent;
  std::vector<FieldName> key_fields;
  LoadWindow::Options window;
  Mode mode = Mode::kFromBeginning;
  bool is_restart = false;  // from the beginning even where there is a state file
  bool stops_on_error = false;
  std::string state_path;   // "": none
  std::string errors_path;  // "": none
};

enum class LoadEnd {
  kComplete,     // to the end of the file; errors may be listed
  kInterrupted,  // by a signal
  kStopped,      // at an error, as asked
  kSilent,       // the cluster answers no more
  kFileError,    // a file cannot be read or written: Error says which
};

class Loader {
 public:
  Loader(const Connection& connection, LoadOptions options)
      : m_connection(connection), m_options(std::move(options)) {}

  // Opens the file and goes to the place; changes nothing. False: Error says why.
  bool Prepare();
  // Makes the state file and opens the list of errors. False: Error says why.
  bool Begin();
  // REQUIRES: both answered true.
  LoadEnd Run(OstrandService::PollingClient& client);

  // Of this run and, when it went on from another, of that too.
  const LoadCounts& Counts() const { return m_counts; }
  // Records that the cluster does not have, as far as the load came; when only those of a list were
  // loaded, what is left of it.
  uint64_t Missing() const;
  double Seconds() const { return m_seconds; }
  // The code that the cluster was silent with; 0 if it was not.
  int SilentCode() const { return m_silent_code; }
  // To go on with; 0 behind the last.
  uint64_t NextLine() const { return m_next_line; }
  // A sentence.
  const std::string& Error() const { return m_error; }

 private:
  bool PrepareState();
  bool ReadState(LoadState& state);
  bool Resume(const LoadState& state);
  std::string Job() const;
  LoadErrors::Mode ErrorsMode() const;

  bool IsRunning() const { return m_end == LoadEnd::kComplete; }
  void ReadRecords(LoadWindow& window);
  bool ReadRecord();
  void OnMalformed();
  void OnOutcome(uint64_t line, int code);
  void OnError(const LoadError& error);
  void Drain(LoadWindow& window);
  void CheckPoint();
  void Close();
  bool SaveState();
  LoadState StateNow();
  void Stop(LoadEnd end);
  void FailWith(const std::string& error);
  uint64_t CountTotal();

  const Connection& m_connection;
  const LoadOptions m_options;
  LoadSource m_source;
  LoadErrors m_errors;
  LoadPosition m_position;
  LoadCounts m_counts;
  LoadWindow::OnOutcome m_on_outcome;
  ProgressLine* m_progress = nullptr;  // while Run works

  bool m_is_resumed = false;
  SourceRecord m_next;  // read, and not yet in the window
  bool m_has_next = false;
  bool m_is_at_end = false;
  LoadEnd m_end = LoadEnd::kComplete;  // so far
  uint64_t m_finished = 0;             // records of this run
  uint64_t m_told = 0;                 // errors that standard error got
  int64_t m_saved_ms = 0;
  double m_seconds = 0;
  int m_silent_code = 0;
  uint64_t m_next_line = 0;
  std::string m_error;
};

}  // namespace OstrandCli
