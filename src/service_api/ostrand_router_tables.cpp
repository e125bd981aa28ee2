// The tables: their QoS records, and the check of their schemas.
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "common/text.h"
#include "protocol/ostrand_protocol_cs.h"
#include "service_api/log_macros.h"
#include "service_api/ostrand_router.h"
#include "service_api/ostrand_server.h"
#include "service_api/ostrand_service_statistic_mgr.h"
#include "vex/vex.h"

namespace OstrandService {
namespace {

using ostrand_protocol_cs::OStrandPkg;
using OSTRNET::CConnector;

constexpr size_t kTableNameSize = sizeof(tagTableQos::szTableName);
constexpr int kIdlTypeOther = 2;  // described by another language: nothing to compare
constexpr int32_t kMaxIdlLen = 10485759;
constexpr char kDataProtocolKey[] = "DataProtocolType=";

// A name of at most 32 characters, with or without its NUL, as text.
struct BoundedName {
  explicit BoundedName(const char* name) { std::memcpy(text, name, strnlen(name, kTableNameSize)); }
  const char* c_str() const { return text; }

  char text[kTableNameSize + 1] = {};
};

// A loaded schema library, freed at the end of its scope.
class MetaLib {
 public:
  MetaLib() = default;
  ~MetaLib() { vex_free_lib(&m_lib); }
  MetaLib(const MetaLib&) = delete;
  MetaLib& operator=(const MetaLib&) = delete;

  int Load(const char* image, int length) { return vex_load_metalib_buf(&m_lib, image, &length); }
  LPVEXMETA Find(const char* table_name) const { return vex_get_meta_by_name(m_lib, table_name); }

 private:
  LPVEXMETALIB m_lib = nullptr;
};

}  // namespace

void OstrandRouter::SetQos(tagTableQos* qos) {
  if (qos == nullptr) {
    return;
  }
  if (m_table_qos_count >= MAX_TABLE_QOS_COUNT) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "m_table_qos_count:%d full",
                     m_table_qos_count);
    return;
  }
  if (FindTableQos(qos->iZoneID, qos->szTableName) >= 0) {
    return;
  }
  const int index = m_table_qos_count;
  m_table_qos[index] = qos;
  ++m_table_qos_count;
  ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__,
                   "add m_table_qos index:%d zoneid:%d table_name:%s", index, qos->iZoneID,
                   BoundedName(qos->szTableName).c_str());
}

int OstrandRouter::FindTableQos(int zone_id, const char* table_name) {
  if (table_name == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "NULL == table_name.");
    return -1;
  }
  for (int i = 0; i < m_table_qos_count; ++i) {
    const tagTableQos* qos = m_table_qos[i];
    if (qos != nullptr && qos->iZoneID == zone_id &&
        std::strncmp(qos->szTableName, table_name, kTableNameSize) == 0) {
      return i;
    }
  }
  return -1;
}

int OstrandRouter::RemoveTableQos(int zone_id, const char* table_name) {
  if (table_name == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "zoneid:%d, NULL == table_name.", zone_id);
    return -1;
  }
  const BoundedName name(table_name);
  ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__, "zone_id:%d table_name:%s table count:%d",
                   zone_id, name.c_str(), m_table_qos_count);
  const int index = FindTableQos(zone_id, table_name);
  if (index < 0) {
    return 0;
  }
  const int last = m_table_qos_count - 1;
  m_table_qos[index] = m_table_qos[last];
  m_table_qos[last] = nullptr;
  m_table_qos_count = last;
  ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__,
                   "delete index:%d zone_id:%d table_name:%s table count:%d", index, zone_id,
                   name.c_str(), m_table_qos_count);
  return 0;
}

void OstrandRouter::InitStatisticAccess() {
  for (const RealServerNode& node : ServersOf(m_using_servers)) {
    const ProxyServer* server = node.server;
    if (server == nullptr || server->connector == nullptr || !server->auth_succeed ||
        server->connector->GetStatus() != CConnector::STATUS_CONNECTED) {
      continue;
    }
    int ip = 0;
    int port = 0;
    server->connector->GetIPAndPort(ip, port);
    const int ret = m_statistic_mgr->AddAccess(m_app_id, m_zone_id, node.server_url, ip, port,
                                               ServerIdText(node.server_id).c_str());
    if (ret != 0) {
      ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                       "m_statistic_mgr->AddAccess() failed. ret:%d", ret);
    }
  }
}

int OstrandRouter::ProcessGetMetaResForCheckTable(OStrandPkg* pkg) try {
  if (pkg == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, "ProcessGetMetaResForCheckTable",
                     "ProcessGetMetaResForCheckTable failed as pkg == NULL.");
    return -1;
  }
  const auto& res = pkg->stBody.stMetadataGetRes;
  const int zone_id = pkg->stHead.stRouterInfo.iZoneID;
  const BoundedName table_name(pkg->stHead.stRouterInfo.szTableName);
  const char* const table = table_name.c_str();
  ROUTER_LOG_INFO(m_logger, m_module_id, "ProcessGetMetaResForCheckTable",
                  "get zone:%d,table %s vex info from rsp, meta size:%d", zone_id, table,
                  res.iIdlConLen);

  // Held for reading to the end, although results are written: one answer updates one table, and
  // all other users of the map take the lock for writing.
  OstrandCommon::ScopedReadLock lock(m_ostrand_server->m_register_table_lock);
  OstrandServer::RegisterTables& tables = m_ostrand_server->m_register_table[zone_id];
  if (tables.empty()) {
    ROUTER_LOG_WARN(m_logger, m_module_id, "ProcessGetMetaResForCheckTable",
                    "zone:%d not exist in register_table", zone_id);
    return 0;
  }
  const auto found = tables.find(table);
  if (found == tables.end()) {
    ROUTER_LOG_WARN(m_logger, m_module_id, "ProcessGetMetaResForCheckTable",
                    "zone:%d,table %s not exist in register_table", zone_id, table);
    return 0;
  }
  RegisterTableInfo& info = found->second;
  const auto table_type = static_cast<int32_t>(res.dwOstrandType);
  if (res.iIdlType == kIdlTypeOther) {
    info.check_ret = RegisterTableInfo::kCheckPassed;
    info.data_protocol_type = -1;
    info.svr_table_type = table_type;
    return 0;
  }
  if (info.check_ret == RegisterTableInfo::kCheckPassed) {
    return 0;
  }
  if (info.local_meta == nullptr) {
    ROUTER_LOG_WARN(m_logger, m_module_id, "ProcessGetMetaResForCheckTable",
                    "zone:%d,table %s vexmeta is NULL in register_table", zone_id, table);
    return 0;
  }
  info.svr_table_type = table_type;
  const int ret = CheckTableVersion(info, zone_id, table, res.iVexMetaCurrentVersion);
  if (ret != 0) {
    return ret;
  }
  if (res.iIdlConLen <= 0) {
    info.check_ret = RegisterTableInfo::kCheckPassed;
    ROUTER_LOG_DEBUG(m_logger, m_module_id, "ProcessGetMetaResForCheckTable",
                     "get zone:%d,table %s vex info empty.", zone_id, table);
    return 0;
  }
  if (res.iIdlConLen > kMaxIdlLen) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, "ProcessGetMetaResForCheckTable",
                     "zone:%d,table %s vexmeta too large", zone_id, table);
    info.check_ret = RegisterTableInfo::kCheckFailed;
    info.data_protocol_type = -1;
    info.svr_table_type = table_type;
    return RegisterTableInfo::kCheckFailed;
  }
  return CheckTableImage(info, zone_id, table, *pkg);
} catch (const std::bad_alloc&) {  // the check is still to be made
  return ROUTER_ERR_ALLOCATION;
}

// A step of ProcessGetMetaResForCheckTable; it logs under that name, as the next one does.
int OstrandRouter::CheckTableVersion(RegisterTableInfo& info, int zone_id, const char* table,
                                     int server_version) {
  static constexpr char kOperation[] = "ProcessGetMetaResForCheckTable";
  const int client_version = vex_get_meta_current_version(info.local_meta);
  if (client_version > server_version) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation,
                     "get zone:%d,table %s client vex version %d > svr vex version %d, please "
                     "chang table on ostrand OMS",
                     zone_id, table, client_version, server_version);
    m_ostrand_server->SetLastError(RegisterTableInfo::kCheckFailed);
    info.check_ret = RegisterTableInfo::kCheckFailed;
    return RegisterTableInfo::kCheckFailed;
  }
  ROUTER_LOG_INFO(m_logger, m_module_id, kOperation,
                  "get zone:%d,table %s client vex version %d svr vex version %d, compare version "
                  "success",
                  zone_id, table, client_version, server_version);
  return 0;
}

int OstrandRouter::CheckTableImage(RegisterTableInfo& info, int zone_id, const char* table,
                                   const OStrandPkg& pkg) {
  static constexpr char kOperation[] = "ProcessGetMetaResForCheckTable";
  const auto& res = pkg.stBody.stMetadataGetRes;
  char lib_name[128];
  std::snprintf(lib_name, sizeof(lib_name), "zone_%d_table_%s.vex", zone_id, table);

  MetaLib lib;
  if (lib.Load(res.szIdlContent, res.iIdlConLen) != 0) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation, "get metalib from %s  failed.", lib_name);
    m_ostrand_server->SetLastError(RegisterTableInfo::kCheckFailed);
    info.check_ret = RegisterTableInfo::kCheckFailed;
    return RegisterTableInfo::kCheckFailed;
  }
  ROUTER_LOG_DEBUG(m_logger, m_module_id, kOperation, "get metalib from %s success.", lib_name);

  const LPVEXMETA server_meta = lib.Find(table);
  if (server_meta == nullptr) {
    info.check_ret = RegisterTableInfo::kCheckFailed;
    ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation, "get LPVEXMETA from %s failed.", lib_name);
    return RegisterTableInfo::kCheckFailed;
  }
  const int ret = m_ostrand_server->CompareEntryValueField(info.local_meta, server_meta);
  if (ret != 0) {
    info.check_ret = RegisterTableInfo::kCheckFailed;
    ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation,
                     "CompareEntryValueField failed,table:%s,ret:%d", table, ret);
    char text[OstrandServer::kLastErrorTextSize];
    std::snprintf(text, sizeof(text), "Compare meta failed,table:%s result:%d", table, ret);
    m_ostrand_server->SetLastError(RegisterTableInfo::kCheckFailed, text);
    return ret;
  }
  const int data_protocol_type = GetDataProtocolType(server_meta);  // may be out of memory
  info.check_ret = RegisterTableInfo::kCheckPassed;
  info.data_protocol_type = data_protocol_type;
  ROUTER_LOG_INFO(m_logger, m_module_id, kOperation,
                  "zone:%d, table %s, type %u, DataProtocolType %d(0 vex 1 plain 2 pb), vex "
                  "CompareEntryValueField success.",
                  zone_id, table, res.dwOstrandType, info.data_protocol_type.Get());
  return 0;
}

int OstrandRouter::GetDataProtocolType(LPVEXMETA meta) {
  if (meta == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "pMeta is NULL");
    return -1;
  }
  const char* attribute = vex_get_meta_customattr2(meta);
  if (attribute == nullptr || attribute[0] == '\0') {
    ROUTER_LOG_INFO(m_logger, m_module_id, __func__, "table not have customattr2");
    return -1;
  }
  if (std::strstr(attribute, kDataProtocolKey) == nullptr) {
    ROUTER_LOG_INFO(m_logger, m_module_id, __func__,
                    "table customattr2:%s not have DataProtocolType", attribute);
    return -1;
  }
  std::vector<std::string> items;
  OstrandCommon::SplitString(attribute, ";", items);
  const std::string* item = nullptr;
  for (const std::string& candidate : items) {
    if (candidate.find(kDataProtocolKey) != std::string::npos) {
      item = &candidate;
      break;
    }
  }
  if (item == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "table customattr2:%s parse DataProtocolType failed", attribute);
    return -1;
  }
  std::vector<std::string> parts;
  OstrandCommon::SplitString(*item, "=", parts);
  if (parts.size() != 2) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "table customattr2:%s parse DataProtocolType failed, size:%d", attribute,
                     static_cast<int>(parts.size()));
    return -1;
  }
  static constexpr const char* kTypes[] = {"VEX", "PLAIN", "PB"};
  for (int type = 0; type < 3; ++type) {
    if (parts[1] == kTypes[type]) {
      return type;
    }
  }
  ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                   "table customattr2:%s parse DataProtocolType failed, retstr:%s", attribute,
                   parts[1].c_str());
  return -1;
}

bool OStrandKeyFieldComp(const ostrand_protocol_cs::OStrandKeyField& a,
                         const ostrand_protocol_cs::OStrandKeyField& b) {
  return std::strncmp(a.szFieldName, b.szFieldName, sizeof(a.szFieldName)) > 0;
}

}  // namespace OstrandService
