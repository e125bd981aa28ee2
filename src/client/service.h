// The service behind a Client: owns the network thread, the directory client, the statistics, the
// judge, and one router with its in-flight table for each zone; registers the tables and has their
// schemas checked; drives it all.
//
// Ownership: as above; borrows the options' logger and schemas. QoS records, signature, user name
// and password are kept longer than the routers. Threads: the application's thread, but for what
// OstrandServer's contract gives to the network thread (the receive callbacks).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/client_options.h"
#include "client/client_request.h"
#include "client/directory_client.h"
#include "client/judge.h"
#include "client/latency_data_table.h"
#include "client/router_request.h"
#include "client/router_response.h"
#include "client/statistic_mgr.h"
#include "client/stderr_logger.h"
#include "client/tcp_connector_mgr.h"
#include "service_api/ostrand_router.h"
#include "service_api/ostrand_server.h"
#include "service_api/table_qos.h"

namespace OstrandService {

class Service : public OstrandServer, private DirectoryListener {
 public:
  // options: checked with CheckOptions before.
  explicit Service(const ClientOptions& options);
  ~Service() override;

  // 0; ROUTER_ERR_ALLOCATION; ROUTER_ERR_FAILED when the system gives no thread or descriptor; the
  // code of OstrandRouter::Init.
  int Start();
  void Stop();

  // One round: directory, routers, schema checks, each minute the statistics. Sends what is queued.
  void Update();

  // Whether every zone can take requests and the schema of each table that has one passed its
  // check.
  bool IsReady();

  // The table's subscript in the statistics, or -1 for one that is not registered.
  int32_t FindTable(int32_t zone_id, const char* table_name) const;
  // The zone that is meant: the given one or, for kZoneNotGiven, the only one that has the table;
  // kZoneNotGiven when there is none, or several.
  int32_t ZoneOfTable(int32_t zone_id, const char* table_name) const;
  // The application's own schema of a registered table; null when there is none.
  LPVEXMETA TableSchema(int32_t zone_id, const char* table_name) const;
  // The name of a registered table; empty for another subscript.
  const char* TableName(int32_t zone_id, int32_t subscript) const;
  // 0 passed or nothing to check; the code of the difference; 1 not checked yet.
  int32_t TableCheckResult(int32_t zone_id, const char* table_name);

  OstrandRouter* RouterOf(int32_t zone_id) const;
  size_t ZoneCount() const { return m_zones.size(); }
  OstrandRouter& RouterAt(size_t index) const { return *m_zones[index]->router; }
  // Requests of a zone that wait for an answer; 0 for an unknown zone.
  size_t InFlight(int32_t zone_id) const;
  TcpConnectorMgr& Connectors() { return *m_connectors; }

  // Takes an answer to one of the service's own requests. False: it is the application's.
  bool TakeOwnAnswer(RouterResponse& response);

  // Asynchronous ids from here on are the service's own.
  static constexpr uint64_t kFirstOwnAsynId = uint64_t{1} << 63;

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
  NetThread& GetNetThread() override { return m_connectors->Loop(); }

 private:
  // A registered table.
  struct Table {
    std::string name;
    int32_t zone_id;
    int32_t subscript;
    LPVEXMETA schema;
    tagTableQos qos;
    int64_t check_asked_ms;  // monotonic; 0: not yet
  };
  struct Zone {
    int32_t zone_id;
    std::unique_ptr<LatencyDataTable> latency;
    std::unique_ptr<OstrandRouter> router;
    bool probed = false;       // the router's probe was sent
    bool settings_fit = true;  // the directory's last ones
    std::string circle_line;   // the ring's fingerprint
  };

  void OnDirectoryAnswer(int32_t zone_id,
                         const ostrand_protocol_dir::tagOStrdirCSPkg& answer) override;
  void TakeSettings(Zone& zone, const ostrand_protocol_dir::tagConfData& conf);
  int StartZone(int32_t zone_id);
  void RegisterTables();
  void UnregisterTables();
  void CheckSchemas(int64_t now_ms);
  void Probe(Zone& zone, int64_t now_ms);
  void AskForSchema(Zone& zone, Table& table, int64_t now_ms);
  void EveryMinute();
  Zone* FindZone(int32_t zone_id) const;

  const ClientOptions m_options;
  StderrLogger m_stderr_logger;
  OstrandCommon::Logger* const m_logger;
  std::unique_ptr<TcpConnectorMgr> m_connectors;
  StatisticMgr m_statistics;
  Judge m_judge;
  std::vector<std::unique_ptr<Table>> m_tables;
  std::unique_ptr<char[]> m_pack_buffer;
  std::unique_ptr<char[]> m_scratch;
  std::unique_ptr<ostrand_protocol_cs::OStrandPkg> m_scratch_pkg;
  ClientRequest m_schema_request;
  std::unique_ptr<RouterRequest> m_own_request;
  std::vector<std::unique_ptr<Zone>> m_zones;
  std::unique_ptr<DirectoryClient> m_directory;
  uint64_t m_next_own_asyn_id = kFirstOwnAsynId;
  int64_t m_minute_began_ms = 0;
};

}  // namespace OstrandService
