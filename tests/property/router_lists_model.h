// What a router's lists, index and ring should be: the plain, slow version.
//
// It is told of each directory's answer and each update before the router is, and looks at the
// router's records for what it does not keep itself: who is connected, signed up, and since when
// silent. It knows nothing of isolated proxies, failed sends and missing loggers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "fakes/directory_answer.h"
#include "service_api/proxy_server.h"

namespace OstrandFakes {

class RouterListsModel {
 public:
  struct Entry {
    std::string url;
    std::string id;
    OstrandService::ProxyServer* record;  // null: one that the router makes now

    bool operator==(const Entry& other) const {
      return url == other.url && id == other.id && record == other.record;
    }
  };
  using Entries = std::vector<Entry>;
  using Point = std::pair<uint64_t, OstrandService::ProxyServer*>;

  // endings: of each position in the list in use.
  explicit RouterListsModel(std::vector<std::vector<uint64_t>> endings)
      : m_endings(std::move(endings)) {}

  // Answers FlushRoute's code. failing_creation: the how manieth new connector fails; 0: none.
  int FlushRoute(const DirectoryAnswer& answer, int failing_creation, int64_t now_ms);
  // Answers how often the ring is written.
  int Update(int64_t now_ms);
  void SetForceFlushHash() { m_force = true; }

  const Entries& in_use() const { return m_in_use; }
  const Entries& preparing() const { return m_preparing; }
  const Entries& removing() const { return m_removing; }
  const std::map<std::string, int32_t>& index() const { return m_index; }
  // In ascending order; a point whose proxy is gone has no record.
  const std::vector<Point>& ring() const { return m_ring; }
  int64_t last_flush_route_time() const { return m_last_flush_route_time; }
  bool is_all_connected() const { return m_is_all_connected; }

  // Tells which record the router made for a new url.
  void Resolve(const std::string& url, OstrandService::ProxyServer* record);

 private:
  int Add(Entries& list, const Entry& entry, int& failing_creation);
  void PrunePreparing(const std::vector<Entry>& rows);
  int FillPreparing(const std::vector<Entry>& rows, int& failing_creation);
  bool NeedSwitch(int64_t now_ms, size_t prepared, size_t in_use) const;
  void Switch();
  void WriteRing(int64_t now_ms);

  const std::vector<std::vector<uint64_t>> m_endings;
  Entries m_in_use;
  Entries m_preparing;
  Entries m_removing;
  std::map<std::string, int32_t> m_index;
  std::vector<Point> m_ring;
  int64_t m_last_flush_route_time = 0;
  int64_t m_last_ring_time = 0;
  size_t m_written_for = 0;
  bool m_force = false;
  bool m_is_all_connected = false;
};

}  // namespace OstrandFakes
