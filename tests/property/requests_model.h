// Who must get what: requests in flight and the answers on their way, the plain, slow version.
//
// It is told of each request and each poll, and says what must become of it. It writes and reads
// routing contexts by itself. What it cannot know it is told: whether a proxy was found and what
// packing and the connector answered.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace OstrandFakes {

class RequestsModel {
 public:
  struct Request {
    uint64_t async_id = 0;  // counts from 1, another one for each sending
    int32_t seq = 0;
    uint32_t cmd = 0;
    int32_t timeout_ms = 0;
    std::string user;
  };
  struct Circumstances {
    int64_t now_ms = 0;
    bool signed_up = true;      // a sign-up answer has come
    bool has_route = true;      // a proxy is usable
    bool local_buffer = false;  // the service's switch
    int pack_result = 0;
    int send_result = 1;  // positive: queued
  };
  struct Sending {
    int32_t result = 0;
    bool reaches_connector = false;
    std::string user_buff;  // of the package
  };
  // A package from a proxy.
  struct Answer {
    uint64_t async_id = 0;
    int32_t seq = 0;
    uint32_t cmd = 0;
    int32_t result = 0;
    uint32_t number = 0;
    bool more = false;
    bool decodes = true;
    std::string user_buff;
    std::string value;  // of its only record
  };
  // What the application gets.
  struct Delivery {
    uint64_t async_id = 0;
    int32_t seq = 0;
    uint32_t cmd = 0;
    int32_t result = 0;
    bool more = false;
    std::string user;
    std::string value;

    bool operator==(const Delivery& other) const {
      return async_id == other.async_id && seq == other.seq && cmd == other.cmd &&
             result == other.result && more == other.more && user == other.user &&
             value == other.value;
    }
  };
  // What a proxy has sent, in the order in which proxies are asked.
  struct Lane {
    bool asked = true;            // signed up and connected
    std::deque<int> peek_errors;  // before any package
    std::deque<Answer> answers;
  };
  // What became of a request.
  struct Fate {
    bool registered = false;
    int answered = 0;
    int timed_out = 0;
  };

  enum Case : size_t {
    kBeforeSignUp,
    kNoProxy,
    kTooLongForContext,
    kSentWithoutRecord,     // the table is full
    kRefusedWithoutRecord,  // likewise
    kFailedAfterRegistration,
    kTimedOut,
    kAnswered,
    kAnsweredWithKeptBytes,
    kMoreToCome,
    kWrongNumber,
    kNoContext,
    kDamagedContext,
    kNoRecordDelivered,  // late, twice or forged
    kNoRecordRefused,    // likewise
    kUndecodable,
    kHeadDropped,
    kCases
  };

  RequestsModel(int32_t first_id, size_t max_in_flight, int16_t table_subscript)
      : m_next_id(first_id), m_max_in_flight(max_in_flight), m_subscript(table_subscript) {}

  Sending Send(const Request& request, const Circumstances& circumstances);

  // One poll. False: nothing to deliver. seen: the async id of what was delivered, which decides
  // between requests that expired in the same millisecond.
  bool Receive(int64_t now_ms, bool local_buffer, std::vector<Lane>& lanes, uint64_t seen,
               Delivery& delivery);

  bool IsInFlight(int32_t id) const { return m_live.count(id) > 0; }
  size_t in_flight() const { return m_live.size(); }
  const std::vector<Fate>& fates() const { return m_fates; }  // by async id; [0] is nobody's
  size_t Seen(Case which) const { return m_seen[which]; }

  static bool IsMultiPackage(uint32_t request_cmd) {
    return request_cmd == 25 || request_cmd == 11;
  }
  // The 14 bytes.
  static std::string ContextOf(int32_t id, int16_t table_subscript);

 private:
  struct Record {
    Request request;
    int64_t deadline_ms = 0;
    int32_t next_number = 0;
    bool keeps_user = false;
  };

  int32_t Register(const Request& request, int64_t now_ms, bool keeps_user);
  void SetDeadline(int32_t id, Record& record, int64_t deadline_ms);
  void Free(int32_t id);
  bool Expire(int64_t now_ms, uint64_t seen, Delivery& delivery);
  bool Accept(const Answer& answer, int64_t now_ms, bool local_buffer, Delivery& delivery);
  void Match(int32_t id, const Answer& answer, int64_t now_ms, Delivery& delivery);

  int32_t m_next_id;
  const size_t m_max_in_flight;
  const int16_t m_subscript;
  std::map<int32_t, Record> m_live;
  std::set<std::pair<int64_t, int32_t>> m_deadlines;
  std::vector<Fate> m_fates;
  std::array<size_t, kCases> m_seen{};
};

}  // namespace OstrandFakes
