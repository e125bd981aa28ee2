// What the fleet's tests share: a client of plain blocking sockets, requests in one line, records
// of answers as lists.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fleet/fleet.h"
#include "protocol/codec.h"
#include "protocol/ostrand_dir_codec.h"

namespace OstrandFleet {

// How long tests wait for what must come: long enough for a machine under load.
constexpr int64_t kPatienceMs = 20000;
// How long they wait to see that nothing comes.
constexpr int64_t kNothingMs = 50;

constexpr int32_t kZone = 3;
constexpr int32_t kAppId = 7;

// Tables of the zone: "user" (key uid uint32; name string 32, level int32), "log" (key uid, day
// string 8; text string 64), "mail" of lists (key uid; text string 64).
std::vector<TableSetup> TestTables();
// A fleet with these tables.
FleetOptions TestOptions(size_t proxies = 1);

// Four bytes, big-endian: a value of a 32-bit field.
std::string Uint32(uint32_t value);
// A key of "user" and "mail".
FieldList Uid(uint32_t uid);

// A request of a table, built step by step.
class Request {
 public:
  explicit Request(uint32_t cmd, std::string_view table = "user");

  Request& Key(const FieldList& key, int32_t version = -1);
  // A record: with the values alone, or with all it may have.
  Request& Record(const FieldList& values) { return Record({}, {}, values); }
  Request& Record(const ostrand_protocol_cs::RecordMark& mark, const FieldList& key,
                  const FieldList& values);
  Request& UserBuffer(std::string_view bytes);
  Request& Zone(int32_t zone);
  Request& AsynId(uint64_t asyn_id);

  ostrand_protocol_cs::OStrandPkg& pkg() { return *m_pkg; }
  std::string Frame() const;

 private:
  std::unique_ptr<ostrand_protocol_cs::OStrandPkg> m_pkg;
};

// A sign-up with a signature.
Request SignUpRequest(std::string_view signature = "signature");
Request HeartbeatRequest(int64_t api_time_us);

// A record of an answer.
struct AnswerRecord {
  int32_t result;
  int32_t index;
  int32_t version;
  FieldList key;
  FieldList values;
};
std::vector<AnswerRecord> RecordsOf(const ostrand_protocol_cs::OStrandRecords& records);

class TestClient {
 public:
  // Connects, without blocking for ever.
  explicit TestClient(const std::string& url);
  ~TestClient();
  TestClient(const TestClient&) = delete;
  TestClient& operator=(const TestClient&) = delete;

  // Connects and signs up.
  static std::unique_ptr<TestClient> SignedUp(const std::string& url);

  bool is_connected() const { return m_fd >= 0; }
  int fd() const { return m_fd; }

  // False when the connection is gone.
  bool Send(std::string_view bytes);
  // So many bytes; fewer when the connection ends or the time is over.
  std::string Receive(size_t len, int64_t timeout_ms = kPatienceMs);
  // A whole frame of a proxy; "" when none comes.
  std::string ReceiveFrame(int64_t timeout_ms = kPatienceMs);
  // The next answer, unpacked: valid until the next; null when none comes or it does not decode.
  const ostrand_protocol_cs::OStrandPkg* ReceivePkg(int64_t timeout_ms = kPatienceMs);
  // Sends, and receives one answer.
  const ostrand_protocol_cs::OStrandPkg* Call(const Request& request);
  // The result of the answer; INT32_MIN when none comes.
  int32_t CallForResult(const Request& request);

  // True when the proxy closes the connection; what comes before is passed over.
  bool IsClosedByPeer(int64_t timeout_ms = kPatienceMs);
  // True when nothing was sent that was not received yet: the next that comes is the answer to a
  // question that is asked now.
  bool HasReceivedAll();
  // For a proxy that does not answer: true when no byte comes within kNothingMs.
  bool GetsNothing();

  void Close();

 private:
  int m_fd = -1;
  std::unique_ptr<ostrand_protocol_cs::OStrandPkg> m_pkg;  // over 10 MiB: made when it is needed
};

// Asks a directory for the proxies of a zone. False when no whole answer comes.
bool AskDirectory(TestClient& client, int32_t zone, ostrand_protocol_dir::tagOStrdirCSPkg& answer);
std::string DirectoryRequest(int32_t zone);
// The rows of an answer.
Route RouteOf(const ostrand_protocol_dir::tagOStrdirCSPkg& answer);

}  // namespace OstrandFleet
