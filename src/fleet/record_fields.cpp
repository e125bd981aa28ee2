#include "fleet/record_fields.h"

#include <algorithm>

namespace OstrandFleet {
namespace {

using ostrand_protocol_cs::FieldReader;
using ostrand_protocol_cs::FieldView;
using ostrand_protocol_cs::OSTRAND_MAX_RECORDS_LEN;
using ostrand_protocol_cs::OSTRAND_RECORD_HEADER_LEN;
using ostrand_protocol_cs::OStrandKeyField;
using ostrand_protocol_cs::OStrandKeySet;
using ostrand_protocol_cs::OStrandRecords;
using ostrand_protocol_cs::RecordMark;
using ostrand_protocol_cs::RecordView;
using ostrand_protocol_cs::RecordWriter;

FieldList FieldsOf(FieldReader reader) {
  FieldList fields;
  FieldView field;
  while (reader.Next(field)) {
    fields.push_back({std::string(field.name), std::string(field.value)});
  }
  return fields;
}

bool IsWanted(const std::vector<std::string_view>& wanted, const std::string& name) {
  return wanted.empty() || std::find(wanted.begin(), wanted.end(), name) != wanted.end();
}

int WriteRecord(RecordWriter& writer, const RecordMark& mark, const FieldList& key,
                const FieldList& values, const std::vector<std::string_view>& wanted) {
  int ret = writer.BeginRecord(mark);
  for (const Field& field : key) {
    ret = ret != 0 ? ret : writer.AddKeyField(field.name, field.value);
  }
  for (const Field& field : values) {
    if (IsWanted(wanted, field.name)) {
      ret = ret != 0 ? ret : writer.AddValueField(field.name, field.value);
    }
  }
  return ret;
}

}  // namespace

RecordKey KeyOf(const OStrandKeySet& keys) {
  RecordKey key;
  key.version = keys.iVersion;
  for (uint32_t i = 0; i < keys.dwFieldNum; ++i) {
    const OStrandKeyField& field = keys.astFields[i];
    key.fields.push_back({field.szFieldName, std::string(field.szFieldBuff, field.dwFieldLen)});
  }
  return key;
}

RecordKey KeyOf(const RecordView& record) { return {FieldsOf(record.keys), record.mark.version}; }

FieldList ValuesOf(const RecordView& record) { return FieldsOf(record.values); }

int32_t AppendRecord(OStrandRecords& records, const RecordMark& mark, const FieldList& key,
                     const FieldList& values, const std::vector<std::string_view>& wanted,
                     size_t results_to_come) {
  const size_t reserved = results_to_come * OSTRAND_RECORD_HEADER_LEN;
  const uint32_t num_before = records.dwRecordNum;
  const uint32_t len_before = records.dwRecordsLen;
  RecordWriter writer(records);
  if (WriteRecord(writer, mark, key, values, wanted) != 0 ||
      records.dwRecordsLen + reserved > OSTRAND_MAX_RECORDS_LEN) {
    records.dwRecordNum = num_before;
    records.dwRecordsLen = len_before;
    return kAnswerTooLarge;
  }
  return kDone;
}

int32_t AppendResult(OStrandRecords& records, int32_t result, int32_t index) {
  RecordMark mark;
  mark.result = result;
  mark.index = index;
  return AppendRecord(records, mark, {}, {}, {});
}

}  // namespace OstrandFleet
