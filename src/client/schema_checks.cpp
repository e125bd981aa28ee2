#include "client/schema_checks.h"

#include <algorithm>

#include "client/bounded_copy.h"
#include "client/client_response.h"
#include "client/frame_scan.h"
#include "protocol/codec.h"
#include "service_api/register_table_info.h"

namespace OstrandService {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records

void SchemaChecks::Add(Zone& zone, const std::string& table, int32_t meta_version) {
  Check check{};
  check.zone = &zone;
  check.table = table;
  check.meta_version = meta_version;
  m_checks.push_back(check);
}

void SchemaChecks::Update(int64_t now_ms, OStrandPkg& pkg, char* buffer, size_t size) {
  for (Check& check : m_checks) {
    if (check.is_done || (now_ms < check.due_ms && !check.waits_for_proxy)) {
      continue;
    }
    if (check.asyn_id != 0) {
      Postpone(check, now_ms, ClientResponse::kResultTimeOut);
    } else {
      check.waits_for_proxy = !Ask(check, now_ms, pkg, buffer, size);
      if (check.waits_for_proxy) {  // or for its room
        check.due_ms = now_ms + kFirstPauseMs / 10;
      }
    }
  }
}

bool SchemaChecks::Ask(Check& check, int64_t now_ms, OStrandPkg& pkg, char* buffer, size_t size) {
  TcpConnector* const connector = AnyUsable(*check.zone, m_next_asyn_id);
  if (connector == nullptr) {
    return false;
  }
  OStrandPkgHead& head = pkg.stHead;
  head.construct();
  pkg.stBody.construct(OSTRAND_API_METADATA_GET_REQ);
  head.dwCmd = OSTRAND_API_METADATA_GET_REQ;
  head.ullAsynID = m_next_asyn_id;
  head.stRouterInfo.iAppID = m_app_id;
  head.stRouterInfo.iZoneID = check.zone->zone_id;
  CopyBounded(head.stRouterInfo.szTableName, check.table.c_str());
  head.stRouterInfo.dwTableNameLen = static_cast<uint32_t>(check.table.size()) + 1;
  head.iVexMetaVersion = check.meta_version;
  size_t len = size;
  if (PackWholeCsPkgMaybeCompress(buffer, len, nullptr, 0, pkg, head.wVersion, nullptr) != 0 ||
      connector->SendToQ(buffer, static_cast<unsigned int>(len), nullptr) <= 0) {
    return false;
  }
  check.asyn_id = m_next_asyn_id++;
  check.due_ms = now_ms + kAnswerMs;
  return true;
}

// Another one each time, so that one that does not answer does not keep the check.
TcpConnector* SchemaChecks::AnyUsable(Zone& zone, uint64_t number) {
  const auto& connectors = zone.connectors->Connectors();
  for (size_t i = 0; i < connectors.size(); ++i) {
    TcpConnector* const connector = connectors[(number + i) % connectors.size()].get();
    if (Zone::IsUsable(*connector)) {
      return connector;
    }
  }
  return nullptr;
}

void SchemaChecks::Postpone(Check& check, int64_t now_ms, int32_t error) {
  check.asyn_id = 0;
  check.last_error = error;
  check.pause_ms =
      check.pause_ms == 0 ? kFirstPauseMs : std::min(2 * check.pause_ms, kLongestPauseMs);
  check.due_ms = now_ms + check.pause_ms;
}

int64_t SchemaChecks::NextDueMs() const {
  int64_t due_ms = INT64_MAX;
  for (const Check& check : m_checks) {
    if (!check.is_done) {
      due_ms = std::min(due_ms, check.due_ms);
    }
  }
  return due_ms;
}

bool SchemaChecks::TakeFrame(const char* frame, size_t len, int64_t now_ms, OStrandPkg& pkg) {
  const uint64_t asyn_id = AsynIdOf(frame);
  if (asyn_id < kFirstOwnAsynId || CmdOf(frame) != OSTRAND_API_METADATA_GET_RES) {
    return false;
  }
  const auto check = std::find_if(m_checks.begin(), m_checks.end(), [asyn_id](const Check& asked) {
    return asked.asyn_id == asyn_id;
  });
  if (check == m_checks.end()) {
    return true;  // too late
  }
  int result = UnpackWholeCsPkgMaybeDecompress(pkg, nullptr, 0, frame, len, nullptr, nullptr, 0);
  result = result != 0 ? result : pkg.stHead.iResult;
  if (result != 0) {
    Postpone(*check, now_ms, result);
    return true;
  }
  const int ret = check->zone->router->ProcessGetMetaResForCheckTable(&pkg);
  if (m_verdict(check->zone->zone_id, check->table.c_str()) == RegisterTableInfo::kCheckPending) {
    Postpone(*check, now_ms, ret != 0 ? ret : ROUTER_ERR_FAILED);  // it told of another table
    return true;
  }
  check->asyn_id = 0;
  check->is_done = true;
  check->last_error = 0;
  return true;
}

int32_t SchemaChecks::LastError() const {
  for (const Check& check : m_checks) {
    if (check.last_error != 0) {
      return check.last_error;
    }
  }
  return 0;
}

}  // namespace OstrandService
