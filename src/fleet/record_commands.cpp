// What the commands on tables of records do.

#include "fleet/command_runner.h"
#include "fleet/record_fields.h"

namespace OstrandFleet {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records

template <CommandRunner::RecordWrite kWrite>
int32_t CommandRunner::WriteOne() {
  return (m_table->*kWrite)(HeadKey(), HeadValues());
}

template int32_t CommandRunner::WriteOne<&Table::Insert>();
template int32_t CommandRunner::WriteOne<&Table::Replace>();
template int32_t CommandRunner::WriteOne<&Table::Update>();
template int32_t CommandRunner::WriteOne<&Table::Delete>();

template <CommandRunner::RecordWrite kWrite>
int32_t CommandRunner::WriteMany() {
  OStrandRecords& results = m_writer.pkg().stBody.stRecords;
  RecordReader reader(RequestRecords());
  RecordView record;
  for (int32_t index = 0; reader.Next(record); ++index) {
    AppendResult(results, (m_table->*kWrite)(KeyOf(record), ValuesOf(record)), index);
  }
  return kDone;
}

template int32_t CommandRunner::WriteMany<&Table::Insert>();
template int32_t CommandRunner::WriteMany<&Table::Replace>();
template int32_t CommandRunner::WriteMany<&Table::Update>();
template int32_t CommandRunner::WriteMany<&Table::Delete>();

int32_t CommandRunner::Get() {
  std::vector<std::string_view> wanted;
  if (const int32_t result = WantedFields(wanted)) {
    return result;
  }
  Row* row = nullptr;
  if (const int32_t result = m_table->Find(HeadKey(), row)) {
    return result;
  }
  RecordMark mark;
  mark.version = row->version;
  return AppendRecord(m_writer.pkg().stBody.stRecords, mark, {}, row->values, wanted);
}

int32_t CommandRunner::GetMany() {
  OStrandRecords& answers = m_writer.pkg().stBody.stRecords;
  size_t results_to_come = RequestRecords().dwRecordNum;
  RecordReader reader(RequestRecords());
  RecordView record;
  for (int32_t index = 0; reader.Next(record); ++index) {
    --results_to_come;
    const RecordKey key = KeyOf(record);
    std::vector<std::string_view> wanted;
    Row* row = nullptr;
    int32_t result = WantedFields(record, wanted);
    if (result == kDone) {
      result = m_table->Find(key, row);
    }
    if (result == kDone) {
      RecordMark mark;
      mark.index = index;
      mark.version = row->version;
      result = AppendRecord(answers, mark, key.fields, row->values, wanted, results_to_come);
    }
    if (result != kDone) {
      AppendResult(answers, result, index);
    }
  }
  return kDone;
}

int32_t CommandRunner::GetByPartKey() {
  std::vector<std::string_view> wanted;
  if (const int32_t result = WantedFields(wanted)) {
    return result;
  }
  const FieldList part_of_key = HeadKey().fields;
  if (const int32_t result = m_table->CheckKey(part_of_key, false)) {
    return result;
  }
  const std::vector<const Row*> rows = m_table->FindByPart(part_of_key);
  if (rows.empty()) {
    return kRecordMissing;
  }
  OStrandMultiPkgRes& part = m_writer.pkg().stBody.stGetByPartKeyRes;
  for (const Row* row : rows) {
    RecordMark mark;
    mark.version = row->version;
    AddToParts(part, mark, row->key, row->values, wanted);
  }
  return kDone;
}

int32_t CommandRunner::DeleteByPartKey() {
  const FieldList part_of_key = HeadKey().fields;
  if (const int32_t result = m_table->CheckKey(part_of_key, false)) {
    return result;
  }
  const std::vector<const Row*> rows = m_table->FindByPart(part_of_key);
  if (rows.empty()) {
    return kRecordMissing;
  }
  OStrandRecords& deleted = m_writer.pkg().stBody.stRecords;
  for (const Row* row : rows) {
    AppendRecord(deleted, RecordMark(), row->key, {}, {});  // as many as fit
    m_table->Remove(*row);
  }
  return kDone;
}

int32_t CommandRunner::SetTimesToLive() {
  const OStrandSetTTLReq& request = m_request->stBody.stSetTTLReq;
  OStrandTTLRes& answer = m_writer.pkg().stBody.stTTLRes;
  answer.dwRecordNum = request.dwRecordNum;
  for (uint32_t i = 0; i < request.dwRecordNum; ++i) {
    answer.astRecordTTL[i].llTTLMs = request.allTTLMs[i];
    answer.astRecordTTL[i].iResult =
        m_table->SetTimeToLive(KeyOf(request.astKeyInfo[i]), request.allTTLMs[i]);
  }
  return kDone;
}

int32_t CommandRunner::GetTimesToLive() {
  const OStrandGetTTLReq& request = m_request->stBody.stGetTTLReq;
  OStrandTTLRes& answer = m_writer.pkg().stBody.stTTLRes;
  answer.dwRecordNum = request.dwRecordNum;
  for (uint32_t i = 0; i < request.dwRecordNum; ++i) {
    answer.astRecordTTL[i].llTTLMs = -1;
    answer.astRecordTTL[i].iResult =
        m_table->GetTimeToLive(KeyOf(request.astKeyInfo[i]), answer.astRecordTTL[i].llTTLMs);
  }
  return kDone;
}

}  // namespace OstrandFleet
