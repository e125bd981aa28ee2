// A request of the application.
//
//   client.Call(Get("user").Key("id", 42), response);
//   client.Call(Insert("user").Key("id", 42).Set("name", "Ada").Set("level", 7), response);
//
//   ClientRequest request;                       // one object for many requests
//   request.Update("user").Key("id", 42).Set("level", 8).Expect(version).SetTimeout(500);
//   client.Send(request);
//   request.BatchGet("user").Record().Key("id", 1).Record().Key("id", 2).Field("name");
//   client.Send(request);
//
// A value: what it holds is a small head and one buffer of bytes in wire form. It may be copied,
// moved, sent again as it is, or begun anew, at once after Send; begun anew it allocates nothing
// once its buffer is large enough. A moved-from request is as a new one.
//
// Commands. Each begins with its table. Single: Get, Insert, Replace, Update, Delete. Many records:
// BatchGet, BatchInsert, BatchReplace, BatchUpdate, BatchDelete, each record begun with Record().
// All records with a part of a key: GetByPartKey, DeleteByPartKey. Lists: ListGetAll, ListGet,
// ListInsert, ListUpdate, ListDelete, ListDeleteAll, each element begun with Element(index). Times
// to live: SetTTL with Record(ttl_ms), GetTTL with Record(). The table's schema: GetMetadata.
//
// Values. Texts and bytes stand as they are, numbers big-endian (docs/protocol.md). An integer has
// 64 bits; the table's schema, where the client has one, decides otherwise, and a value that does
// not fit its field's type is refused by Send. Key<int32_t>("id", 42) names a width.
//
// Faults. Nothing here answers a code: the first fault is kept, later calls change nothing, and
// Send answers its code; FaultText says which field. Beginning anew forgets it.
//
// Ownership: owns its bytes, copies what it is given. Threads: one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "client/request_bytes.h"
#include "client/request_head.h"
#include "client/request_value.h"
#include "common/export.h"
#include "protocol/record_buffer.h"

struct VexMeta;

namespace OstrandService {

using ostrand_protocol_cs::FieldReader;
using ostrand_protocol_cs::FieldView;
using ostrand_protocol_cs::RecordMark;
using ostrand_protocol_cs::RecordReader;
using ostrand_protocol_cs::RecordView;

// X(operation, name of the command): what applications ask for, declared once.
#define OSTRAND_CLIENT_COMMANDS(X)      \
  X(Get, GET)                           \
  X(Insert, INSERT)                     \
  X(Replace, REPLACE)                   \
  X(Update, UPDATE)                     \
  X(Delete, DELETE)                     \
  X(BatchGet, BATCH_GET)                \
  X(BatchInsert, BATCH_INSERT)          \
  X(BatchReplace, BATCH_REPLACE)        \
  X(BatchUpdate, BATCH_UPDATE)          \
  X(BatchDelete, BATCH_DELETE)          \
  X(GetByPartKey, GET_BY_PARTKEY)       \
  X(DeleteByPartKey, DELETE_BY_PARTKEY) \
  X(ListGetAll, LIST_GETALL)            \
  X(ListGet, LIST_GET)                  \
  X(ListInsert, LIST_INSERT)            \
  X(ListUpdate, LIST_UPDATE)            \
  X(ListDelete, LIST_DELETE)            \
  X(ListDeleteAll, LIST_DELETE_ALL)     \
  X(SetTTL, SET_TTL)                    \
  X(GetTTL, GET_TTL)                    \
  X(GetMetadata, METADATA_GET)

class OSTRAND_API ClientRequest {
 public:
  static constexpr size_t kMaxUserBuffLen = 1024;

  ClientRequest() = default;
  // Without memory the copy is an empty request with the fault ROUTER_ERR_ALLOCATION.
  ClientRequest(const ClientRequest& other);
  ClientRequest& operator=(const ClientRequest& other);
  ClientRequest(ClientRequest&& other) noexcept;
  ClientRequest& operator=(ClientRequest&& other) noexcept;
  ~ClientRequest() = default;

  // Begin a request; nothing stays of the old one but the room. table: 1 to 31 characters, else the
  // fault is OSTRAND_CODEC_ERR_TABLE_NAME.
#define OSTRAND_CLIENT_OPERATION(operation, command) \
  ClientRequest& operation(std::string_view table)&; \
  ClientRequest&& operation(std::string_view table)&& { return std::move(operation(table)); }
  OSTRAND_CLIENT_COMMANDS(OSTRAND_CLIENT_OPERATION)
#undef OSTRAND_CLIENT_OPERATION

  // For tools and tests: the same for any command of docs/protocol.md. OSTRAND_CODEC_ERR_COMMAND
  // for a code that is none.
  ClientRequest& Begin(uint32_t cmd, std::string_view table);

  // The zone of the table; needed only where a table of this name stands in several zones.
  ClientRequest& Zone(int32_t zone_id) &;
  // Milliseconds that the answer may take; 0: the options' default.
  ClientRequest& SetTimeout(int32_t ms) &;
  // Sent again up to so many times, each with a time-out of its own, when no answer came. A command
  // that writes only with also_writes: it may then be carried out more than once.
  ClientRequest& SetRepeat(int32_t times, bool also_writes = false) &;
  // The application's own number; the outcome carries it back.
  ClientRequest& SetSequence(int32_t sequence) &;
  // The application's own bytes, at most 1024, else OSTRAND_CODEC_ERR_USER_BUFF_LEN; the outcome
  // carries them back.
  ClientRequest& SetUserBuff(std::string_view bytes) &;
  // The command succeeds only while the record has this version: the record of the head's key; in
  // batches and TTL commands the current one. RUNTIME_ERR_NO_RECORD before Record().
  ClientRequest& Expect(int32_t version) &;

  // A field of the key: in batches and TTL commands the current record's, else the request's.
  // Faults: OSTRAND_CODEC_ERR_FIELD_NAME (1 to 31 characters), _KEY_FIELD_LEN (1024 bytes),
  // _KEY_FIELD_NUM (8 fields); RUNTIME_ERR_DUPLICATE_FIELD; RUNTIME_ERR_NO_RECORD before Record();
  // RUNTIME_ERR_BODY_KIND where the command has no key; ROUTER_ERR_ALLOCATION.
  ClientRequest& Key(std::string_view name, const FieldValue& value) &;
  // A value to be written. Faults: as Key, OSTRAND_CODEC_ERR_VALUE_FIELD_NUM (128 fields),
  // _VALUE_LEN (1 MiB a record), _RECORDS_LEN (8 MiB together); RUNTIME_ERR_BODY_KIND for commands
  // that write no values; RUNTIME_ERR_NO_RECORD before Record() or Element().
  ClientRequest& Set(std::string_view name, const FieldValue& value) &;
  // Names a value to be read; none named: all. Faults as Set.
  ClientRequest& Field(std::string_view name) &;
  // Begins a record of a batch or of GetTTL; what is added from now on is its.
  ClientRequest& Record() &;
  // Begins a record of SetTTL: it expires ttl_ms from now on, negative: never. At most 1024, else
  // OSTRAND_CODEC_ERR_RECORD_NUM.
  ClientRequest& Record(int64_t ttl_ms) &;
  // Begins an element of a list: the one at `index`, or, of ListInsert, the place behind which it
  // goes; -1 is the end.
  ClientRequest& Element(int32_t index = -1) &;

  // With a named width: Key<int32_t>("id", 42). RUNTIME_ERR_VALUE_RANGE for a value out of its
  // range.
  template <typename Width, typename Value>
  ClientRequest& Key(std::string_view name, Value value) & {
    return Key(name, FieldValue::Of<Width>(value));
  }
  template <typename Width, typename Value>
  ClientRequest& Set(std::string_view name, Value value) & {
    return Set(name, FieldValue::Of<Width>(value));
  }

  // The same on a temporary.
  ClientRequest&& Zone(int32_t zone_id) && { return std::move(Zone(zone_id)); }
  ClientRequest&& SetTimeout(int32_t ms) && { return std::move(SetTimeout(ms)); }
  ClientRequest&& SetRepeat(int32_t times, bool also_writes = false) && {
    return std::move(SetRepeat(times, also_writes));
  }
  ClientRequest&& SetSequence(int32_t sequence) && { return std::move(SetSequence(sequence)); }
  ClientRequest&& SetUserBuff(std::string_view bytes) && { return std::move(SetUserBuff(bytes)); }
  ClientRequest&& Expect(int32_t version) && { return std::move(Expect(version)); }
  ClientRequest&& Key(std::string_view name, const FieldValue& value) && {
    return std::move(Key(name, value));
  }
  ClientRequest&& Set(std::string_view name, const FieldValue& value) && {
    return std::move(Set(name, value));
  }
  ClientRequest&& Field(std::string_view name) && { return std::move(Field(name)); }
  ClientRequest&& Record() && { return std::move(Record()); }
  ClientRequest&& Record(int64_t ttl_ms) && { return std::move(Record(ttl_ms)); }
  ClientRequest&& Element(int32_t index = -1) && { return std::move(Element(index)); }
  template <typename Width, typename Value>
  ClientRequest&& Key(std::string_view name, Value value) && {
    return std::move(Key(name, FieldValue::Of<Width>(value)));
  }
  template <typename Width, typename Value>
  ClientRequest&& Set(std::string_view name, Value value) && {
    return std::move(Set(name, FieldValue::Of<Width>(value)));
  }

  // The code of the first fault while building; 0: none.
  int Fault() const { return m_fault; }
  // A sentence on the fault; empty when there is none.
  std::string FaultText() const;

  uint32_t GetCmd() const { return m_head.cmd; }
  // Never null; empty before a request was begun. len (may be null): without the NUL.
  const char* GetTableName(size_t* len = nullptr) const;
  // kZoneNotGiven when no zone was.
  int32_t GetZoneId() const { return m_head.zone_id; }
  int32_t GetTimeout() const { return m_head.timeout_ms; }
  int32_t GetSequence() const { return m_head.sequence; }
  // What the outcome carries; given by Send.
  uint64_t GetAsynID() const { return m_head.async_id; }
  std::string_view GetUserBuff() const;
  // A field of the request's own key; false when there is none.
  bool GetKey(std::string_view name, FieldView& field) const;
  uint32_t GetKeyCount() const { return m_head.key_num; }
  // A value of the first record; false when there is none.
  bool GetValue(std::string_view name, FieldView& field) const;
  // Records or TTL entries.
  uint32_t GetRecordCount() const;
  // Walks the records; none for commands without, and for TTL commands.
  RecordReader Records() const;

  // --- For the client ---

  // What is sent: the head, and its BytesLen() bytes.
  const RequestHead& Head() const { return m_head; }
  const char* Bytes() const { return m_bytes.data(); }
  void SetAsynID(uint64_t async_id) { m_head.async_id = async_id; }
  void SetTable(int16_t table) { m_head.table = table; }

  // Gives integers of open width the type of their field in the schema; fields that the schema does
  // not have stay as they are. 0; RUNTIME_ERR_VALUE_RANGE for a value that does not fit;
  // RUNTIME_ERR_FIELD_TYPE for a value of another width or kind, a text that is too long. After a
  // failure nothing is changed, and Fault and FaultText tell it.
  int ApplySchema(const VexMeta* schema);

 private:
  // Where in the body the record that fields are added to stands. All offsets are in the body.
  struct CurrentRecord {
    bool is_there = false;
    uint32_t begin = 0;
    uint32_t keys_end = 0;
    uint32_t values_len = 0;  // bytes of the values alone
    uint32_t first_mark = 0;
    uint8_t key_num = 0;
    uint8_t value_num = 0;
  };

  bool Fail(int code, std::string_view field = {});
  bool CheckField(std::string_view name, const FieldValue& value);
  bool BeginRecord(const RecordMark& mark);
  bool InsertField(size_t at, size_t mark_at, std::string_view name, const FieldValue& value);
  void AddHeadKey(std::string_view name, const FieldValue& value);
  void AddRecordKey(std::string_view name, const FieldValue& value);
  void AddValue(std::string_view name, const FieldValue& value);
  void BeginEntry(int64_t ttl_ms);
  void AddEntryKey(std::string_view name, const FieldValue& value);
  void WriteRecordNumbers();
  char* Body() { return m_bytes.data() + m_head.user_len + m_head.key_len; }
  const char* Body() const { return m_bytes.data() + m_head.user_len + m_head.key_len; }
  void Reset();
  template <typename Visit>
  void VisitFields(Visit&& visit) const;
  void FitFields(const VexMeta& schema);

  RequestHead m_head;
  RequestBytes m_bytes;
  CurrentRecord m_record;
  int m_fault = 0;
  char m_fault_field[32] = {};
};

static_assert(sizeof(ClientRequest) < 400);

// A new request.
#define OSTRAND_CLIENT_OPERATION(operation, command)       \
  inline ClientRequest operation(std::string_view table) { \
    ClientRequest request;                                 \
    request.operation(table);                              \
    return request;                                        \
  }
OSTRAND_CLIENT_COMMANDS(OSTRAND_CLIENT_OPERATION)
#undef OSTRAND_CLIENT_OPERATION

}  // namespace OstrandService
