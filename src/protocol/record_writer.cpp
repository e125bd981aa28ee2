#include <cstring>

#include "protocol/byte_order.h"
#include "protocol/codec_errors.h"
#include "protocol/record_buffer.h"

namespace ostrand_protocol_cs {
namespace {

constexpr size_t kFieldLengths = 2 * sizeof(uint32_t);  // the name's and the value's

bool IsFieldName(std::string_view name) {
  return !name.empty() && name.size() < OSTRAND_MAX_FIELD_NAME_LEN &&
         name.find('\0') == std::string_view::npos;
}

// memcpy with a null source is undefined even for no bytes, and an empty view has one.
char* PutBytes(char* to, std::string_view bytes) {
  if (!bytes.empty()) {
    std::memcpy(to, bytes.data(), bytes.size());
  }
  return to + bytes.size();
}

}  // namespace

RecordWriter::RecordWriter(OStrandRecords& records) : m_records(records) {}

int RecordWriter::BeginRecord(const RecordMark& mark) {
  if (m_records.dwRecordsLen + OSTRAND_RECORD_HEADER_LEN > OSTRAND_MAX_RECORDS_LEN) {
    return OSTRAND_CODEC_ERR_RECORDS_LEN;
  }
  m_record = m_records.szRecords + m_records.dwRecordsLen;
  m_mark = mark;
  m_key_field_num = 0;
  m_value_field_num = 0;
  m_value_len = 0;
  m_records.dwRecordsLen += static_cast<uint32_t>(OSTRAND_RECORD_HEADER_LEN);
  ++m_records.dwRecordNum;
  WriteHeader();
  return 0;
}

int RecordWriter::AddKeyField(std::string_view name, std::string_view value) {
  if (m_record == nullptr || m_value_field_num > 0) {
    return OSTRAND_CODEC_ERR_RECORD_ORDER;
  }
  if (m_key_field_num == OSTRAND_MAX_KEY_FIELD_NUM) {
    return OSTRAND_CODEC_ERR_KEY_FIELD_NUM;
  }
  if (value.size() > OSTRAND_MAX_KEY_FIELD_LEN) {
    return OSTRAND_CODEC_ERR_KEY_FIELD_LEN;
  }
  if (const int ret = AppendField(name, value)) {
    return ret;
  }
  ++m_key_field_num;
  WriteHeader();
  return 0;
}

int RecordWriter::AddKeySet(const OStrandKeySet& keys) {
  if (keys.dwFieldNum > OSTRAND_MAX_KEY_FIELD_NUM) {
    return OSTRAND_CODEC_ERR_KEY_FIELD_NUM;
  }
  const uint32_t records_len_before = m_records.dwRecordsLen;
  const uint32_t key_field_num_before = m_key_field_num;
  for (uint32_t i = 0; i < keys.dwFieldNum; ++i) {
    const OStrandKeyField& field = keys.astFields[i];
    const size_t name_len = strnlen(field.szFieldName, sizeof(field.szFieldName));
    const int ret =
        AddKeyField({field.szFieldName, name_len}, {field.szFieldBuff, field.dwFieldLen});
    if (ret != 0) {
      m_records.dwRecordsLen = records_len_before;
      m_key_field_num = key_field_num_before;
      if (m_record != nullptr) {
        WriteHeader();
      }
      return ret;
    }
  }
  return 0;
}

int RecordWriter::AddValueField(std::string_view name, std::string_view value) {
  if (m_record == nullptr) {
    return OSTRAND_CODEC_ERR_RECORD_ORDER;
  }
  if (m_value_field_num == OSTRAND_MAX_VALUE_FIELD_NUM) {
    return OSTRAND_CODEC_ERR_VALUE_FIELD_NUM;
  }
  if (value.size() > OSTRAND_MAX_RECORD_VALUE_LEN - m_value_len) {
    return OSTRAND_CODEC_ERR_VALUE_LEN;
  }
  if (const int ret = AppendField(name, value)) {
    return ret;
  }
  ++m_value_field_num;
  m_value_len += value.size();
  WriteHeader();
  return 0;
}

// REQUIRES: the value is within its limit, so that no sum here overflows.
int RecordWriter::AppendField(std::string_view name, std::string_view value) {
  if (!IsFieldName(name)) {
    return OSTRAND_CODEC_ERR_FIELD_NAME;
  }
  const size_t name_len = name.size() + 1;
  const size_t field_len = kFieldLengths + name_len + value.size();
  if (field_len > OSTRAND_MAX_RECORDS_LEN - m_records.dwRecordsLen) {
    return OSTRAND_CODEC_ERR_RECORDS_LEN;
  }
  char* next = m_records.szRecords + m_records.dwRecordsLen;
  StoreBigEndian(next, static_cast<uint32_t>(name_len));
  next = PutBytes(next + sizeof(uint32_t), name);
  *next++ = '\0';
  StoreBigEndian(next, static_cast<uint32_t>(value.size()));
  PutBytes(next + sizeof(uint32_t), value);
  m_records.dwRecordsLen += static_cast<uint32_t>(field_len);
  return 0;
}

void RecordWriter::WriteHeader() {
  const char* const end = m_records.szRecords + m_records.dwRecordsLen;
  StoreBigEndian(m_record, static_cast<uint32_t>(end - m_record));
  StoreBigEndian(m_record + 4, m_mark.result);
  StoreBigEndian(m_record + 8, m_mark.index);
  StoreBigEndian(m_record + 12, m_mark.version);
  StoreBigEndian(m_record + 16, m_key_field_num);
  StoreBigEndian(m_record + 20, m_value_field_num);
}

}  // namespace ostrand_protocol_cs
