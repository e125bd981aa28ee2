#include "property/router_lists_model.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace OstrandFakes {

using OstrandService::ProxyServer;

namespace {

using Entry = RouterListsModel::Entry;
using Entries = RouterListsModel::Entries;

constexpr int kArgument = -1811;
constexpr int kAllocation = -9747;

template <size_t N>
std::string Text(const char (&row)[N]) {
  return std::string(row, strnlen(row, N));
}

Entries::iterator FindIn(Entries& list, const std::string& url) {
  return std::find_if(list.begin(), list.end(), [&](const Entry& e) { return e.url == url; });
}
bool Has(const Entries& list, const std::string& url) {
  return std::any_of(list.begin(), list.end(), [&](const Entry& e) { return e.url == url; });
}

bool IsSignedUp(const Entry& entry) {
  return entry.record->connector->GetStatus() == 2 && entry.record->auth_succeed &&
         entry.record->last_auth_result == 0;
}
size_t CountSignedUp(const Entries& list) {
  return static_cast<size_t>(std::count_if(list.begin(), list.end(), IsSignedUp));
}

// When a proxy was heard of last, once the update has connected it and signed it up.
int64_t LastRecvAfterPass(const ProxyServer& proxy, int64_t now_ms) {
  if (proxy.connector->GetStatus() != 2) {
    return proxy.last_recv_ms;
  }
  const bool just_connected = proxy.pre_status == 0;
  const bool asks_again = now_ms - proxy.last_recv_ms > 1000 || !proxy.has_sent_auth;
  return just_connected || (!proxy.auth_succeed && asks_again) ? now_ms : proxy.last_recv_ms.Get();
}

}  // namespace

int RouterListsModel::FlushRoute(const DirectoryAnswer& answer, int failing_creation,
                                 int64_t now_ms) {
  const auto& route = answer.route();
  const int32_t count = route.iAccessCount;
  if (count == 0) {
    return kArgument;
  }
  std::vector<Entry> rows;
  for (int i = 0; i < std::min(count, 200); ++i) {
    rows.push_back({Text(route.aszAccessUrlList[i]), Text(route.aszAccessIdList[i]), nullptr});
  }
  std::set<std::string> urls;
  for (const Entry& row : rows) {
    urls.insert(row.url);
  }
  m_index.clear();
  for (const std::string& url : urls) {
    m_index.emplace(url, static_cast<int32_t>(m_index.size()));
  }

  if (m_in_use.empty()) {
    for (const Entry& row : rows) {
      if (const int code = Add(m_in_use, row, failing_creation)) {
        return code;
      }
    }
    return 0;
  }
  const Entries& replaced = m_preparing.empty() ? m_in_use : m_preparing;
  const bool same =
      count > 0 && static_cast<size_t>(count) == replaced.size() &&
      rows.size() == replaced.size() &&
      std::all_of(urls.begin(), urls.end(), [&](const auto& url) { return Has(replaced, url); }) &&
      std::all_of(replaced.begin(), replaced.end(),
                  [&](const Entry& e) { return urls.count(e.url) != 0; });
  if (same) {
    return 0;
  }
  m_last_flush_route_time = now_ms;
  PrunePreparing(rows);
  return FillPreparing(rows, failing_creation);
}

int RouterListsModel::Add(Entries& list, const Entry& entry, int& failing_creation) {
  if (entry.url.size() < 11) {
    return kArgument;
  }
  if (Has(list, entry.url)) {
    return 0;
  }
  if (entry.record == nullptr && --failing_creation == 0) {
    return kAllocation;
  }
  list.push_back(entry);
  return 0;
}

void RouterListsModel::PrunePreparing(const std::vector<Entry>& rows) {
  Entries kept;
  for (const Entry& entry : m_preparing) {
    if (Has(rows, entry.url)) {
      kept.push_back(entry);
    } else if (!Has(m_in_use, entry.url)) {
      m_removing.push_back(entry);
    }
  }
  m_preparing = kept;
}

int RouterListsModel::FillPreparing(const std::vector<Entry>& rows, int& failing_creation) {
  for (const Entry& row : rows) {
    const auto used = FindIn(m_in_use, row.url);
    const auto removed = FindIn(m_removing, row.url);
    if (Has(m_preparing, row.url)) {
      continue;
    }
    if (used != m_in_use.end()) {
      m_preparing.push_back(*used);
    } else if (removed != m_removing.end()) {
      m_preparing.push_back(*removed);
      m_removing.erase(removed);
    } else if (const int code = Add(m_preparing, row, failing_creation)) {
      return code;
    }
  }
  return 0;
}

int RouterListsModel::Update(int64_t now_ms) {
  std::map<ProxyServer*, int64_t> last_recv;
  for (const Entry& entry : m_in_use) {
    last_recv[entry.record] = LastRecvAfterPass(*entry.record, now_ms);
  }
  for (const Entry& entry : m_removing) {
    last_recv[entry.record] = entry.record->last_recv_ms;
  }
  const size_t signed_up = CountSignedUp(m_in_use);
  const size_t prepared = CountSignedUp(m_preparing);

  int writes = 0;
  m_is_all_connected = signed_up != 0 && signed_up == m_in_use.size();
  if (signed_up != 0 && (m_ring.empty() || m_written_for < signed_up || m_force)) {
    WriteRing(now_ms);
    ++writes;
    m_written_for = signed_up;
    m_force = m_force && !m_is_all_connected;
  }
  if (NeedSwitch(now_ms, prepared, signed_up)) {
    Switch();
    WriteRing(now_ms);
    ++writes;
  }
  Entries left;
  for (const Entry& entry : m_removing) {
    if (now_ms - last_recv[entry.record] <= 60000) {
      left.push_back(entry);
      continue;
    }
    for (Point& point : m_ring) {
      point.second = point.second == entry.record ? nullptr : point.second;
    }
  }
  m_removing = left;
  const bool is_whole = signed_up == m_in_use.size() && m_ring.size() == 100 * m_in_use.size();
  if (writes == 0 && m_last_ring_time > 0 && now_ms - m_last_ring_time > 60000 && !is_whole &&
      signed_up != 0) {
    WriteRing(now_ms);
    ++writes;
  }
  return writes;
}

bool RouterListsModel::NeedSwitch(int64_t now_ms, size_t prepared, size_t in_use) const {
  if (prepared == 0) {
    return false;
  }
  return prepared == m_preparing.size() || prepared >= in_use ||
         (prepared >= m_preparing.size() / 2 && now_ms - m_last_flush_route_time > 10000);
}

void RouterListsModel::Switch() {
  Entries stay;
  for (const Entry& entry : m_in_use) {
    (Has(m_preparing, entry.url) ? stay : m_removing).push_back(entry);
  }
  m_in_use = stay;
  for (const Entry& entry : m_preparing) {
    if (!Has(m_in_use, entry.url)) {
      m_in_use.push_back(entry);
    }
  }
  m_preparing.clear();
}

void RouterListsModel::WriteRing(int64_t now_ms) {
  m_ring.clear();
  for (size_t i = 0; i < m_in_use.size() && i < m_endings.size(); ++i) {
    for (const uint64_t ending : m_endings[i]) {
      m_ring.emplace_back(ending, m_in_use[i].record);
    }
  }
  std::sort(m_ring.begin(), m_ring.end());
  m_last_ring_time = now_ms;
}

void RouterListsModel::Resolve(const std::string& url, ProxyServer* record) {
  for (Entries* list : {&m_in_use, &m_preparing}) {
    const auto found = FindIn(*list, url);
    if (found != list->end() && found->record == nullptr) {
      found->record = record;
    }
  }
}

}  // namespace OstrandFakes
