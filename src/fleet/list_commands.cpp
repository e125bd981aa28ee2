// What the commands on tables of lists do. An element is named by its place in the list, from 0.

#include <set>

#include "fleet/command_runner.h"
#include "fleet/record_fields.h"

namespace OstrandFleet {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records

int32_t CommandRunner::ListGetAll() {
  std::vector<std::string_view> wanted;
  if (const int32_t result = WantedFields(wanted)) {
    return result;
  }
  Row* list = nullptr;
  if (const int32_t result = m_table->Find(HeadKey(), list)) {
    return result;
  }
  OStrandMultiPkgRes& part = m_writer.pkg().stBody.stListGetAllRes;
  for (size_t i = 0; i < list->elements.size(); ++i) {
    RecordMark mark;
    mark.index = static_cast<int32_t>(i);
    mark.version = list->version;
    AddToParts(part, mark, {}, list->elements[i], wanted);
  }
  return kDone;
}

int32_t CommandRunner::ListGet() {
  Row* list = nullptr;
  if (const int32_t result = m_table->Find(HeadKey(), list)) {
    return result;
  }
  OStrandRecords& answers = m_writer.pkg().stBody.stRecords;
  size_t results_to_come = RequestRecords().dwRecordNum;
  RecordReader reader(RequestRecords());
  for (RecordView record; reader.Next(record);) {
    --results_to_come;
    const int32_t index = record.mark.index;
    int32_t result = kInvalidIndex;
    if (Table::HasElement(*list, index)) {
      RecordMark mark;
      mark.index = index;
      mark.version = list->version;
      result = AppendRecord(answers, mark, {}, list->elements[static_cast<size_t>(index)], {},
                            results_to_come);
    }
    if (result != kDone) {
      AppendResult(answers, result, index);
    }
  }
  return kDone;
}

int32_t CommandRunner::ListInsert() {
  OStrandRecords& results = m_writer.pkg().stBody.stRecords;
  RecordKey key = HeadKey();
  RecordReader reader(RequestRecords());
  for (RecordView record; reader.Next(record);) {
    int32_t index = record.mark.index;
    const int32_t result = m_table->InsertElement(key, ValuesOf(record), index);
    AppendResult(results, result, index);
    if (result == kDone) {
      key.version = -1;  // the list has a new one now
    }
  }
  return kDone;
}

int32_t CommandRunner::ListUpdate() {
  Row* list = nullptr;
  if (const int32_t result = m_table->Find(HeadKey(), list)) {
    return result;
  }
  OStrandRecords& results = m_writer.pkg().stBody.stRecords;
  RecordReader reader(RequestRecords());
  for (RecordView record; reader.Next(record);) {
    const int32_t index = record.mark.index;
    AppendResult(results, m_table->UpdateElement(*list, index, ValuesOf(record)), index);
  }
  return kDone;
}

int32_t CommandRunner::ListDelete() {
  Row* list = nullptr;
  if (const int32_t result = m_table->Find(HeadKey(), list)) {
    return result;
  }
  OStrandRecords& results = m_writer.pkg().stBody.stRecords;
  std::set<int32_t> indices;
  RecordReader reader(RequestRecords());
  for (RecordView record; reader.Next(record);) {
    const int32_t index = record.mark.index;
    const bool is_there = Table::HasElement(*list, index);
    AppendResult(results, is_there ? int32_t{kDone} : int32_t{kInvalidIndex}, index);
    indices.insert(index);
  }
  m_table->DeleteElements(*list, indices);
  return kDone;
}

int32_t CommandRunner::ListDeleteAll() { return m_table->Delete(HeadKey()); }

}  // namespace OstrandFleet
