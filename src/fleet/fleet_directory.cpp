#include "fleet/fleet_directory.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "protocol/ostrand_dir_codec.h"

namespace OstrandFleet {

using namespace ostrand_protocol_dir;  // NOLINT: the directory's records

namespace {

constexpr FaultyConnection::Limits kLimits = {2 * OSTRDIR_MAX_FRAME_LEN, 4 * OSTRDIR_MAX_FRAME_LEN};
constexpr size_t kMaxSessions = 4096;  // further connections are closed at once

#define OSTRAND_FLEET_NAME(enumerator, name, meaning) name,
constexpr const char* kFaultNames[] = {OSTRAND_FLEET_DIRECTORY_FAULTS(OSTRAND_FLEET_NAME)};
#undef OSTRAND_FLEET_NAME

// What a fault does to the way of the answers.
ProxyFaults FaultsOfAnswers(DirectoryFault fault, int64_t value) {
  ProxyFaults faults;
  faults.scope = AnswerScope::kAll;
  faults.delay_ms = fault == DirectoryFault::kSlow ? value : 0;
  faults.drop_every = fault == DirectoryFault::kSilent ? 1 : 0;
  if (fault == DirectoryFault::kGarbage) {
    faults.answer = AnswerFault::kGarbage;
  } else if (fault == DirectoryFault::kCutFrame) {
    faults.answer = AnswerFault::kCutFrame;
  }
  return faults;
}

// A row of the wire, cut to its size: a text that fills it has no NUL.
template <size_t N>
void SetRow(char (&row)[N], const std::string& text) {
  std::memset(row, 0, N);
  std::memcpy(row, text.data(), std::min(text.size(), N));
}

}  // namespace

bool ParseDirectoryFault(std::string_view name, DirectoryFault& fault) {
  const auto found = std::find(std::begin(kFaultNames), std::end(kFaultNames), name);
  if (found == std::end(kFaultNames)) {
    return false;
  }
  fault = static_cast<DirectoryFault>(found - std::begin(kFaultNames));
  return true;
}

// A client's connection to the directory.
class DirectorySession final : public LoopObject, private FaultyConnection::Listener {
 public:
  explicit DirectorySession(FleetDirectory& directory)
      : m_directory(directory),
        m_connection(directory.m_loop, *this, kLimits),
        m_gate(directory.m_loop, m_connection, directory.m_misbehaviour,
               directory.m_gate_counters) {}

  FaultyConnection& connection() { return m_connection; }

 private:
  int64_t OnInput(const char* data, size_t len) override {
    size_t used = 0;
    while (m_connection.IsOpen() && m_connection.HasRoom() && m_gate.HasRoom()) {
      const int frame_len = DirFrameLength(data + used, len - used);
      if (frame_len == 0 || (frame_len > 0 && static_cast<size_t>(frame_len) > len - used)) {
        break;
      }
      const std::string answer =
          frame_len < 0 ? std::string()
                        : m_directory.Answer({data + used, static_cast<size_t>(frame_len)});
      if (answer.empty()) {
        ++m_directory.m_counters.malformed_frames;
        return kClose;
      }
      m_gate.Pass(AnswerScope::kAll, answer);
      used += static_cast<size_t>(frame_len);
    }
    return static_cast<int64_t>(used);
  }

  void OnClosed() override {
    m_gate.Shut();
    m_directory.OnSessionClosed(*this);
  }

  FleetDirectory& m_directory;
  FaultyConnection m_connection;
  AnswerGate m_gate;
};

FleetDirectory::FleetDirectory(FleetLoop& loop, const TableStore& store, uint32_t random_seed)
    : m_loop(loop),
      m_store(store),
      m_listener(loop, [this](int fd) { OnAccept(fd); }),
      m_pkg(std::make_unique<tagOStrdirCSPkg>()) {
  m_misbehaviour.random.seed(random_seed);
}

FleetDirectory::~FleetDirectory() = default;

int FleetDirectory::Start(uint16_t port) {
  m_started = true;
  const int ret = m_listener.Listen(port);
  if (m_fault == DirectoryFault::kAbsent) {
    m_listener.Close();  // absent from the start, yet with an address
  }
  return ret;
}

void FleetDirectory::Stop() {
  m_started = false;
  m_listener.Close();
  std::vector<DirectorySession*> sessions;
  for (const auto& session : m_sessions) {
    sessions.push_back(session.first);
  }
  for (DirectorySession* session : sessions) {
    session->connection().Close();
  }
}

std::string FleetDirectory::Url() const {
  return m_listener.port() == 0 ? std::string() : LoopbackUrl(m_listener.port());
}

void FleetDirectory::SetRoute(int32_t zone, Route route) {
  if (route.empty()) {
    m_routes.erase(zone);
  } else {
    m_routes[zone] = std::move(route);
  }
}

int FleetDirectory::SetFault(DirectoryFault fault, int64_t value) {
  m_fault = fault;
  m_fault_value = value;
  m_misbehaviour.faults = FaultsOfAnswers(fault, value);
  if (!m_started) {
    return 0;
  }
  if (fault == DirectoryFault::kAbsent) {
    Stop();
    m_started = true;
    return 0;
  }
  return Start(0);
}

void FleetDirectory::OnAccept(int fd) {
  ++m_counters.connections_accepted;
  auto session = std::make_unique<DirectorySession>(*this);
  DirectorySession* const key = session.get();
  m_sessions.emplace(key, std::move(session));
  key->connection().Start(fd);
  if (m_sessions.size() > kMaxSessions) {
    key->connection().Close();
  }
}

void FleetDirectory::OnSessionClosed(DirectorySession& session) {
  const auto place = m_sessions.find(&session);
  m_loop.DeleteLater(std::move(place->second));
  m_sessions.erase(place);
}

std::string FleetDirectory::Answer(std::string_view frame) {
  if (UnpackDirRequest(*m_pkg, frame.data(), frame.size()) != 0) {
    return std::string();
  }
  ++m_counters.requests;
  const tagReqGetTablesAndAccess request = m_pkg->stBody.stReqGetTablesAndAccess;
  FillAnswer(request.iAppID, request.iZoneID);
  if (m_edit) {
    m_edit(m_pkg->stBody.stResGetTablesAndAccess);
  }
  std::string answer(OSTRDIR_MAX_FRAME_LEN, '\0');
  size_t len = answer.size();
  if (PackDirResponse(&answer[0], len, *m_pkg) != 0) {
    return std::string();
  }
  answer.resize(len);
  ++m_counters.answers;
  return answer;
}

void FleetDirectory::FillAnswer(int32_t app_id, int32_t zone) {
  tagResGetTablesAndAccess& answer = m_pkg->stBody.stResGetTablesAndAccess;
  std::memset(&answer, 0, sizeof(answer));
  answer.iAppID = app_id;
  answer.iZoneID = m_fault == DirectoryFault::kWrongZone ? (zone < INT32_MAX ? zone + 1 : 0) : zone;
  answer.iSetID = 1;
  SetRow(answer.szSetName, "fleet");
  SetRow(answer.szAppName, "app_" + std::to_string(app_id));
  SetRow(answer.szZoneName, "zone_" + std::to_string(zone));
  answer.stConfData = m_conf;
  FillTables(zone);
  const auto own_route = m_routes.find(zone);
  const Route& route = own_route != m_routes.end() ? own_route->second : m_common_route;
  FillRoute(route);
  if (route.empty()) {
    answer.iResult = kNoRoute;
  }
  if (m_fault == DirectoryFault::kWrongResult) {
    answer.iResult = m_fault_value == 0 ? -1 : static_cast<int32_t>(m_fault_value);
  }
}

void FleetDirectory::FillTables(int32_t zone) {
  tagResGetTablesAndAccess& answer = m_pkg->stBody.stResGetTablesAndAccess;
  int row = 0;
  for (const std::string& name : m_store.TableNames(zone)) {
    if (row < MAX_TABLE_COUNT) {
      SetRow(answer.aszTableNameList[row++], name);
    }
  }
  answer.iTableCount = row;
}

// A route with more proxies than rows says how many it has all the same.
void FleetDirectory::FillRoute(const Route& route) {
  tagResGetTablesAndAccess& answer = m_pkg->stBody.stResGetTablesAndAccess;
  const size_t rows = std::min<size_t>(route.size(), MAX_SERVER_COUNT);
  for (size_t i = 0; i < rows; ++i) {
    SetRow(answer.aszAccessUrlList[i], route[i].url);
    SetRow(answer.aszAccessIdList[i], route[i].id);
  }
  answer.iAccessCount = static_cast<int32_t>(route.size());
}

}  // namespace OstrandFleet
