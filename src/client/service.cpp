#include "client/service.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "common/clock.h"
#include "protocol/codec.h"
#include "service_api/log_macros.h"

namespace OstrandService {
namespace {

using ostrand_protocol_cs::OStrandPkg;

#define SERVICE_LOG(level, ...)                                                                    \
  OSTRAND_LOG(m_logger, OstrandCommon::level, m_options.module_id, "src/client/service", __func__, \
              __VA_ARGS__)

constexpr char kApiVersion[] = "1.0.0";
constexpr size_t kScratchSize = size_t{64} << 10;
constexpr int64_t kMinuteMs = 60000;
constexpr int64_t kSchemaRetryMs = 3000;

// Differs between clients of a process, processes of a machine and machines; the multiplication
// (Knuth, TAOCP 3, 6.4) spreads what differs over all bits.
uint32_t SeedOfThisClient(const void* client) {
  const uint64_t mixed =
      (static_cast<uint64_t>(OstrandCommon::GetCurrentMicroseconds()) ^
       (static_cast<uint64_t>(getpid()) << 32) ^ reinterpret_cast<uintptr_t>(client)) *
      0x9E3779B97F4A7C15u;
  return static_cast<uint32_t>(mixed >> 32);
}

}  // namespace

Service::Service(const ClientOptions& options)
    : m_options(options),
      m_stderr_logger(OstrandCommon::OSTRAND_LOG_LEVEL_WARN),
      m_logger(options.logger != nullptr ? options.logger : &m_stderr_logger) {
  m_local_buffer = m_options.keep_user_buffers ? this : nullptr;
}

Service::~Service() { Stop(); }

int Service::Start() {
  m_connectors =
      std::make_unique<TcpConnectorMgr>(m_logger, m_options.module_id, m_options.buffer_limit);
  m_pack_buffer.reset(new (std::nothrow) char[ostrand_protocol_cs::OSTRAND_MAX_REQ_FRAME_LEN]);
  m_scratch.reset(new (std::nothrow) char[kScratchSize]);
  m_scratch_pkg = ostrand_protocol_cs::NewOStrandPkg();
  if (m_pack_buffer == nullptr || m_scratch == nullptr || m_scratch_pkg == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  m_own_request = std::make_unique<RouterRequest>();
  for (const int32_t zone_id : m_options.zones) {
    const int ret = StartZone(zone_id);
    if (ret != 0) {
      return ret;
    }
  }
  RegisterTables();

  DirectoryOptions directory;
  directory.urls = m_options.directory_urls;
  directory.app_id = m_options.app_id;
  directory.zones = m_options.zones;
  directory.api_version = kApiVersion;
  directory.refresh_ms = m_options.directory_refresh_ms;
  directory.random_seed =
      m_options.random_seed != 0 ? m_options.random_seed : SeedOfThisClient(this);
  DirectoryListener& listener = *this;
  m_directory = std::make_unique<DirectoryClient>(*m_connectors, m_logger, m_options.module_id,
                                                  directory, listener);
  m_minute_began_ms = OstrandCommon::GetMonotonicMilliseconds();
  if (m_connectors->Start() != 0) {
    SERVICE_LOG(OSTRAND_LOG_LEVEL_ERROR, "no network thread: out of threads or descriptors");
    return ROUTER_ERR_FAILED;
  }
  return 0;
}

int Service::StartZone(int32_t zone_id) {
  auto zone = std::make_unique<Zone>();
  zone->zone_id = zone_id;
  m_statistics.RegisterApp(m_options.app_id, zone_id);
  zone->latency = std::make_unique<LatencyDataTable>(m_options.app_id, m_options.max_in_flight);
  const char* signature = m_options.signature.empty() ? nullptr : m_options.signature.c_str();
  zone->router = std::make_unique<OstrandRouter>(
      m_options.module_id, m_pack_buffer.get(), ostrand_protocol_cs::OSTRAND_MAX_REQ_FRAME_LEN,
      m_options.app_id, zone_id, signature, m_options.sign_type, zone->latency.get(), &m_statistics,
      &m_judge, static_cast<uint32_t>(m_options.default_timeout_ms));
  OstrandRouter& router = *zone->router;
  m_zones.push_back(std::move(zone));
  if (!m_options.user_name.empty()) {
    router.SetUserNameAndPassword(m_options.user_name.c_str(),
                                  m_options.password_encrypted.c_str());
  }
  router.SetHeartbeatInterval(m_options.heartbeat_ms);
  router.SetCheckHeartbeatInterval(m_options.check_heartbeat_ms);
  router.SetPerfSampPercent(m_options.perf_sample_percent);
  return router.Init(m_connectors.get(), static_cast<OstrandServer*>(this), m_logger);
}

void Service::RegisterTables() {
  for (const TableOptions& options : m_options.tables) {
    auto table = std::make_unique<Table>();
    table->name = options.name;
    table->zone_id = options.zone_id;
    table->subscript =
        m_statistics.RegisterTable(m_options.app_id, options.zone_id, options.name.c_str());
    table->schema = options.schema;
    table->qos = tagTableQos{};
    table->qos.iZoneID = options.zone_id;
    std::memcpy(table->qos.szTableName, options.name.data(),
                std::min(options.name.size(), sizeof(table->qos.szTableName)));
    table->check_asked_ms = 0;
    {
      OstrandCommon::ScopedWriteLock lock(m_register_table_lock);
      RegisterTableInfo& info = m_register_table[options.zone_id][options.name];
      info.local_meta = options.schema;
      info.check_ret = options.schema != nullptr ? RegisterTableInfo::kCheckPending
                                                 : RegisterTableInfo::kCheckPassed;
    }
    FindZone(options.zone_id)->router->SetQos(&table->qos);
    m_tables.push_back(std::move(table));
  }
}

void Service::UnregisterTables() {
  for (const auto& table : m_tables) {
    OstrandRouter* router = RouterOf(table->zone_id);
    if (router != nullptr) {
      router->RemoveTableQos(table->zone_id, table->name.c_str());
    }
  }
}

void Service::Stop() {
  if (m_connectors == nullptr) {
    return;
  }
  m_connectors->Stop();
  m_directory.reset();
  UnregisterTables();
  m_zones.clear();
  m_tables.clear();
  m_connectors.reset();
}

void Service::Update() {
  const int64_t monotonic_ms = OstrandCommon::GetMonotonicMilliseconds();
  const char* signature = m_options.signature.empty() ? nullptr : m_options.signature.c_str();
  {
    ScopedPause pause(GetNetThread());
    m_directory->Update(monotonic_ms);
    for (const auto& zone : m_zones) {
      zone->router->OnUpdate(OstrandCommon::GetCurrentMilliseconds(), 0, signature, nullptr,
                             nullptr);
    }
    CheckSchemas(monotonic_ms);
  }
  m_statistics.ReuseIdleAccesses();
  if (monotonic_ms - m_minute_began_ms >= kMinuteMs) {
    m_minute_began_ms = monotonic_ms;
    EveryMinute();
  }
  m_connectors->Flush();
}

void Service::EveryMinute() {
  for (const auto& zone : m_zones) {
    zone->router->PrintErrorCodeStatistics();
  }
  m_statistics.RollMinute();
  // Answers about zones that nobody registered leave empty maps behind.
  OstrandCommon::ScopedWriteLock lock(m_register_table_lock);
  for (auto it = m_register_table.begin(); it != m_register_table.end();) {
    it = it->second.empty() ? m_register_table.erase(it) : std::next(it);
  }
}

void Service::OnDirectoryAnswer(int32_t zone_id,
                                const ostrand_protocol_dir::tagOStrdirCSPkg& answer) {
  Zone& zone = *FindZone(zone_id);
  const int ret = zone.router->FlushRoute(&answer);
  if (ret != 0) {
    SERVICE_LOG(OSTRAND_LOG_LEVEL_ERROR, "zone %d: the route could not be taken, code %d", zone_id,
                ret);
  }
  TakeSettings(zone, answer.stBody.stResGetTablesAndAccess.stConfData);
}

// What the directory sets holds; what it does not set (0 or less) stays as the options have it.
void Service::TakeSettings(Zone& zone, const ostrand_protocol_dir::tagConfData& conf) {
  OstrandRouter& router = *zone.router;
  const auto chosen = [](int32_t set, auto own) {
    return set > 0 ? static_cast<decltype(own)>(set) : own;
  };
  const uint32_t heartbeat_ms = chosen(conf.iHeartbeatMs, m_options.heartbeat_ms);
  const uint32_t check_ms = chosen(conf.iCheckHeartbeatMs, m_options.check_heartbeat_ms);
  const bool fit = check_ms > heartbeat_ms;  // else every proxy would be left before it can answer
  if (!fit && zone.settings_fit) {           // they come again and again
    SERVICE_LOG(OSTRAND_LOG_LEVEL_ERROR,
                "zone %d: the directory's heartbeat settings cannot be used: every %u ms, silence "
                "after %u ms",
                router.GetZoneId(), heartbeat_ms, check_ms);
  }
  zone.settings_fit = fit;
  router.SetHeartbeatInterval(fit ? heartbeat_ms : m_options.heartbeat_ms);
  router.SetCheckHeartbeatInterval(fit ? check_ms : m_options.check_heartbeat_ms);

  JudgeProxyOption judge = Judge::kDefaultOption;
  judge.threshold = chosen(conf.iJudgeThreshold, judge.threshold);
  judge.check_period = chosen(conf.iJudgeCheckPeriod, judge.check_period);
  judge.check_times = chosen(conf.iJudgeCheckTimes, judge.check_times);
  judge.recheck_available_interval =
      chosen(conf.iRecheckInterval, judge.recheck_available_interval);
  judge.max_remove_rate = chosen(conf.iMaxRemoveRate, judge.max_remove_rate);
  m_judge.SetProxyOption(static_cast<int32_t>(m_options.app_id), router.GetZoneId(), judge);
}

bool Service::IsReady() {
  for (const auto& zone : m_zones) {
    int64_t signed_up = 0;
    int64_t total = 0;
    if (zone->router->CheckConnectAll(signed_up, total) == 0) {
      return false;
    }
  }
  return std::all_of(m_tables.begin(), m_tables.end(), [this](const auto& table) {
    return TableCheckResult(table->zone_id, table->name.c_str()) == 0;
  });
}

int32_t Service::TableCheckResult(int32_t zone_id, const char* table_name) {
  OstrandCommon::ScopedWriteLock lock(m_register_table_lock);
  const auto zone = m_register_table.find(zone_id);
  if (zone == m_register_table.end()) {
    return RegisterTableInfo::kCheckPending;
  }
  const auto table = zone->second.find(table_name);
  return table != zone->second.end() ? table->second.check_ret.Get()
                                     : RegisterTableInfo::kCheckPending;
}

// Probes each zone once after its first sign-ups, and asks for the schemas that are still to be
// checked. Called while the network thread stands.
void Service::CheckSchemas(int64_t now_ms) {
  for (const auto& zone : m_zones) {
    // A ring that was never written has no proxy to ask.
    if (!zone->probed && !zone->circle_line.empty()) {
      Probe(*zone, now_ms);
    }
  }
  for (const auto& table : m_tables) {
    const bool is_due =
        table->check_asked_ms == 0 || now_ms - table->check_asked_ms >= kSchemaRetryMs;
    Zone& zone = *FindZone(table->zone_id);
    if (table->schema != nullptr && is_due && zone.probed &&
        TableCheckResult(table->zone_id, table->name.c_str()) == RegisterTableInfo::kCheckPending) {
      AskForSchema(zone, *table, now_ms);
    }
  }
}

// The router's own probe asks for the zone's first table and handles its answer.
void Service::Probe(Zone& zone, int64_t now_ms) {
  const auto first = std::find_if(m_tables.begin(), m_tables.end(), [&zone](const auto& table) {
    return table->zone_id == zone.zone_id;
  });
  if (first == m_tables.end()) {
    return;
  }
  Table& table = **first;
  ProxyServer* server = nullptr;
  if (zone.router->GetRouterProxyServer(server, nullptr, zone.zone_id, table.name.c_str()) == 0 &&
      zone.router->SendGetMetaReqForRecheckProxyAvailable(server) == 0) {
    zone.probed = true;
    table.check_asked_ms = now_ms;
  }
}

// The other tables are asked for like the application asks for records.
void Service::AskForSchema(Zone& zone, Table& table, int64_t now_ms) {
  m_schema_request.GetMetadata(table.name).Zone(table.zone_id);
  m_own_request->Load(m_schema_request.Head(), m_schema_request.Bytes());
  m_own_request->SetAppId(static_cast<int32_t>(m_options.app_id));
  m_own_request->SetAsynID(m_next_own_asyn_id++);
  if (zone.router->SendRequest(m_own_request.get()) == 0 && m_own_request->net_size != 0) {
    table.check_asked_ms = now_ms;
  }
}

bool Service::TakeOwnAnswer(RouterResponse& response) {
  if (response.GetAsynID() < kFirstOwnAsynId) {
    return false;
  }
  OstrandRouter* router = RouterOf(response.GetZoneId());
  const OStrandPkg* pkg = nullptr;
  response.GetOstrandPackagePtr(pkg);
  if (router != nullptr && pkg != nullptr && response.GetResult() == 0 &&
      response.GetCmd() == ostrand_protocol_cs::OSTRAND_API_METADATA_GET_RES) {
    ScopedPause pause(GetNetThread());
    router->ProcessGetMetaResForCheckTable(const_cast<OStrandPkg*>(pkg));  // NOLINT
  }
  return true;
}

int32_t Service::FindTable(int32_t zone_id, const char* table_name) const {
  for (const auto& table : m_tables) {
    if (table->zone_id == zone_id && table->name == table_name) {
      return table->subscript;
    }
  }
  return -1;
}

int32_t Service::ZoneOfTable(int32_t zone_id, const char* table_name) const {
  if (zone_id != kZoneNotGiven) {
    return zone_id;
  }
  int32_t found = kZoneNotGiven;
  for (const auto& table : m_tables) {
    if (table->name == table_name) {
      if (found != kZoneNotGiven) {
        return kZoneNotGiven;
      }
      found = table->zone_id;
    }
  }
  return found;
}

LPVEXMETA Service::TableSchema(int32_t zone_id, const char* table_name) const {
  for (const auto& table : m_tables) {
    if (table->zone_id == zone_id && table->name == table_name) {
      return table->schema;
    }
  }
  return nullptr;
}

Service::Zone* Service::FindZone(int32_t zone_id) const {
  for (const auto& zone : m_zones) {
    if (zone->zone_id == zone_id) {
      return zone.get();
    }
  }
  return nullptr;
}

OstrandRouter* Service::RouterOf(int32_t zone_id) const {
  const Zone* zone = FindZone(zone_id);
  return zone != nullptr ? zone->router.get() : nullptr;
}

size_t Service::InFlight(int32_t zone_id) const {
  const Zone* zone = FindZone(zone_id);
  return zone != nullptr ? zone->latency->InFlight() : 0;
}

const char* Service::TableName(int32_t zone_id, int32_t subscript) const {
  for (const auto& table : m_tables) {
    if (table->zone_id == zone_id && table->subscript == subscript) {
      return table->name.c_str();
    }
  }
  return "";
}

std::string Service::StatusText() {
  std::string text;
  for (const auto& zone : m_zones) {
    text += "zone " + std::to_string(zone->zone_id) + "\n";
    text += "\tin_flight:" + std::to_string(zone->latency->InFlight()) + "\n";
    text += "\tring:" + zone->circle_line + "\n";
    text += zone->router->GetStatLog();
  }
  m_statistics.PrintStatistics(text);
  return text;
}

void Service::NetThreadGetBufPkg(char*& buffer, size_t& size, OStrandPkg*& pkg) {
  buffer = m_scratch.get();
  size = kScratchSize;
  pkg = m_scratch_pkg.get();
}

const char* Service::GetApiVersion() { return kApiVersion; }

int Service::GetTableMetaVersion(int zone_id, const char* table_name) {
  if (table_name == nullptr) {
    return -1;
  }
  for (const auto& table : m_tables) {
    if (table->zone_id == zone_id && table->name == table_name && table->schema != nullptr) {
      return vex_get_meta_current_version(table->schema);
    }
  }
  return -1;
}

// Both threads: the routers' alarm sets lock inside, and the zones stay as they are from Start to
// Stop.
void Service::SetDirAlarmErrorCode(int code) {
  for (const auto& zone : m_zones) {
    zone->router->SetAlarmErrorCode(code);
  }
}

int Service::CompareEntryValueField(LPVEXMETA local, LPVEXMETA server) {
  return vex_compare_value_fields(local, server);
}

int Service::ReportDirHashCircleStat(int zone_id, std::string& line) {
  Zone* zone = FindZone(zone_id);
  if (zone != nullptr) {
    zone->circle_line = line;
  }
  return 0;
}

}  // namespace OstrandService
