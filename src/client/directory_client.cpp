#include "client/directory_client.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <utility>

#include "net/address.h"
#include "protocol/ostrand_dir_codec.h"
#include "service_api/log_macros.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_dir;  // NOLINT: the directory's records
using OSTRNET::CConnector;

#define DIRECTORY_LOG(level, ...)                                                         \
  OSTRAND_LOG(m_logger, OstrandCommon::level, m_module_id, "src/client/directory_client", \
              __func__, __VA_ARGS__)

class DirFrameParser : public OSTRNET::IPackParser {
 public:
  int ParsePackLength(const char* data, unsigned int len) override {
    return DirFrameLength(data, len);
  }
};

// Every frame waits to be fetched.
int LeaveForPolling(const char* url, const char* data, int len, void* arg) {
  (void)url;
  (void)data;
  (void)len;
  (void)arg;
  return 0;
}

// What is wrong with a proxy's url; empty, and the url entered, when nothing is.
std::string FaultOfRow(const std::string& url, std::set<std::string>& urls) {
  constexpr size_t kMaxUrl = sizeof(tagResGetTablesAndAccess::aszAccessUrlList[0]) - 1;
  OSTRNET::TcpAddress address;
  if (url.size() > kMaxUrl) {
    return "has more than " + std::to_string(kMaxUrl) + " characters";
  }
  if (!OSTRNET::ParseTcpUrl(url, address)) {
    return std::string("is not of the form ") + OSTRNET::kTcpUrlForms;
  }
  return urls.insert(url).second ? "" : "is there twice";
}

template <size_t N>
std::string RowText(const char (&row)[N]) {
  return {row, strnlen(row, N)};
}

}  // namespace

DirectoryClient::DirectoryClient(OSTRNET::CConnectorMgr& connector_mgr,
                                 OstrandCommon::Logger* logger, int module_id,
                                 DirectoryOptions options, DirectoryListener& listener)
    : m_connector_mgr(connector_mgr),
      m_logger(logger),
      m_module_id(module_id),
      m_options(std::move(options)),
      m_listener(listener),
      m_parser(std::make_unique<DirFrameParser>()),
      m_pkg(std::make_unique<tagOStrdirCSPkg>()) {
  for (const std::string& url : m_options.urls) {
    CConnector* connector = m_connector_mgr.CreateConnector(
        url.c_str(), m_parser.get(), static_cast<int>(4 * OSTRDIR_MAX_FRAME_LEN), LeaveForPolling,
        nullptr);
    if (connector == nullptr) {
      DIRECTORY_LOG(OSTRAND_LOG_LEVEL_ERROR, "no connector for directory %s: %s", url.c_str(),
                    m_connector_mgr.GetLastErrDesc());
    }
    m_connectors.push_back(connector);
  }
}

DirectoryClient::~DirectoryClient() {
  for (CConnector* connector : m_connectors) {
    if (connector != nullptr) {
      m_connector_mgr.RemoveConnector(connector);
    }
  }
}

void DirectoryClient::Update(int64_t monotonic_now_ms) {
  if (m_connectors.empty() || m_options.zones.empty()) {
    return;
  }
  switch (m_state) {
    case State::kResting:
      if (monotonic_now_ms >= m_due_ms) {
        StartRound(monotonic_now_ms);
      }
      break;
    case State::kConnecting: WaitForConnection(monotonic_now_ms); break;
    case State::kAsking: TakeAnswer(monotonic_now_ms); break;
  }
}

void DirectoryClient::StartRound(int64_t now_ms) {
  CConnector* connector = m_connectors[m_current];
  m_zone_index = 0;
  m_all_usable = true;
  m_due_ms = now_ms + m_options.answer_timeout_ms;
  if (connector == nullptr) {
    Fail(now_ms, "the address cannot be used");
  } else if (connector->GetStatus() == CConnector::STATUS_CONNECTED) {
    Ask(now_ms);
  } else if (connector->Connect() != 0) {
    Fail(now_ms, connector->GetLastErrDesc());
  } else {
    m_state = State::kConnecting;
  }
}

void DirectoryClient::WaitForConnection(int64_t now_ms) {
  CConnector* connector = m_connectors[m_current];
  const int status = connector->GetStatus();
  if (status == CConnector::STATUS_CONNECTED) {
    Ask(now_ms);
  } else if (status == CConnector::STATUS_DISCONNECTED) {
    Fail(now_ms, connector->GetLastErrDesc());
  } else if (now_ms >= m_due_ms) {
    Fail(now_ms, "it does not accept the connection in time");
  }
}

void DirectoryClient::Ask(int64_t now_ms) {
  CConnector* connector = m_connectors[m_current];
  std::memset(m_pkg.get(), 0, sizeof(*m_pkg));
  m_pkg->stHead.ullAppID = static_cast<uint64_t>(m_options.app_id);
  tagReqGetTablesAndAccess& request = m_pkg->stBody.stReqGetTablesAndAccess;
  request.iAppID = static_cast<int32_t>(m_options.app_id);
  request.iZoneID = m_options.zones[m_zone_index];
  std::snprintf(request.szApiVersion, sizeof(request.szApiVersion), "%s",
                m_options.api_version.c_str());
  char frame[OSTRDIR_HEAD_LEN + sizeof(tagReqGetTablesAndAccess)];
  size_t len = sizeof(frame);
  if (PackDirRequest(frame, len, *m_pkg) != 0 ||
      connector->SendToQ(frame, static_cast<unsigned int>(len), nullptr) <= 0) {
    Fail(now_ms, connector->GetLastErrDesc());
    return;
  }
  m_state = State::kAsking;
  m_due_ms = now_ms + m_options.answer_timeout_ms;
}

void DirectoryClient::TakeAnswer(int64_t now_ms) {
  CConnector* connector = m_connectors[m_current];
  const char* frame = nullptr;
  int size = 0;
  if (connector->PeekPkg(frame, size, nullptr) <= 0) {
    if (connector->GetStatus() != CConnector::STATUS_CONNECTED) {
      Fail(now_ms, connector->GetLastErrDesc());
    } else if (now_ms >= m_due_ms) {
      Fail(now_ms, "it does not answer in time");
    }
    return;
  }
  const int ret = UnpackDirResponse(*m_pkg, frame, static_cast<size_t>(size));
  connector->ConsumePkg();
  if (ret != 0) {
    Fail(now_ms, "its answer cannot be decoded");
    return;
  }
  const int32_t zone_id = m_options.zones[m_zone_index];
  if (CheckAnswer(zone_id)) {
    m_listener.OnDirectoryAnswer(zone_id, *m_pkg);
  } else {
    m_all_usable = false;
  }
  ++m_zone_index;
  if (m_zone_index < m_options.zones.size()) {
    Ask(now_ms);
    return;
  }
  if (!m_all_usable) {
    Fail(now_ms, "its answer cannot be used");
    return;
  }
  m_backoff_ms = 0;
  ++m_answered_rounds;
  m_state = State::kResting;
  m_due_ms = now_ms + m_options.refresh_ms;
}

bool DirectoryClient::CheckAnswer(int32_t zone_id) {
  const tagResGetTablesAndAccess& answer = m_pkg->stBody.stResGetTablesAndAccess;
  const auto app_id = static_cast<int32_t>(m_options.app_id);
  const int32_t result = answer.iResult;
  const int32_t answer_app_id = answer.iAppID;
  const int32_t answer_zone_id = answer.iZoneID;
  const int32_t count = answer.iAccessCount;
  if (result != 0 || answer_app_id != app_id || answer_zone_id != zone_id || count <= 0) {
    DIRECTORY_LOG(OSTRAND_LOG_LEVEL_ERROR,
                  "answer refused: result %d, application %d (ours %d), zone %d (asked for %d), "
                  "proxies %d",
                  result, answer_app_id, app_id, answer_zone_id, zone_id, count);
    return false;
  }
  KeepGoodRows(zone_id);
  if (answer.iAccessCount == 0) {
    DIRECTORY_LOG(OSTRAND_LOG_LEVEL_ERROR, "answer refused: zone %d has no usable proxy", zone_id);
    return false;
  }
  return true;
}

// One bad row would end the router's reading of the rows behind it.
void DirectoryClient::KeepGoodRows(int32_t zone_id) {
  tagResGetTablesAndAccess& answer = m_pkg->stBody.stResGetTablesAndAccess;
  const int32_t sent_count = answer.iAccessCount;
  std::vector<std::string> faults;
  if (sent_count > MAX_SERVER_COUNT) {
    faults.push_back(std::to_string(sent_count) + " proxies, only the first " +
                     std::to_string(MAX_SERVER_COUNT) + " are used");
  }
  std::set<std::string> urls;
  int kept = 0;
  for (int i = 0; i < std::min<int>(sent_count, MAX_SERVER_COUNT); ++i) {
    const std::string url = RowText(answer.aszAccessUrlList[i]);
    const std::string fault = FaultOfRow(url, urls);
    if (!fault.empty()) {
      std::string line = "proxy row " + std::to_string(i);
      line.append(" left out: \"").append(url).append("\" ").append(fault);
      faults.push_back(std::move(line));
      continue;
    }
    if (kept != i) {
      std::memcpy(answer.aszAccessUrlList[kept], answer.aszAccessUrlList[i],
                  sizeof(answer.aszAccessUrlList[i]));
      std::memcpy(answer.aszAccessIdList[kept], answer.aszAccessIdList[i],
                  sizeof(answer.aszAccessIdList[i]));
    }
    ++kept;
  }
  answer.iAccessCount = kept;
  TellOnce(zone_id, faults);
}

// A directory that has a bad row has it in every answer: what is wrong is told when it changes.
void DirectoryClient::TellOnce(int32_t zone_id, const std::vector<std::string>& lines) {
  std::vector<std::string>& told = m_told[zone_id];
  if (lines == told) {
    return;
  }
  for (const std::string& line : lines) {
    DIRECTORY_LOG(OSTRAND_LOG_LEVEL_ERROR, "%s", line.c_str());
  }
  told = lines;
}

// Leaves this directory and rests before the next.
void DirectoryClient::Fail(int64_t now_ms, const char* reason) {
  ++m_failures;
  m_listener.OnDirectoryFailure(m_options.urls[m_current].c_str(), reason);
  const int64_t rest_ms = NextBackoff();
  DIRECTORY_LOG(OSTRAND_LOG_LEVEL_WARN,
                "directory %s: %s; the route stays as it is, next attempt in %lld ms",
                m_options.urls[m_current].c_str(), reason, static_cast<long long>(rest_ms));
  if (m_connectors[m_current] != nullptr) {
    m_connectors[m_current]->Disconnect(0);
    const char* frame = nullptr;
    int size = 0;
    while (m_connectors[m_current]->PeekPkg(frame, size, nullptr) > 0) {  // answers too late
      m_connectors[m_current]->ConsumePkg();
    }
  }
  m_current = (m_current + 1) % m_connectors.size();
  m_state = State::kResting;
  m_due_ms = now_ms + rest_ms;
}

int64_t DirectoryClient::NextBackoff() {
  m_backoff_ms = m_backoff_ms == 0 ? m_options.first_backoff_ms
                                   : std::min(2 * m_backoff_ms, m_options.longest_backoff_ms);
  const int64_t quarter = m_backoff_ms / 4;
  return m_backoff_ms - quarter +
         static_cast<int64_t>(m_options.random() % static_cast<uint64_t>(2 * quarter + 1));
}

}  // namespace OstrandService
