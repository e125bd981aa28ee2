// A request of the application, built in a package of its own.
//
//   ClientRequest request;
//   request.Init(OSTRAND_API_INSERT_REQ, zone_id, "player");
//   request.SetKey("id", "42");
//   request.AddValue("level", level_bytes);
//   client.Send(request);
//
// One object serves any number of requests: sending copies its bytes, so that it may be changed or
// begun anew (Init) at once, however many requests are in flight. It may also be sent again as it
// is, or with another key (SetKey replaces). Its package takes over 10 MiB of address space, of
// which only what was ever written is memory: some 16 KiB for small requests.
//
// Records. Commands on one record carry their key in the head (SetKey) and the values in a record
// that begins by itself with the first AddValue; reads name the fields they want by empty values,
// or none for all. Commands on many records (batches, list elements) begin each with AddRecord;
// a batch gives each record its key with AddRecordKey. TTL commands have AddTTL and AddTTLKey.
//
// The package is the only place where things are kept: getters see what others, such as the router,
// change in it (it sorts the key fields). Exceptions are the user's bytes, from which each sending
// starts anew, and the table subscript, which does not travel.
//
// Without memory for the package Init answers ROUTER_ERR_ALLOCATION; nothing succeeds then, and
// getters answer 0 or null.
// Ownership: owns the package; copies what it is given. Threads: one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "common/export.h"
#include "protocol/ostrand_protocol_cs.h"
#include "service_api/ostrand_service_request.h"

namespace OstrandService {

class OSTRAND_API ClientRequest : public OstrandServiceRequest {
 public:
  static constexpr size_t kMaxUserBuffLen = ostrand_protocol_cs::OSTRAND_MAX_USER_BUFF_LEN;
  static constexpr size_t kUserBuffRoom = kMaxUserBuffLen + 14;

  ClientRequest();
  ~ClientRequest() override;
  ClientRequest(const ClientRequest&) = delete;
  ClientRequest& operator=(const ClientRequest&) = delete;

  // Begins a new request; nothing stays of the old one. table_name: null for none (the router then
  // refuses the request). OSTRAND_CODEC_ERR_COMMAND for a code that is no command,
  // OSTRAND_CODEC_ERR_TABLE_NAME over 31 characters; then all is as before.
  int Init(uint32_t cmd, int32_t zone_id, const char* table_name);

  void SetAppId(int32_t app_id);
  void SetAsynID(uint64_t async_id);
  void SetSequence(int32_t sequence);
  void SetTimeout(int32_t ms) { timeout_ms = ms; }
  int32_t GetTimeout() const { return timeout_ms; }
  void SetTableSubscript(int32_t subscript) { m_table_subscript = subscript; }
  // The application's schema version of the table; -1, as after Init, is unknown.
  void SetMetaVersion(int32_t version);
  // Of the record that the head's key names: the command succeeds only while the record has it. -1,
  // as after Init, is any.
  void SetRecordVersion(int32_t version);

  // The user's bytes, at most 1024; OSTRAND_CODEC_ERR_USER_BUFF_LEN for more. They come back with
  // the answer. Over 1009 bytes leave no room for the routing context: most commands are then sent
  // without it, and nobody times them.
  int SetUserBuff(const char* buffer, size_t len);

  // A field of the key in the head; one of the same name gets the new value. Codes:
  // OSTRAND_CODEC_ERR_FIELD_NAME, _KEY_FIELD_LEN (1024 bytes), _KEY_FIELD_NUM (8 fields).
  int SetKey(std::string_view name, std::string_view value);
  int SetKey(std::string_view name, const char* value, size_t len) {
    return SetKey(name, std::string_view(value, len));
  }
  // False when there is none.
  bool GetKey(std::string_view name, ostrand_protocol_cs::FieldView& field) const;
  uint32_t GetKeyCount() const;

  // Begins a record; what is added from now on is its. Without a mark a record of a batch gets its
  // place in the request as index, any other -1. RUNTIME_ERR_BODY_KIND for commands without records
  // and for a second record where there may be one; OSTRAND_CODEC_ERR_RECORDS_LEN.
  int AddRecord();
  int AddRecord(const ostrand_protocol_cs::RecordMark& mark);
  // A field of the current record's key, before its values. RUNTIME_ERR_NO_RECORD before AddRecord;
  // RUNTIME_ERR_DUPLICATE_FIELD; the codes of RecordWriter::AddKeyField.
  int AddRecordKey(std::string_view name, std::string_view value);
  // A value of the current record. Codes as above, and those of RecordWriter::AddValueField.
  int AddValue(std::string_view name, std::string_view value);
  int AddValue(std::string_view name, const char* value, size_t len) {
    return AddValue(name, std::string_view(value, len));
  }
  // A value of the first record; false when there is none.
  bool GetValue(std::string_view name, ostrand_protocol_cs::FieldView& field) const;
  uint32_t GetRecordCount() const;
  // To walk them with RecordReader; null for commands without records.
  const ostrand_protocol_cs::OStrandRecords* GetRecords() const;
  // Empties the body (records or TTL entries), for the next request of the same kind.
  void ClearRecords();

  // Begins an entry of a TTL command: ttl_ms from now on, negative for ever; not looked at by
  // OSTRAND_API_GET_TTL_REQ. RUNTIME_ERR_BODY_KIND for other commands, OSTRAND_CODEC_ERR_RECORD_NUM
  // over 1024 entries.
  int AddTTL(int64_t ttl_ms);
  // A field of the current entry's key. RUNTIME_ERR_NO_RECORD before AddTTL; codes as SetKey.
  int AddTTLKey(std::string_view name, std::string_view value);
  uint32_t GetTTLCount() const;

  // OstrandServiceRequest
  const char* GetTableName(size_t* len) const override;
  int32_t GetZoneId() const override;
  uint32_t GetCmd() const override;
  uint32_t GetSubCmd() const override;
  int32_t GetTableSubscript() const override { return m_table_subscript; }
  // Each sending begins with this call: package and storage hold the user's bytes again, whatever
  // an earlier one appended or wrote over them, and a performance record of an earlier sending is
  // gone.
  char* GetUserBuff(size_t* len) override;
  // OSTRAND_CODEC_ERR_USER_BUFF_LEN over 1024 bytes, ROUTER_ERR_ARGUMENT for null with a length.
  int SetPkgUserBuff(const char* buffer, size_t len) override;
  int32_t GetSequence() const override;
  uint64_t GetAsynID() const override;
  int Print(char* buffer, size_t size) override;
  int Pack(char* buffer, size_t& len) override;
  // OSTRAND_CODEC_ERR_PERF_TEST_LEN over 256 bytes, ROUTER_ERR_ARGUMENT for null with a length.
  int SetPerfTest(const char* buffer, size_t len) override;
  ostrand_protocol_cs::OStrandPkg* GetPkg() override { return m_pkg.get(); }

 private:
  static constexpr size_t kOverwritten = 14;  // by a context that stands alone

  // A performance record is set before a sending begins, and belongs to that one alone.
  enum class PerfTestState { kNone, kSet, kSent };

  // The record that fields are added to.
  struct CurrentRecord {
    explicit CurrentRecord(ostrand_protocol_cs::OStrandRecords& records)
        : writer(records),
          fields(records.szRecords + records.dwRecordsLen +
                 ostrand_protocol_cs::OSTRAND_RECORD_HEADER_LEN) {}

    ostrand_protocol_cs::RecordWriter writer;
    const char* fields;  // first the key's, then the values
    uint32_t key_count = 0;
    uint32_t value_count = 0;
  };

  void StartFromUserBytes();

  const std::unique_ptr<ostrand_protocol_cs::OStrandPkg> m_pkg;
  std::optional<CurrentRecord> m_record;
  int32_t m_table_subscript = -1;
  PerfTestState m_perf_test = PerfTestState::kNone;
  size_t m_user_buff_len = 0;
  char m_user_buff[kUserBuffRoom] = {};
  char m_first_bytes[kOverwritten] = {};  // of the user's bytes
};

}  // namespace OstrandService
