// Asks a directory, again and again, which tables and proxies each zone has.
//
// It keeps one connection to one of several directories. A directory that does not answer, or
// answers what cannot be used, is followed by the next after a pause that doubles with every
// failure and varies at random, so that many clients do not return at once. Nothing is ever taken
// away because a directory is away: whoever holds a route keeps it. A zone whose answer cannot be
// used does not keep the zones behind it from theirs.
//
// Ownership: owns its connectors (through the manager, borrowed); borrows the logger.
// Threads: the loop's owner.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "common/logger.h"
#include "net/net_connector_mgr.h"
#include "protocol/ostrand_dir.h"

namespace OstrandService {

struct DirectoryOptions {
  std::vector<std::string> urls;  // "tcp://HOST:PORT"; tried in turn
  int64_t app_id = 0;
  std::vector<int32_t> zones;
  std::string api_version;
  int64_t refresh_ms = 5000;         // between two rounds of questions
  int64_t answer_timeout_ms = 3000;  // connecting and answering, each
  int64_t first_backoff_ms = 200;    // after the first failure; doubles, and varies by a quarter
  int64_t longest_backoff_ms = 30000;
  std::function<uint64_t()> random;  // number: all 64 bits
};

// Receives the answers. They are checked: right application and zone, at least one proxy, at most
// 200, each with an address that a connection can be made to, none twice.
class DirectoryListener {
 public:
  virtual void OnDirectoryAnswer(int32_t zone_id,
                                 const ostrand_protocol_dir::tagOStrdirCSPkg& answer) = 0;
  // A directory did not answer, or not with what can be used. reason: a phrase.
  virtual void OnDirectoryFailure(const char* url, const char* reason) = 0;

 protected:
  ~DirectoryListener() = default;
};

class DirectoryClient {
 public:
  DirectoryClient(OSTRNET::CConnectorMgr& connector_mgr, OstrandCommon::Logger* logger,
                  int module_id, DirectoryOptions options, DirectoryListener& listener);
  ~DirectoryClient();
  DirectoryClient(const DirectoryClient&) = delete;
  DirectoryClient& operator=(const DirectoryClient&) = delete;

  // One step: connects, asks, takes answers, gives up. Call it with every update.
  void Update(int64_t monotonic_now_ms);
  // When Update has something to do by the clock; connections and answers need it at once.
  int64_t NextDueMs() const { return m_due_ms; }

  // Rounds in which every zone was answered, and failures; for status texts and tests.
  uint64_t AnsweredRounds() const { return m_answered_rounds; }
  uint64_t Failures() const { return m_failures; }

 private:
  enum class State { kResting, kConnecting, kAsking };

  void StartRound(int64_t now_ms);
  void WaitForConnection(int64_t now_ms);
  void Ask(int64_t now_ms);
  void TakeAnswer(int64_t now_ms);
  bool CheckAnswer(int32_t zone_id);
  void KeepGoodRows(int32_t zone_id);
  void TellOnce(int32_t zone_id, const std::vector<std::string>& lines);
  void Fail(int64_t now_ms, const char* reason);
  int64_t NextBackoff();

  OSTRNET::CConnectorMgr& m_connector_mgr;
  OstrandCommon::Logger* const m_logger;
  const int m_module_id;
  const DirectoryOptions m_options;
  DirectoryListener& m_listener;
  const std::unique_ptr<OSTRNET::IPackParser> m_parser;
  const std::unique_ptr<ostrand_protocol_dir::tagOStrdirCSPkg> m_pkg;
  std::vector<OSTRNET::CConnector*> m_connectors;  // one a url, null where none could be made

  State m_state = State::kResting;
  size_t m_current = 0;      // index of the url in use
  size_t m_zone_index = 0;   // of the zone that is asked for
  bool m_all_usable = true;  // the answers of this round
  int64_t m_due_ms = 0;      // end of the rest, or of the patience
  int64_t m_backoff_ms = 0;
  uint64_t m_answered_rounds = 0;
  uint64_t m_failures = 0;
  std::map<int32_t, std::vector<std::string>> m_told;  // what was wrong with a zone's last rows
};

}  // namespace OstrandService
