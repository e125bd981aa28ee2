#include "unit/fleet/fleet_test_kit.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "common/clock.h"
#include "protocol/byte_order.h"
#include "service_api/ostrand_service_response.h"

namespace OstrandFleet {

using namespace ostrand_protocol_cs;   // NOLINT: commands and records
using namespace ostrand_protocol_dir;  // NOLINT: the directory's records

namespace {

FieldList FieldsOf(FieldReader reader) {
  FieldList fields;
  for (FieldView field; reader.Next(field);) {
    fields.push_back({std::string(field.name), std::string(field.value)});
  }
  return fields;
}

// Whether the descriptor is readable before the deadline.
bool WaitReadable(int fd, int64_t deadline_ms) {
  pollfd entry{fd, POLLIN, 0};
  int ret = 0;
  do {
    const int64_t left_ms = deadline_ms - OstrandCommon::GetMonotonicMilliseconds();
    ret = poll(&entry, 1, static_cast<int>(std::max<int64_t>(left_ms, 0)));
  } while (ret < 0 && errno == EINTR);
  return ret > 0;
}

template <size_t N>
std::string RowText(const char (&row)[N]) {
  return {row, strnlen(row, N)};
}

}  // namespace

std::vector<TableSetup> TestTables() {
  TableSetup user;
  user.zone = kZone;
  user.schema.name = "user";
  user.schema.version = 5;
  user.schema.customattr2 = "DataProtocolType=VEX";
  user.schema.key_fields = {{"uid", VexFieldType::kUint32, 4, 1}};
  user.schema.value_fields = {{"name", VexFieldType::kString, 32, 1},
                              {"level", VexFieldType::kInt32, 4, 2}};
  TableSetup log = user;
  log.schema.name = "log";
  log.schema.key_fields.push_back({"day", VexFieldType::kString, 8, 1});
  log.schema.value_fields = {{"text", VexFieldType::kString, 64, 1}};
  TableSetup mail = user;
  mail.kind = TableKind::kLists;
  mail.schema.name = "mail";
  mail.schema.value_fields = log.schema.value_fields;
  mail.schema.value_fields.push_back({"read", VexFieldType::kInt8, 1, 1});
  return {user, log, mail};
}

FleetOptions TestOptions(size_t proxies) {
  FleetOptions options;
  options.proxies = proxies;
  options.tables = TestTables();
  return options;
}

std::string Uint32(uint32_t value) {
  std::string bytes(4, '\0');
  StoreBigEndian(&bytes[0], value);
  return bytes;
}

FieldList Uid(uint32_t uid) { return {{"uid", Uint32(uid)}}; }

Request::Request(uint32_t cmd, std::string_view table) : m_pkg(NewOStrandPkg()) {
  OStrandPkgHead& head = m_pkg->stHead;
  head.dwCmd = cmd;
  head.ullAsynID = 1000;
  head.iSeq = 77;
  head.stRouterInfo.iAppID = kAppId;
  head.stRouterInfo.iZoneID = kZone;
  const size_t len = std::min(table.size(), sizeof(head.stRouterInfo.szTableName) - 1);
  std::memcpy(head.stRouterInfo.szTableName, table.data(), len);
  head.stRouterInfo.szTableName[len] = '\0';
  head.stRouterInfo.dwTableNameLen = len == 0 ? 0 : static_cast<uint32_t>(len + 1);
  m_pkg->stBody.construct(cmd);
}

Request& Request::Key(const FieldList& key, int32_t version) {
  OStrandKeySet& keys = m_pkg->stHead.stKeyInfo;
  keys.iVersion = version;
  keys.dwFieldNum = static_cast<uint32_t>(key.size());
  for (size_t i = 0; i < key.size(); ++i) {
    OStrandKeyField& field = keys.astFields[i];
    std::snprintf(field.szFieldName, sizeof(field.szFieldName), "%s", key[i].name.c_str());
    field.dwFieldLen = static_cast<uint32_t>(key[i].value.size());
    std::memcpy(field.szFieldBuff, key[i].value.data(), key[i].value.size());
  }
  return *this;
}

Request& Request::Record(const RecordMark& mark, const FieldList& key, const FieldList& values) {
  RecordWriter writer(m_pkg->stBody.stRecords);
  EXPECT_EQ(writer.BeginRecord(mark), 0);
  for (const Field& field : key) {
    EXPECT_EQ(writer.AddKeyField(field.name, field.value), 0);
  }
  for (const Field& field : values) {
    EXPECT_EQ(writer.AddValueField(field.name, field.value), 0);
  }
  return *this;
}

Request& Request::UserBuffer(std::string_view bytes) {
  std::memcpy(m_pkg->stHead.szUserBuff, bytes.data(), bytes.size());
  m_pkg->stHead.dwUserBuffLen = static_cast<uint32_t>(bytes.size());
  return *this;
}

Request& Request::Zone(int32_t zone) {
  m_pkg->stHead.stRouterInfo.iZoneID = zone;
  return *this;
}

Request& Request::AsynId(uint64_t asyn_id) {
  m_pkg->stHead.ullAsynID = asyn_id;
  return *this;
}

std::string Request::Frame() const {
  const std::unique_ptr<char[]> buffer(new char[OSTRAND_MAX_FRAME_LEN]);
  size_t len = OSTRAND_MAX_FRAME_LEN;
  EXPECT_EQ(PackWholeCsPkgMaybeCompress(buffer.get(), len, nullptr, 0, *m_pkg,
                                        m_pkg->stHead.wVersion, nullptr),
            0);
  return {buffer.get(), len};
}

Request SignUpRequest(std::string_view signature) {
  Request request(OSTRAND_API_APP_SIGNUP_REQ, "");
  std::snprintf(request.pkg().stBody.stAppSignupReq.szSignature, 1024, "%.*s",
                static_cast<int>(signature.size()), signature.data());
  return request;
}

Request HeartbeatRequest(int64_t api_time_us) {
  Request request(OSTRAND_API_HEART_BEAT_REQ, "");
  request.pkg().stBody.stHeartBeatReq.llApiTimeUs = api_time_us;
  return request;
}

std::vector<AnswerRecord> RecordsOf(const OStrandRecords& records) {
  std::vector<AnswerRecord> list;
  RecordReader reader(records);
  for (RecordView record; reader.Next(record);) {
    list.push_back({record.mark.result, record.mark.index, record.mark.version,
                    FieldsOf(record.keys), FieldsOf(record.values)});
  }
  return list;
}

TestClient::TestClient(const std::string& url) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port =
      htons(static_cast<uint16_t>(std::strtoul(url.c_str() + url.rfind(':') + 1, nullptr, 10)));
  m_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    Close();
  }
}

TestClient::~TestClient() { Close(); }

std::unique_ptr<TestClient> TestClient::SignedUp(const std::string& url) {
  auto client = std::make_unique<TestClient>(url);
  EXPECT_EQ(client->CallForResult(SignUpRequest()), 0);
  return client;
}

bool TestClient::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t len = send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (len <= 0) {
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(len));
  }
  return true;
}

std::string TestClient::Receive(size_t len, int64_t timeout_ms) {
  const int64_t deadline_ms = OstrandCommon::GetMonotonicMilliseconds() + timeout_ms;
  std::string bytes(len, '\0');
  size_t received = 0;
  while (received < len && WaitReadable(m_fd, deadline_ms)) {
    const ssize_t got = recv(m_fd, &bytes[received], len - received, 0);
    if (got <= 0) {
      break;
    }
    received += static_cast<size_t>(got);
  }
  bytes.resize(received);
  return bytes;
}

std::string TestClient::ReceiveFrame(int64_t timeout_ms) {
  std::string frame = Receive(12, timeout_ms);
  const int len = OstrandService::OstrandServiceResponse::GetPkgLen(frame.data(), frame.size());
  if (len <= 0) {
    return std::string();
  }
  frame += Receive(static_cast<size_t>(len) - frame.size(), timeout_ms);
  return frame.size() == static_cast<size_t>(len) ? frame : std::string();
}

const OStrandPkg* TestClient::ReceivePkg(int64_t timeout_ms) {
  const std::string frame = ReceiveFrame(timeout_ms);
  if (m_pkg == nullptr) {
    m_pkg = NewOStrandPkg();
  }
  const int ret = UnpackWholeCsPkgMaybeDecompress(*m_pkg, nullptr, 0, frame.data(), frame.size(),
                                                  nullptr, nullptr, 0);
  return ret == 0 ? m_pkg.get() : nullptr;
}

const OStrandPkg* TestClient::Call(const Request& request) {
  return Send(request.Frame()) ? ReceivePkg() : nullptr;
}

int32_t TestClient::CallForResult(const Request& request) {
  const OStrandPkg* const answer = Call(request);
  return answer == nullptr ? INT32_MIN : answer->stHead.iResult;
}

bool TestClient::IsClosedByPeer(int64_t timeout_ms) {
  const int64_t deadline_ms = OstrandCommon::GetMonotonicMilliseconds() + timeout_ms;
  char buffer[4096];
  while (WaitReadable(m_fd, deadline_ms)) {
    if (recv(m_fd, buffer, sizeof(buffer), 0) <= 0) {
      return true;
    }
  }
  return false;
}

bool TestClient::HasReceivedAll() {
  constexpr uint64_t kQuestion = 0x5157455354494F4E;
  const OStrandPkg* const answer =
      Call(Request(OSTRAND_API_METADATA_GET_REQ, "nobodys").AsynId(kQuestion));
  return answer != nullptr && answer->stHead.ullAsynID == kQuestion;
}

bool TestClient::GetsNothing() {
  return !WaitReadable(m_fd, OstrandCommon::GetMonotonicMilliseconds() + kNothingMs);
}

void TestClient::Close() {
  if (m_fd >= 0) {
    close(m_fd);
    m_fd = -1;
  }
}

std::string DirectoryRequest(int32_t zone) {
  const auto pkg = std::make_unique<tagOStrdirCSPkg>();
  pkg->stBody.stReqGetTablesAndAccess.iAppID = kAppId;
  pkg->stBody.stReqGetTablesAndAccess.iZoneID = zone;
  std::string frame(OSTRDIR_HEAD_LEN + sizeof(tagReqGetTablesAndAccess), '\0');
  size_t len = frame.size();
  EXPECT_EQ(PackDirRequest(&frame[0], len, *pkg), 0);
  return frame;
}

bool AskDirectory(TestClient& client, int32_t zone, tagOStrdirCSPkg& answer) {
  if (!client.Send(DirectoryRequest(zone))) {
    return false;
  }
  const std::string frame = client.Receive(OSTRDIR_HEAD_LEN + sizeof(tagResGetTablesAndAccess));
  return UnpackDirResponse(answer, frame.data(), frame.size()) == 0;
}

Route RouteOf(const tagOStrdirCSPkg& answer) {
  const tagResGetTablesAndAccess& body = answer.stBody.stResGetTablesAndAccess;
  Route route;
  for (int i = 0; i < std::min<int>(body.iAccessCount, MAX_SERVER_COUNT); ++i) {
    route.push_back({RowText(body.aszAccessUrlList[i]), RowText(body.aszAccessIdList[i])});
  }
  return route;
}

}  // namespace OstrandFleet
