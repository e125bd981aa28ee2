#include "client/service.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <set>
#include <utility>

#include "client/client_errors.h"
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

// How often the routers are driven when nothing happens and no heartbeat is due.
constexpr int64_t kUnsettledMs = 100;  // some proxy cannot take requests: attempts are repeated
constexpr int64_t kBusyMs = 300;       // requests are under way: the router judges every 300 ms
constexpr int64_t kIdleMs = 1000;

}  // namespace

// What a zone's connections do to it.
class Service::ZoneEvents final : public ConnectorEvents {
 public:
  ZoneEvents(Service& service, Zone& zone) : m_service(service), m_zone(zone) {}

  void OnConnectionChanged() override { Changed(); }
  void OnConnectionLost(RequestChain& in_flight, const std::vector<uint64_t>& answered) override {
    m_service.m_listener.OnConnectionLost(in_flight, answered);
  }
  void OnAnswersDropped(const std::vector<uint64_t>& wire_ids) override {
    m_service.m_listener.OnAnswersDropped(wire_ids);
  }
  void OnRoom() override { m_zone.wake = true; }
  bool TakeFrame(const TcpConnector& /*connector*/, const char* frame, size_t len) override {
    return m_service.m_checks.TakeFrame(frame, len, m_service.m_loop.NowMs(),
                                        *m_service.m_scratch_pkg);
  }
  // Heartbeat answers come all the time and change nothing that an update would look at.
  void OnFrameHandled(uint32_t cmd) override {
    if (cmd != ostrand_protocol_cs::OSTRAND_API_HEART_BEAT_RES) {
      Changed();
    }
  }
  // What is not signed up is not polled: reading would never begin again.
  bool MayStopReading(const TcpConnector& connector) override {
    return static_cast<const ProxyServer*>(connector.arg())->auth_succeed;
  }
  // The other Disconnect, of a proxy that is tried again, comes while it is not available.
  bool IsForSilence(const TcpConnector& connector) override {
    return static_cast<const ProxyServer*>(connector.arg())->is_available;
  }

 private:
  void Changed() {
    m_zone.look_again = true;
    m_service.m_is_due = true;
  }

  Service& m_service;
  Zone& m_zone;
};

class Service::DirectoryEvents final : public ConnectorEvents {
 public:
  explicit DirectoryEvents(Service& service) : m_service(service) {}

  void OnConnectionChanged() override { m_service.m_is_due = true; }
  bool TakeFrame(const TcpConnector& /*connector*/, const char* /*frame*/,
                 size_t /*len*/) override {
    m_service.m_is_due = true;
    return false;
  }

 private:
  Service& m_service;
};

Service::Service(OSTRNET::EventLoop& loop, const ClientOptions& options,
                 const TableCatalog& catalog, ServiceListener& listener)
    : m_loop(loop),
      m_options(options),
      m_catalog(catalog),
      m_listener(listener),
      m_stderr_logger(OstrandCommon::OSTRAND_LOG_LEVEL_WARN, loop.Sys()),
      m_logger(options.logger != nullptr ? options.logger : &m_stderr_logger),
      m_checks(static_cast<int32_t>(options.app_id), [this](int32_t zone_id, const char* table) {
        return TableCheckResult(zone_id, table);
      }) {
  m_local_buffer = m_options.keep_user_buffers ? this : nullptr;
}

Service::~Service() { Stop(); }

int Service::Start() {
  m_pack_buffer.reset(new (std::nothrow) char[ostrand_protocol_cs::OSTRAND_MAX_REQ_FRAME_LEN]);
  m_scratch.reset(new (std::nothrow) char[kScratchSize]);
  m_scratch_pkg = ostrand_protocol_cs::NewOStrandPkg();
  if (m_pack_buffer == nullptr || m_scratch == nullptr || m_scratch_pkg == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  m_rows.resize(OstrandRouter::MAX_SERVER_COUNT);
  for (const int32_t zone_id : m_options.zones) {
    const int ret = StartZone(zone_id);
    if (ret != 0) {
      return ret;
    }
  }
  RegisterTables();
  StartDirectory();
  m_minute_began_ms = m_loop.NowMs();
  return 0;
}

int Service::StartZone(int32_t zone_id) {
  m_statistics.RegisterApp(m_options.app_id, zone_id);
  auto zone = std::make_unique<Zone>();
  zone->zone_id = zone_id;
  zone->index = static_cast<uint16_t>(m_zones.size());
  zone->heartbeat_ms = m_options.heartbeat_ms;
  zone->check_heartbeat_ms = m_options.check_heartbeat_ms;
  zone->first_period_ms =
      1 + static_cast<uint32_t>(m_loop.Sys().RandomNumber() % m_options.heartbeat_ms);
  zone->latency = std::make_unique<LatencyDataTable>(m_options.app_id, m_options.max_in_flight);
  m_zone_events.push_back(std::make_unique<ZoneEvents>(*this, *zone));
  zone->connectors = std::make_unique<TcpConnectorMgr>(
      m_loop, m_logger, m_options.module_id, *m_zone_events.back(), m_options.buffer_limit);
  const char* signature = m_options.signature.empty() ? nullptr : m_options.signature.c_str();
  zone->router = std::make_unique<OstrandRouter>(
      m_options.module_id, m_pack_buffer.get(), ostrand_protocol_cs::OSTRAND_MAX_REQ_FRAME_LEN,
      m_options.app_id, zone_id, signature, m_options.sign_type, zone->latency.get(), &m_statistics,
      &m_judge, static_cast<uint32_t>(m_options.default_timeout_ms));
  m_zones.push_back(std::move(zone));
  Zone& added = *m_zones.back();
  if (!m_options.user_name.empty()) {
    added.router->SetUserNameAndPassword(m_options.user_name.c_str(),
                                         m_options.password_encrypted.c_str());
  }
  added.router->SetPerfSampPercent(m_options.perf_sample_percent);
  ApplyIntervals(added);
  return added.router->Init(added.connectors.get(), static_cast<OstrandServer*>(this), m_logger);
}

void Service::StartDirectory() {
  DirectoryOptions directory;
  directory.urls = m_options.directory_urls;
  directory.app_id = m_options.app_id;
  directory.zones = m_options.zones;
  directory.api_version = kApiVersion;
  directory.refresh_ms = m_options.directory_refresh_ms;
  directory.random = [this] { return m_loop.Sys().RandomNumber(); };
  m_directory_events = std::make_unique<DirectoryEvents>(*this);
  m_directory_connectors =
      std::make_unique<TcpConnectorMgr>(m_loop, m_logger, m_options.module_id, *m_directory_events);
  m_directory_connectors->LeavePausesToOthers();  // or a pause would use up the patience
  DirectoryListener& listener = *this;
  m_directory = std::make_unique<DirectoryClient>(*m_directory_connectors, m_logger,
                                                  m_options.module_id, directory, listener);
}

void Service::RegisterTables() {
  for (const TableOptions& options : m_options.tables) {
    Zone& zone = *FindZone(options.zone_id);
    auto table = std::make_unique<Table>();
    table->name = options.name;
    table->zone = zone.index;
    table->subscript =
        m_statistics.RegisterTable(m_options.app_id, options.zone_id, options.name.c_str());
    table->schema = options.schema;
    table->meta_version =
        options.schema != nullptr ? vex_get_meta_current_version(options.schema) : -1;
    table->qos.iZoneID = options.zone_id;
    std::memcpy(table->qos.szTableName, options.name.data(),
                std::min(options.name.size(), sizeof(table->qos.szTableName)));
    {
      OstrandCommon::ScopedWriteLock lock(m_register_table_lock);
      RegisterTableInfo& info = m_register_table[options.zone_id][options.name];
      info.local_meta = options.schema;
      info.check_ret = options.schema != nullptr ? RegisterTableInfo::kCheckPending
                                                 : RegisterTableInfo::kCheckPassed;
    }
    zone.router->SetQos(&table->qos);
    if (options.schema != nullptr) {
      m_checks.Add(zone, options.name, table->meta_version);
    }
    m_tables.push_back(std::move(table));
  }
}

void Service::UnregisterTables() {
  for (const auto& table : m_tables) {
    ZoneAt(table->zone).router->RemoveTableQos(ZoneAt(table->zone).zone_id, table->name.c_str());
  }
}

void Service::Stop() {
  m_directory.reset();
  m_directory_connectors.reset();
  UnregisterTables();
  for (const auto& zone : m_zones) {
    zone->router.reset();
  }
  m_zones.clear();
  m_zone_events.clear();
  m_tables.clear();
}

void Service::Update() {
  m_is_due = false;
  m_directory->Update(m_loop.NowMs());
  for (const auto& zone : m_zones) {
    UpdateZone(*zone);
  }
  m_checks.Update(m_loop.NowMs(), *m_scratch_pkg, m_scratch.get(), kScratchSize);
  m_statistics.ReuseIdleAccesses();
  if (m_loop.NowMs() - m_minute_began_ms >= kMinuteMs) {
    m_minute_began_ms = m_loop.NowMs();
    EveryMinute();
  }
  m_due_ms = NextDueMs();
}

void Service::UpdateZone(Zone& zone) {
  const char* signature = m_options.signature.empty() ? nullptr : m_options.signature.c_str();
  const uint32_t interval_ms = zone.heartbeats == 1 ? zone.first_period_ms : zone.heartbeat_ms;
  const int64_t now_ms = OstrandCommon::ReadCurrentMicroseconds() / 1000;
  zone.router->OnUpdate(now_ms, 0, signature, nullptr, nullptr);
  if (now_ms - zone.last_heartbeat_ms > interval_ms) {
    zone.last_heartbeat_ms = now_ms;
    ++zone.heartbeats;
  }
  ApplyIntervals(zone);
  if (zone.lists_changed) {
    LookWhatIsInUse(zone);
  }
  zone.look_again = true;
}

// Heartbeats: the first period is another one. Silence: what was the owner's own is forgiven until
// every proxy had the whole time again.
void Service::ApplyIntervals(Zone& zone) {
  zone.router->SetHeartbeatInterval(zone.heartbeats == 1 ? zone.first_period_ms
                                                         : zone.heartbeat_ms);
  const bool forgives =
      m_forgiven_ms > 0 && m_loop.NowMs() - m_paused_at_ms < int64_t{zone.check_heartbeat_ms};
  const int64_t check_ms = zone.check_heartbeat_ms + (forgives ? m_forgiven_ms : 0);
  zone.router->SetCheckHeartbeatInterval(
      static_cast<uint32_t>(std::min<int64_t>(check_ms, INT32_MAX)));
}

void Service::OnOwnerPaused(int64_t paused_ms) {
  int64_t longest_ms = 0;
  for (const auto& zone : m_zones) {
    longest_ms = std::max<int64_t>(longest_ms, zone->check_heartbeat_ms);
  }
  const bool is_first =
      m_forgiven_ms == 0 || m_loop.NowMs() - m_paused_at_ms - paused_ms >= longest_ms;
  m_forgiven_ms = is_first ? paused_ms : m_forgiven_ms + paused_ms;
  m_paused_at_ms = m_loop.NowMs();
  for (const auto& zone : m_zones) {
    ApplyIntervals(*zone);
  }
  m_is_due = true;
}

void Service::LookWhatIsInUse(Zone& zone) {
  int count = 0;
  zone.router->GetProxyStatus(m_rows.data(), static_cast<int>(m_rows.size()), count);
  std::set<std::string_view> in_use;
  for (int i = 0; i < count; ++i) {
    in_use.insert(m_rows[static_cast<size_t>(i)].proxy_url);
  }
  for (const auto& connector : zone.connectors->Connectors()) {
    connector->is_in_use = in_use.count(connector->GetURL()) != 0;
  }
  zone.lists_changed = false;
}

bool Service::CanRoute(Zone& zone) {
  if (!zone.look_again) {
    return zone.can_route;
  }
  zone.look_again = false;
  uint64_t usable = 0;
  for (const auto& connector : zone.connectors->Connectors()) {
    if (Zone::IsUsable(*connector)) {
      usable = usable * 31 + connector->connection();
    }
  }
  const bool can_route = usable != 0 && !zone.circle_line.empty();
  // Others than before: what had no room with those may have some with these.
  zone.wake = zone.wake || (can_route && (!zone.can_route || usable != zone.usable));
  zone.usable = usable;
  zone.can_route = can_route;
  return can_route;
}

int32_t Service::WhyNoRoute(const Zone& zone) const {
  const auto& connectors = zone.connectors->Connectors();
  if (connectors.empty()) {
    return CLIENT_ERR_DIRECTORY;
  }
  for (const auto& connector : connectors) {
    const int32_t verdict = static_cast<const ProxyServer*>(connector->arg())->last_auth_result;
    if (verdict < -1) {  // refused
      return verdict;
    }
  }
  return zone.circle_line.empty() ? int32_t{CLIENT_ERR_NOT_READY} : int32_t{ROUTER_ERR_NO_ROUTE};
}

int64_t Service::NextDueMs() {
  int64_t due_ms = std::min(m_directory->NextDueMs(), m_checks.NextDueMs());
  const int64_t now_ms = m_loop.NowMs();
  const int64_t wall_ms = OstrandCommon::GetCurrentMilliseconds();
  for (const auto& zone : m_zones) {
    const auto& connectors = zone->connectors->Connectors();
    const bool is_settled =
        std::all_of(connectors.begin(), connectors.end(),
                    [](const auto& connector) { return Zone::IsUsable(*connector); });
    const int64_t tick_ms =
        !is_settled ? kUnsettledMs : (zone->latency->InFlight() > 0 ? kBusyMs : kIdleMs);
    const uint32_t interval_ms = zone->heartbeats == 1 ? zone->first_period_ms : zone->heartbeat_ms;
    const int64_t heartbeat_in_ms = zone->last_heartbeat_ms + interval_ms + 1 - wall_ms;
    due_ms = std::min(due_ms, now_ms + std::clamp<int64_t>(heartbeat_in_ms, 1, tick_ms));
  }
  return due_ms;
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
  zone.lists_changed = true;
  int32_t code = 0;
  std::string text;
  GetLastError(code, text);
  if (code == CLIENT_ERR_DIRECTORY) {
    SetLastError(0, nullptr);
  }
  TakeSettings(zone, answer.stBody.stResGetTablesAndAccess.stConfData);
}

void Service::OnDirectoryFailure(const char* url, const char* reason) {
  const std::string text = std::string("directory ") + url + ": " + reason;
  SetLastError(CLIENT_ERR_DIRECTORY, text.c_str());
}

// What the directory sets holds; what it does not set (0 or less) stays as the options have it.
void Service::TakeSettings(Zone& zone, const ostrand_protocol_dir::tagConfData& conf) {
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
                zone.zone_id, heartbeat_ms, check_ms);
  }
  zone.settings_fit = fit;
  zone.heartbeat_ms = fit ? heartbeat_ms : m_options.heartbeat_ms;
  zone.check_heartbeat_ms = fit ? check_ms : m_options.check_heartbeat_ms;
  zone.first_period_ms = 1 + (zone.first_period_ms - 1) % zone.heartbeat_ms;  // still a share of it
  ApplyIntervals(zone);

  JudgeProxyOption judge = Judge::kDefaultOption;
  judge.threshold = chosen(conf.iJudgeThreshold, judge.threshold);
  judge.check_period = chosen(conf.iJudgeCheckPeriod, judge.check_period);
  judge.check_times = chosen(conf.iJudgeCheckTimes, judge.check_times);
  judge.recheck_available_interval =
      chosen(conf.iRecheckInterval, judge.recheck_available_interval);
  judge.max_remove_rate = chosen(conf.iMaxRemoveRate, judge.max_remove_rate);
  m_judge.SetProxyOption(static_cast<int32_t>(m_options.app_id), zone.zone_id, judge);
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
    return TableCheckResult(ZoneAt(table->zone).zone_id, table->name.c_str()) == 0;
  });
}

int32_t Service::SchemaRefusal() {
  for (const auto& table : m_tables) {
    const int32_t ret = TableCheckResult(ZoneAt(table->zone).zone_id, table->name.c_str());
    if (ret < 0) {
      return ret;
    }
  }
  return 0;
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

Zone* Service::FindZone(int32_t zone_id) const {
  for (const auto& zone : m_zones) {
    if (zone->zone_id == zone_id) {
      return zone.get();
    }
  }
  return nullptr;
}

std::string Service::StatusText() {
  std::string text;
  for (const auto& zone : m_zones) {
    text += "zone " + std::to_string(zone->zone_id) + "\n";
    text += "\tin_flight:" + std::to_string(zone->latency->InFlight()) + "\n";
    text += "\twaiting:" + std::to_string(zone->waiting_count) + "\n";
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
  const int place = table_name != nullptr ? m_catalog.Find(zone_id, table_name) : -1;
  return place >= 0 ? TableAt(static_cast<size_t>(place)).meta_version : -1;
}

void Service::SetDirAlarmErrorCode(int code) {
  for (const auto& zone : m_zones) {
    zone->router->SetAlarmErrorCode(code);
  }
}

int Service::CompareEntryValueField(LPVEXMETA local, LPVEXMETA server) {
  return vex_compare_value_fields(local, server);
}

int Service::ReportDirHashCircleStat(int zone_id, std::string& line) {
  Zone* const zone = FindZone(zone_id);
  if (zone != nullptr) {
    zone->circle_line = line;
    zone->lists_changed = true;
  }
  return 0;
}

}  // namespace OstrandService
