// Records on their way: a bounded number is sent and not answered. What the cluster could not take
// at this moment, and what got no answer in time, is sent again for a while. Of records with the
// same key one at a time is on its way, so that they take effect in the order of the file.
//
// Ownership: borrows client and connection. Threads: one at a time.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "cli/connection.h"
#include "cli/record_parser.h"
#include "client/polling_client.h"

namespace OstrandCli {

// Whether a code says that the same request may succeed a little later.
bool IsTemporary(int code);

class LoadWindow {
 public:
  struct Options {
    uint32_t cmd = 0;
    size_t size = 256;
    int64_t give_up_ms = 15000;  // for one record
  };
  // code: 0, or why the record is not there.
  using OnOutcome = std::function<void(uint64_t line, int code)>;

  LoadWindow(OstrandService::PollingClient& client, const Connection& connection,
             const Options& options)
      : m_client(client), m_connection(connection), m_options(options) {}

  bool IsEmpty() const { return m_records.empty(); }
  // Whether there is room for this record now.
  bool CanTake(const ParsedRecord& record) const;

  // Sends a record. REQUIRES: CanTake(record).
  void Add(uint64_t line, ParsedRecord record, const OnOutcome& on_outcome);

  // Takes in answers, waiting for the first one up to timeout_ms, and sends again what is due.
  void Work(int timeout_ms, const OnOutcome& on_outcome);

  // A record was tried for long enough, and in the second half of that time nothing at all was
  // answered: the cluster is gone, and the record has no outcome. LastCode tells what it met.
  bool IsSilent() const { return m_is_silent; }
  int LastCode() const { return m_last_code; }

 private:
  struct Entry {
    ParsedRecord record;
    std::string key;
    int64_t first_ms = 0;
  };
  struct Waiting {
    uint64_t line;
    int64_t due_ms;
  };

  void Send(uint64_t line, const OnOutcome& on_outcome);
  void SendWaiting(const OnOutcome& on_outcome);
  void TakeAnswers(int timeout_ms, const OnOutcome& on_outcome);
  void Settle(uint64_t line, int code, const OnOutcome& on_outcome);

  OstrandService::PollingClient& m_client;
  const Connection& m_connection;
  const Options m_options;
  OstrandService::ClientRequest m_request;
  OstrandService::ClientResponse m_response;
  std::unordered_map<uint64_t, Entry> m_records;   // by line: all that have no outcome
  std::unordered_set<std::string> m_keys;          // theirs
  std::unordered_map<uint64_t, uint64_t> m_lines;  // of those that are sent, by asynchronous id
  std::deque<Waiting> m_waiting;                   // the others, in the order of due_ms
  int64_t m_last_answer_ms = 0;
  bool m_is_silent = false;
  int m_last_code = 0;
};

}  // namespace OstrandCli
