// Records of a table inside a package's body, kept in the form that they have on the wire.
//
// A record is a header, its key fields and its value fields (big-endian):
//
//   offset width  field
//   0      4      dwRecordLen      bytes of the whole record, these four included
//   4      4      iResult          of answers about many records: this record's result
//   8      4      iIndex           of a list: the element's index; of batches: the record's place
//   in
//                                  the request, from 0; -1: none
//   12     4      iVersion         the record's version; -1: any
//   16     4      dwKeyFieldNum
//   20     4      dwValueFieldNum
//   24            the key fields, then the value fields, each: length of the name with its NUL,
//   name,
//                 length of the value, value
//
// So packing is one copy, decoding is one walk that checks everything and one copy, and readers
// hand out views into the package. Whatever stands in an OStrandRecords was put there by
// RecordWriter or by the codec and is therefore well-formed: readers rely on it and check nothing.
//
// Threads: as the package that holds the records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

#include "common/export.h"
#include "protocol/codec_errors.h"
#include "protocol/field_value.h"
#include "protocol/key_set.h"

namespace ostrand_protocol_cs {

constexpr size_t OSTRAND_RECORD_HEADER_LEN = 24;
constexpr size_t OSTRAND_MAX_VALUE_FIELD_NUM = 128;       // of one record
constexpr size_t OSTRAND_MAX_RECORD_VALUE_LEN = 1048576;  // bytes of one record's values together
constexpr size_t OSTRAND_MAX_RECORDS_LEN = 8388608;       // bytes of all records of a body

struct OStrandRecords {
  uint32_t dwRecordNum;
  uint32_t dwRecordsLen;  // used bytes of szRecords
  char szRecords[OSTRAND_MAX_RECORDS_LEN];
};

// What a record says of itself beside its fields.
struct RecordMark {
  int32_t result = 0;
  int32_t index = -1;
  int32_t version = -1;
};

// Appends records. After every call, failed ones included, the records are well-formed; a failed
// call changes nothing.
class OSTRAND_API RecordWriter {
 public:
  // Appends behind what stands in `records`, which outlives the writer. Nobody else writes to it
  // while the writer is in use.
  explicit RecordWriter(OStrandRecords& records);

  // Appends an empty record; the fields added from now on are its. 0, or
  // OSTRAND_CODEC_ERR_RECORDS_LEN when all records together grow over OSTRAND_MAX_RECORDS_LEN.
  int BeginRecord(const RecordMark& mark = RecordMark());

  // REQUIRES: BeginRecord, and no value field of this record yet, else
  // OSTRAND_CODEC_ERR_RECORD_ORDER. name: 1 to 31 characters without NUL, else
  // OSTRAND_CODEC_ERR_FIELD_NAME. Over 8 fields: OSTRAND_CODEC_ERR_KEY_FIELD_NUM; over 1024 bytes:
  // OSTRAND_CODEC_ERR_KEY_FIELD_LEN.
  int AddKeyField(std::string_view name, std::string_view value);

  // The fields of a whole key set; its iVersion is not taken over. The codes are AddKeyField's.
  int AddKeySet(const OStrandKeySet& keys);

  // REQUIRES: BeginRecord. Over 128 fields: OSTRAND_CODEC_ERR_VALUE_FIELD_NUM; over 1 MiB of values
  // in this record: OSTRAND_CODEC_ERR_VALUE_LEN. A field that only names what a read shall answer
  // has an empty value.
  int AddValueField(std::string_view name, std::string_view value);

 private:
  int AppendField(std::string_view name, std::string_view value);
  void WriteHeader();

  OStrandRecords& m_records;
  RecordMark m_mark;
  char* m_record = nullptr;  // the record being built; null before BeginRecord
  uint32_t m_key_field_num = 0;
  uint32_t m_value_field_num = 0;
  size_t m_value_len = 0;
};

// One field: views into the package, valid until it is packed anew or unpacked into. The name is
// followed by a NUL.
struct FieldView {
  std::string_view name;
  std::string_view value;
};

// A field's value as a number of T's width, or as a std::string_view. 0, or
// OSTRAND_CODEC_ERR_FIELD_WIDTH; then `value` is unchanged.
template <typename T>
int ReadField(const FieldView& field, T& value) {
  if constexpr (std::is_same_v<T, std::string_view>) {
    value = field.value;
    return 0;
  } else {
    static_assert(std::is_arithmetic_v<T> && !std::is_same_v<T, bool>);
    return LoadNumber(field.value, value) ? 0 : int{OSTRAND_CODEC_ERR_FIELD_WIDTH};
  }
}

// Walks fields.
class OSTRAND_API FieldReader {
 public:
  FieldReader() = default;
  FieldReader(const char* fields, uint32_t num) : m_next(fields), m_left(num) {}

  // False behind the last field; then `field` is unchanged.
  bool Next(FieldView& field);

  uint32_t left() const { return m_left; }
  const char* position() const { return m_next; }

 private:
  const char* m_next = nullptr;
  uint32_t m_left = 0;
};

// One record: views into the package, as FieldView.
//
//   int64_t level = 0;
//   std::string_view name;
//   if (record.Get("level", level) == 0 && record.Get("name", name) == 0) { ... }
struct OSTRAND_API RecordView {
  RecordMark mark;
  FieldReader keys;
  FieldReader values;

  // The first value field of this name; false when there is none.
  bool FindValue(std::string_view name, FieldView& field) const;
  // The first key field of this name; false when there is none.
  bool FindKey(std::string_view name, FieldView& field) const;

  // The value of this name as a number, of the width that T has, or as a std::string_view. 0;
  // OSTRAND_CODEC_ERR_NO_FIELD; OSTRAND_CODEC_ERR_FIELD_WIDTH when its length is not T's. After a
  // failure `value` is unchanged.
  template <typename T>
  int Get(std::string_view name, T& value) const {
    FieldView field;
    return FindValue(name, field) ? ReadField(field, value) : int{OSTRAND_CODEC_ERR_NO_FIELD};
  }
  // The same of a key field.
  template <typename T>
  int GetKey(std::string_view name, T& value) const {
    FieldView field;
    return FindKey(name, field) ? ReadField(field, value) : int{OSTRAND_CODEC_ERR_NO_FIELD};
  }
};

// Walks records.
class OSTRAND_API RecordReader {
 public:
  // `records` outlives the reader and its views, unchanged.
  explicit RecordReader(const OStrandRecords& records);
  // The same for records that stand elsewhere in wire form, checked before.
  RecordReader(const char* records, uint32_t num) : m_next(records), m_left(num) {}
  RecordReader() = default;

  // False behind the last record; then `record` is unchanged.
  bool Next(RecordView& record);

 private:
  const char* m_next = nullptr;
  uint32_t m_left = 0;
};

// Checks records as they stand on the wire: that `num` well-formed records within all limits fill
// exactly `len` bytes. 0, or a negative code. Never reads behind data + len.
OSTRAND_API int CheckRecords(const char* data, size_t len, uint32_t num);

}  // namespace ostrand_protocol_cs
