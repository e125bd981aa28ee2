// The service behind a client: owns the directory client, the statistics, the judge, and the zones
// with a router each; registers the tables and has their schemas checked; drives it all.
//
// Everything runs on the thread of the loop's owner: the router's network thread is that same
// thread, so Pause and Resume have nothing to do.
//
// Ownership: as above; borrows loop, options, catalog and listener, and the options' logger and
// schemas. QoS records,
// signature, user name and password are kept longer than the routers. Threads: the loop's owner.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "client/client_options.h"
#include "client/directory_client.h"
#include "client/judge.h"
#include "client/schema_checks.h"
#include "client/statistic_mgr.h"
#include "client/stderr_logger.h"
#include "client/table_catalog.h"
#include "client/zone.h"
#include "net/event_loop.h"
#include "service_api/ostrand_server.h"
#include "service_api/router_status.h"
#include "service_api/table_qos.h"

namespace OstrandService {

// What requests in flight have to know of connections.
class ServiceListener {
 public:
  // in_flight is to be emptied. answered: sorted ids of tries whose whole answers are still there.
  virtual void OnConnectionLost(RequestChain& in_flight, const std::vector<uint64_t>& answered) = 0;
  virtual void OnAnswersDropped(const std::vector<uint64_t>& wire_ids) = 0;

 protected:
  ~ServiceListener() = default;
};

// A registered table.
struct Table {
  std::string name;
  uint16_t zone = 0;      // index
  int32_t subscript = 0;  // in the statistics
  LPVEXMETA schema = nullptr;
  int32_t meta_version = -1;
  tagTableQos qos{};
};

class Service : public OstrandServer, private DirectoryListener, private NetThread {
 public:
  // options: checked with CheckOptions before; catalog: of them.
  Service(OSTRNET::EventLoop& loop, const ClientOptions& options, const TableCatalog& catalog,
          ServiceListener& listener);
  ~Service() override;

  // 0; ROUTER_ERR_ALLOCATION; the code of OstrandRouter::Init.
  int Start();
  void Stop();

  // One round: directory, routers, schema checks, each minute the statistics.
  void Update();
  // When Update is due, in the loop's monotonic ms: at once after something happened.
  int64_t NextUpdateMs() const { return m_is_due ? INT64_MIN : m_due_ms; }
  // Something happened with which Update has to do.
  void AskForUpdate() { m_is_due = true; }
  // The loop's owner did nothing for so long: proxies get that much more time to be heard.
  void OnOwnerPaused(int64_t paused_ms);

  // Whether every zone can take requests and the schema of each table that has one passed its
  // check.
  bool IsReady();
  // The code of a schema that does not fit; 0: none so far.
  int32_t SchemaRefusal();
  // The last error of a check that could not be made yet; 0: none.
  int32_t SchemaTrouble() const { return m_checks.LastError(); }

  // place: as in the options.
  const Table& TableAt(size_t place) const { return *m_tables[place]; }

  size_t ZoneCount() const { return m_zones.size(); }
  Zone& ZoneAt(size_t index) const { return *m_zones[index]; }
  Zone* FindZone(int32_t zone_id) const;
  // Whether the zone's router would find a proxy now.
  bool CanRoute(Zone& zone);
  // Why it would not.
  int32_t WhyNoRoute(const Zone& zone) const;

  std::string StatusText();

  // OstrandServer
  OstrandCommon::Logger* GetLogger() override { return m_logger; }
  void NetThreadGetBufPkg(char*& buffer, size_t& size,
                          ostrand_protocol_cs::OStrandPkg*& pkg) override;
  const char* GetApiVersion() override;
  int GetTableMetaVersion(int zone_id, const char* table_name) override;
  void SetDirAlarmErrorCode(int code) override;
  int CompareEntryValueField(LPVEXMETA local, LPVEXMETA server) override;
  int ReportDirHashCircleStat(int zone_id, std::string& line) override;
  NetThread& GetNetThread() override { return *this; }

 private:
  class ZoneEvents;
  class DirectoryEvents;

  // NetThread: the router's two threads are one here.
  void Pause() override {}
  void Resume() override {}

  void OnDirectoryAnswer(int32_t zone_id,
                         const ostrand_protocol_dir::tagOStrdirCSPkg& answer) override;
  void OnDirectoryFailure(const char* url, const char* reason) override;
  void TakeSettings(Zone& zone, const ostrand_protocol_dir::tagConfData& conf);
  int StartZone(int32_t zone_id);
  void StartDirectory();
  void RegisterTables();
  void UnregisterTables();
  void UpdateZone(Zone& zone);
  void ApplyIntervals(Zone& zone);
  void LookWhatIsInUse(Zone& zone);
  int64_t NextDueMs();
  int32_t TableCheckResult(int32_t zone_id, const char* table_name);
  void EveryMinute();

  OSTRNET::EventLoop& m_loop;
  const ClientOptions& m_options;
  const TableCatalog& m_catalog;
  ServiceListener& m_listener;
  StderrLogger m_stderr_logger;
  OstrandCommon::Logger* const m_logger;
  StatisticMgr m_statistics;
  Judge m_judge;
  std::vector<std::unique_ptr<Table>> m_tables;
  std::unique_ptr<char[]> m_pack_buffer;
  std::unique_ptr<char[]> m_scratch;
  std::unique_ptr<ostrand_protocol_cs::OStrandPkg> m_scratch_pkg;
  std::vector<std::unique_ptr<ZoneEvents>> m_zone_events;
  std::vector<std::unique_ptr<Zone>> m_zones;
  std::unique_ptr<DirectoryEvents> m_directory_events;
  std::unique_ptr<TcpConnectorMgr> m_directory_connectors;
  std::unique_ptr<DirectoryClient> m_directory;
  SchemaChecks m_checks;
  std::vector<ProxyStatus> m_rows;  // scratch of LookWhatIsInUse
  bool m_is_due = true;
  int64_t m_due_ms = 0;
  int64_t m_paused_at_ms = INT64_MIN;  // end of the owner's last pause
  int64_t m_forgiven_ms = 0;           // silence that is the owner's own
  int64_t m_minute_began_ms = 0;
};

}  // namespace OstrandService
