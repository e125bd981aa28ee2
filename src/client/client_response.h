// The outcome of a request: an answer, a package of one, or what stands in place of one.
//
//   while (client.Receive(response, 100) == 1) {
//     RecordView record;
//     int64_t level = 0;
//     while (response.NextRecord(record)) {
//       if (record.mark.result == 0 && record.Get("level", level) == 0) { ... }
//     }
//   }
//
// Holds the bytes of the frame as it came and a small head; records, TTL entries and metadata are
// read straight from these bytes, which were checked whole before. One object takes any number of
// outcomes, one after the other; once warm it allocates nothing. It may be moved; a moved-from one
// is as a new one: no command, result 0, nothing in it. Everything handed out (texts, views)
// points into the object's bytes and holds until it gets its next outcome or is destroyed; moving
// keeps it valid.
//
// Ownership: owns its bytes. Threads: one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "client/response_bytes.h"
#include "common/export.h"
#include "protocol/record_buffer.h"

namespace OstrandService {

using ostrand_protocol_cs::FieldReader;
using ostrand_protocol_cs::FieldView;
using ostrand_protocol_cs::RecordMark;
using ostrand_protocol_cs::RecordReader;
using ostrand_protocol_cs::RecordView;

// What an outcome is beside its bytes.
struct ResponseHead {
  uint64_t async_id = 0;
  uint32_t cmd = 0;  // 0: no outcome
  uint32_t sub_cmd = 0;
  int32_t result = 0;
  int32_t sequence = 0;
  int32_t app_id = 0;
  int32_t zone_id = 0;
  int32_t meta_version = -1;
  bool has_more = false;
  // Where in the bytes. A length of 0: there is none.
  uint32_t table_at = 0;
  uint32_t table_len = 0;  // with the NUL
  uint32_t user_at = 0;
  uint32_t user_len = 0;
  uint32_t keys_at = 0;  // the head's key set; 0: none
  uint32_t body_at = 0;
  uint32_t body_len = 0;
};

// An entry of the answer to a TTL command.
struct RecordTTL {
  int32_t result = 0;
  int64_t ttl_ms = 0;  // negative: for ever
};

// A table's schema as the server describes it.
struct TableMetadata {
  uint32_t table_type = 0;
  int32_t version = 0;
  int32_t idl_type = 0;
  std::string_view image;  // of the schema library; empty for a table without schema
};

// What the runtime says in place of an answer. Views are copied.
struct OutcomeHead {
  int32_t result = 0;
  uint32_t cmd = 0;  // the answer's
  uint64_t async_id = 0;
  int32_t sequence = 0;
  int32_t app_id = 0;
  int32_t zone_id = 0;
  std::string_view table;
  std::string_view user_bytes;
};

class OSTRAND_API ClientResponse {
 public:
  // The result of what stands in place of an answer that did not come in time.
  static constexpr int32_t kResultTimeOut = -20499;  // 0xFFFFAFED

  ClientResponse() = default;
  ClientResponse(const ClientResponse&) = delete;
  ClientResponse& operator=(const ClientResponse&) = delete;
  ClientResponse(ClientResponse&& other) noexcept;
  ClientResponse& operator=(ClientResponse&& other) noexcept;
  ~ClientResponse() = default;

  // 0, or why the request was not carried out.
  int32_t GetResult() const { return m_head.result; }
  // That of the request, plus 1.
  uint32_t GetCmd() const { return m_head.cmd; }
  // Of an answer in several packages: this one's number, from 0.
  uint32_t GetSubCmd() const { return m_head.sub_cmd; }
  uint64_t GetAsynID() const { return m_head.async_id; }
  int32_t GetSequence() const { return m_head.sequence; }
  int32_t GetAppId() const { return m_head.app_id; }
  int32_t GetZoneId() const { return m_head.zone_id; }
  // The server's schema version of the table; -1 unknown.
  int32_t GetMetaVersion() const { return m_head.meta_version; }
  // Null when it belongs to no table. len (may be null): without the NUL.
  const char* GetTableName(size_t* len = nullptr) const;
  // The user's bytes that the request was sent with.
  std::string_view GetUserBuff() const;
  // A field of the key in the head; false when there is none.
  bool GetKey(std::string_view name, FieldView& field) const;

  // 1 when further packages of this answer follow, else 0. Never after an error result: that is the
  // request's last outcome.
  int HaveMoreResPkgs() const { return m_head.has_more && m_head.result == 0 ? 1 : 0; }

  // Of an answer whose packages a client collected (Client::Call and futures): makes this its next
  // package; false when this is the last one. What was handed out of earlier ones stays valid.
  //
  //   do {
  //     while (response.NextRecord(record)) { ... }
  //   } while (response.NextPackage());
  bool NextPackage();

  // Records in this package; 0 for commands without.
  uint32_t GetRecordCount() const;
  // The next record, from the first on; false behind the last. Each record says in its mark what
  // became of it, where it stands and which version it has.
  bool NextRecord(RecordView& record);
  // Makes the first record the next one.
  void RewindRecords() { m_is_reading = false; }
  // A value of the first record; false when there is none.
  bool GetValue(std::string_view name, FieldView& field) const;
  // The same, typed; codes as RecordView::Get.
  template <typename T>
  int Get(std::string_view name, T& value) const {
    RecordView record;
    FirstRecord(record);
    return record.Get(name, value);
  }

  // Entries of the answer to a TTL command, in the order of the request. False: no such entry.
  uint32_t GetTTLCount() const;
  bool GetTTL(uint32_t index, RecordTTL& ttl) const;

  // The answer to GetMetadata; false for other commands and for an answer without it.
  bool GetMetadata(TableMetadata& metadata) const;

  // --- For the client ---

  // Makes this the outcome of a request that has no answer. 0; ROUTER_ERR_ALLOCATION without memory
  // for table and user bytes: the outcome stands, but has none of them.
  int SetOutcome(const OutcomeHead& outcome);
  void SetAsynID(uint64_t async_id) { m_head.async_id = async_id; }
  // May throw std::bad_alloc; then nothing is changed.
  void AppendPackage(ClientResponse&& package);
  // Of this package.
  size_t SizeInMemory() const { return sizeof(*this) + m_bytes.size(); }
  // No outcome; the room stays.
  void Clear() {
    m_head = ResponseHead();
    m_is_reading = false;
    if (!m_packages.empty()) {
      m_packages.clear();
    }
    m_next_package = 0;
  }

 private:
  friend class RouterResponse;

  bool HasRecords(uint32_t& count, const char*& records) const;
  void FirstRecord(RecordView& record) const;
  std::string_view Body() const { return {m_bytes.data() + m_head.body_at, m_head.body_len}; }

  ResponseHead m_head;
  ResponseBytes m_bytes;
  RecordReader m_reader;
  bool m_is_reading = false;  // from the first NextRecord on
  // What NextPackage goes through: from m_next_package on those to come, before it those that were.
  std::vector<ClientResponse> m_packages;
  size_t m_next_package = 0;
};

static_assert(sizeof(ClientResponse) < 400);

}  // namespace OstrandService
