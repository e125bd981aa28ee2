// The connector manager of tests: makes ScriptedConnectors, fails when told to, delivers frames.
//
// Ownership: owns its connectors. When it dies it faults if one was never removed.
// Threads: any. RemoveConnector waits for a delivery in progress, as the contract asks.
// Journal entries: "CreateConnector <url>" (failed ones too), "RemoveConnector <url>".
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "fakes/journal.h"
#include "fakes/scripted_connector.h"
#include "net/net_connector_mgr.h"

namespace OstrandFakes {

class ScriptedConnectorMgr : public OSTRNET::CConnectorMgr {
 public:
  // The arguments of one call of CreateConnector, failed ones included.
  struct Creation {
    std::string url;
    OSTRNET::IPackParser* parser;
    int buffer_size;
    OSTRNET::ReceiveCallback callback;
    void* arg;
    ScriptedConnector* connector;  // null when it failed; dangles once removed
  };

  explicit ScriptedConnectorMgr(Journal* journal = nullptr);
  ~ScriptedConnectorMgr() override;

  OSTRNET::CConnector* CreateConnector(const char* url, OSTRNET::IPackParser* parser,
                                       int buffer_size, OSTRNET::ReceiveCallback callback,
                                       void* arg) override;
  // Faults on a connector that is not alive.
  int RemoveConnector(OSTRNET::CConnector* connector) override;
  const char* GetLastErrDesc() override;

  // The n-th creation from now on (1: the next) fails; the error text, which may be null and is
  // borrowed, is what GetLastErrDesc answers from then on.
  void FailCreation(int n, const char* error_text);
  // Called with each new connector before it is handed out. Both hooks must not call the manager.
  void OnCreate(std::function<void(ScriptedConnector&)> setup);
  // Called in each RemoveConnector with the connector that is about to be destroyed.
  void OnRemove(std::function<void(ScriptedConnector&)> hook);

  // The youngest live connector of this url, or null.
  ScriptedConnector* Find(const std::string& url) const;
  // The same; faults when there is none.
  ScriptedConnector& At(const std::string& url) const;
  bool IsAlive(const OSTRNET::CConnector* connector) const;
  size_t live_count() const;
  // All live connectors in order of creation.
  std::vector<ScriptedConnector*> Live() const;

  std::vector<Creation> creations() const;
  std::vector<std::string> removals() const;  // urls, in order

  // Hands a frame to the connector's callback as the network thread would, on the calling thread;
  // result 0 queues it for PeekPkg. Answers the callback's result.
  int Deliver(const std::string& url, const std::string& frame);
  int Deliver(ScriptedConnector& connector, const std::string& frame);

 private:
  struct Entry {
    std::unique_ptr<ScriptedConnector> connector;
    OSTRNET::ReceiveCallback callback;
    void* arg;
  };
  // REQUIRES: m_callback_mutex is held.
  int RunCallback(ScriptedConnector& connector, const std::string& frame);
  const Entry* FindEntry(const OSTRNET::CConnector* connector) const;

  Journal* const m_journal;
  std::mutex m_callback_mutex;  // held while a callback runs; taken before m_mutex
  mutable std::mutex m_mutex;   // guards everything below
  std::vector<Entry> m_live;
  std::vector<Creation> m_creations;
  std::vector<std::string> m_removals;
  std::function<void(ScriptedConnector&)> m_setup;
  std::function<void(ScriptedConnector&)> m_remove_hook;
  int m_failing_in = 0;
  const char* m_failing_text = "";
  const char* m_last_err_desc = "";
};

}  // namespace OstrandFakes
