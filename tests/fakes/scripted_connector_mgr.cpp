#include "fakes/scripted_connector_mgr.h"

#include <algorithm>
#include <utility>

#include "fakes/allocation_faults.h"
#include "fakes/fault.h"

namespace OstrandFakes {

using Lock = std::lock_guard<std::mutex>;

ScriptedConnectorMgr::ScriptedConnectorMgr(Journal* journal) : m_journal(journal) {}

ScriptedConnectorMgr::~ScriptedConnectorMgr() {
  if (!m_live.empty()) {
    Fault("%zu connectors were never removed, the first is %s", m_live.size(),
          m_live.front().connector->GetURL());
  }
}

OSTRNET::CConnector* ScriptedConnectorMgr::CreateConnector(const char* url,
                                                           OSTRNET::IPackParser* parser,
                                                           int buffer_size,
                                                           OSTRNET::ReceiveCallback callback,
                                                           void* arg) {
  const UnwatchedAllocations unwatched;
  if (m_journal != nullptr) {
    m_journal->Add(std::string("CreateConnector ") + url);
  }
  const Lock lock(m_mutex);
  m_creations.push_back(Creation{url, parser, buffer_size, callback, arg, nullptr});
  if (m_failing_in > 0 && --m_failing_in == 0) {
    m_last_err_desc = m_failing_text;
    return nullptr;
  }
  auto connector = std::make_unique<ScriptedConnector>(url, m_journal);
  if (m_setup) {
    m_setup(*connector);
  }
  m_creations.back().connector = connector.get();
  m_live.push_back(Entry{std::move(connector), callback, arg});
  return m_live.back().connector.get();
}

int ScriptedConnectorMgr::RemoveConnector(OSTRNET::CConnector* connector) {
  const UnwatchedAllocations unwatched;
  if (connector == nullptr) {
    return 0;
  }
  const Lock no_callback_runs(m_callback_mutex);
  const Lock lock(m_mutex);
  const auto found = std::find_if(m_live.begin(), m_live.end(), [&](const Entry& entry) {
    return entry.connector.get() == connector;
  });
  if (found == m_live.end()) {
    Fault("RemoveConnector of %p, which is not alive", static_cast<void*>(connector));
  }
  if (m_remove_hook) {
    m_remove_hook(*found->connector);
  }
  m_removals.push_back(connector->GetURL());
  if (m_journal != nullptr) {
    m_journal->Add("RemoveConnector " + m_removals.back());
  }
  m_live.erase(found);
  return 0;
}

const char* ScriptedConnectorMgr::GetLastErrDesc() {
  const Lock lock(m_mutex);
  return m_last_err_desc;
}

void ScriptedConnectorMgr::FailCreation(int n, const char* error_text) {
  const Lock lock(m_mutex);
  m_failing_in = n;
  m_failing_text = error_text;
}

void ScriptedConnectorMgr::OnCreate(std::function<void(ScriptedConnector&)> setup) {
  const UnwatchedAllocations unwatched;
  const Lock lock(m_mutex);
  m_setup = std::move(setup);
}

void ScriptedConnectorMgr::OnRemove(std::function<void(ScriptedConnector&)> hook) {
  const UnwatchedAllocations unwatched;
  const Lock lock(m_mutex);
  m_remove_hook = std::move(hook);
}

ScriptedConnector* ScriptedConnectorMgr::Find(const std::string& url) const {
  const Lock lock(m_mutex);
  for (auto entry = m_live.rbegin(); entry != m_live.rend(); ++entry) {
    if (entry->connector->GetURL() == url) {
      return entry->connector.get();
    }
  }
  return nullptr;
}

ScriptedConnector& ScriptedConnectorMgr::At(const std::string& url) const {
  ScriptedConnector* connector = Find(url);
  if (connector == nullptr) {
    Fault("no live connector of %s", url.c_str());
  }
  return *connector;
}

const ScriptedConnectorMgr::Entry* ScriptedConnectorMgr::FindEntry(
    const OSTRNET::CConnector* connector) const {
  for (const Entry& entry : m_live) {
    if (entry.connector.get() == connector) {
      return &entry;
    }
  }
  return nullptr;
}

bool ScriptedConnectorMgr::IsAlive(const OSTRNET::CConnector* connector) const {
  const Lock lock(m_mutex);
  return FindEntry(connector) != nullptr;
}

size_t ScriptedConnectorMgr::live_count() const {
  const Lock lock(m_mutex);
  return m_live.size();
}

std::vector<ScriptedConnector*> ScriptedConnectorMgr::Live() const {
  const Lock lock(m_mutex);
  std::vector<ScriptedConnector*> live;
  for (const Entry& entry : m_live) {
    live.push_back(entry.connector.get());
  }
  return live;
}

std::vector<ScriptedConnectorMgr::Creation> ScriptedConnectorMgr::creations() const {
  const Lock lock(m_mutex);
  return m_creations;
}

std::vector<std::string> ScriptedConnectorMgr::removals() const {
  const Lock lock(m_mutex);
  return m_removals;
}

int ScriptedConnectorMgr::Deliver(const std::string& url, const std::string& frame) {
  const Lock callback_runs(m_callback_mutex);
  return RunCallback(At(url), frame);
}

int ScriptedConnectorMgr::Deliver(ScriptedConnector& connector, const std::string& frame) {
  const Lock callback_runs(m_callback_mutex);
  return RunCallback(connector, frame);
}

int ScriptedConnectorMgr::RunCallback(ScriptedConnector& connector, const std::string& frame) {
  OSTRNET::ReceiveCallback callback = nullptr;
  void* arg = nullptr;
  {
    const Lock lock(m_mutex);
    const Entry* entry = FindEntry(&connector);
    if (entry == nullptr) {
      Fault("Deliver to %p, which is not alive", static_cast<void*>(&connector));
    }
    callback = entry->callback;
    arg = entry->arg;
  }
  // A copy of exactly the frame's size: reading behind it is an error that shows.
  const std::vector<char> bytes(frame.begin(), frame.end());
  const int result =
      callback(connector.GetURL(), bytes.data(), static_cast<int>(bytes.size()), arg);
  if (result == 0) {
    connector.QueueFrame(frame);
  }
  return result;
}

}  // namespace OstrandFakes
