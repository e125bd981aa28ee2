#include "fleet/command_runner.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "fleet/record_fields.h"

namespace OstrandFleet {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records

// clang-format off
const CommandRunner::CommandRow CommandRunner::kCommands[] = {
    {OSTRAND_API_INSERT_REQ, TableKind::kRecords, false, &CommandRunner::WriteOne<&Table::Insert>},
    {OSTRAND_API_REPLACE_REQ, TableKind::kRecords, false, &CommandRunner::WriteOne<&Table::Replace>},
    {OSTRAND_API_UPDATE_REQ, TableKind::kRecords, false, &CommandRunner::WriteOne<&Table::Update>},
    {OSTRAND_API_DELETE_REQ, TableKind::kRecords, false, &CommandRunner::WriteOne<&Table::Delete>},
    {OSTRAND_API_BATCH_INSERT_REQ, TableKind::kRecords, false, &CommandRunner::WriteMany<&Table::Insert>},
    {OSTRAND_API_BATCH_REPLACE_REQ, TableKind::kRecords, false, &CommandRunner::WriteMany<&Table::Replace>},
    {OSTRAND_API_BATCH_UPDATE_REQ, TableKind::kRecords, false, &CommandRunner::WriteMany<&Table::Update>},
    {OSTRAND_API_BATCH_DELETE_REQ, TableKind::kRecords, false, &CommandRunner::WriteMany<&Table::Delete>},
    {OSTRAND_API_GET_REQ, TableKind::kRecords, false, &CommandRunner::Get},
    {OSTRAND_API_BATCH_GET_REQ, TableKind::kRecords, false, &CommandRunner::GetMany},
    {OSTRAND_API_GET_BY_PARTKEY_REQ, TableKind::kRecords, false, &CommandRunner::GetByPartKey},
    {OSTRAND_API_DELETE_BY_PARTKEY_REQ, TableKind::kRecords, true, &CommandRunner::DeleteByPartKey},
    {OSTRAND_API_SET_TTL_REQ, TableKind::kRecords, true, &CommandRunner::SetTimesToLive},
    {OSTRAND_API_GET_TTL_REQ, TableKind::kRecords, true, &CommandRunner::GetTimesToLive},
    {OSTRAND_API_LIST_GETALL_REQ, TableKind::kLists, false, &CommandRunner::ListGetAll},
    {OSTRAND_API_LIST_GET_REQ, TableKind::kLists, false, &CommandRunner::ListGet},
    {OSTRAND_API_LIST_INSERT_REQ, TableKind::kLists, false, &CommandRunner::ListInsert},
    {OSTRAND_API_LIST_UPDATE_REQ, TableKind::kLists, false, &CommandRunner::ListUpdate},
    {OSTRAND_API_LIST_DELETE_REQ, TableKind::kLists, false, &CommandRunner::ListDelete},
    {OSTRAND_API_LIST_DELETE_ALL_REQ, TableKind::kLists, false, &CommandRunner::ListDeleteAll},
};
// clang-format on

const CommandRunner::CommandRow* CommandRunner::FindCommand(uint32_t cmd) {
  const auto row =
      std::find_if(std::begin(kCommands), std::end(kCommands),
                   [cmd](const CommandRow& candidate) { return candidate.cmd == cmd; });
  return row == std::end(kCommands) ? nullptr : row;
}

bool IsTableRequest(uint32_t cmd) {
  switch (BodyKindOfCmd(cmd)) {
    case BodyKind::kSkipped:
    case BodyKind::kRecord:
    case BodyKind::kRecords:
    case BodyKind::kSetTTLReq:
    case BodyKind::kGetTTLReq: return cmd % 2 == 1;
    default: return false;
  }
}

CommandRunner::CommandRunner(TableStore& store, AnswerWriter& writer, size_t records_per_package)
    : m_store(store),
      m_writer(writer),
      m_records_per_package(std::max<size_t>(records_per_package, 1)) {}

void CommandRunner::Run(const OStrandPkg& request) {
  m_request = &request;
  m_writer.Emit(RunCommand());
}

int32_t CommandRunner::RunCommand() {
  const OStrandPkgHead& head = m_request->stHead;
  const CommandRow* const row = FindCommand(head.dwCmd);
  if (row == nullptr) {
    return kInvalidOperation;
  }
  m_table =
      m_store.FindOrCreate(head.stRouterInfo.iZoneID, head.stRouterInfo.szTableName, row->kind);
  if (m_table == nullptr) {
    return kUnknownTable;
  }
  if (!row->any_kind && row->kind != m_table->setup().kind) {
    return kCommandMismatch;
  }
  m_writer.pkg().stHead.iVexMetaVersion = m_table->setup().schema.version;
  return (this->*row->command)();
}

void CommandRunner::RunMetadata(const OStrandPkg& request) {
  const OStrandRouterInfo& info = request.stHead.stRouterInfo;
  Table* const table = m_store.FindOrCreate(info.iZoneID, info.szTableName, TableKind::kRecords);
  if (table == nullptr) {
    m_writer.Emit(kUnknownTable);
    return;
  }
  const MetadataAnswer metadata = table->Metadata();
  OStrandMetadataGetRes& body = m_writer.pkg().stBody.stMetadataGetRes;
  const size_t len = std::min(metadata.image.size(), sizeof(body.szIdlContent));
  body.dwOstrandType = metadata.type;
  body.iVexMetaCurrentVersion = metadata.version;
  body.iIdlType = metadata.idl_type;
  body.iIdlConLen = static_cast<int32_t>(len);
  std::memcpy(body.szIdlContent, metadata.image.data(), len);
  m_writer.Emit(kDone);
}

RecordKey CommandRunner::HeadKey() const { return KeyOf(m_request->stHead.stKeyInfo); }

FieldList CommandRunner::HeadValues() const {
  RecordView record;
  return RecordReader(RequestRecords()).Next(record) ? ValuesOf(record) : FieldList();
}

int32_t CommandRunner::WantedFields(std::vector<std::string_view>& names) const {
  RecordView record;
  return RecordReader(RequestRecords()).Next(record) ? WantedFields(record, names) : int32_t{kDone};
}

int32_t CommandRunner::WantedFields(const RecordView& record,
                                    std::vector<std::string_view>& names) const {
  FieldReader fields = record.values;
  for (FieldView field; fields.Next(field);) {
    if (const int32_t result = m_table->CheckValueName(std::string(field.name))) {
      return result;
    }
    names.push_back(field.name);
  }
  return kDone;
}

const OStrandRecords& CommandRunner::RequestRecords() const { return m_request->stBody.stRecords; }

int32_t CommandRunner::AddToParts(OStrandMultiPkgRes& part, const RecordMark& mark,
                                  const FieldList& key, const FieldList& values,
                                  const std::vector<std::string_view>& wanted) {
  if (part.stRecords.dwRecordNum < m_records_per_package &&
      AppendRecord(part.stRecords, mark, key, values, wanted) == kDone) {
    return kDone;
  }
  part.bHasMorePkgs = 1;
  m_writer.EmitPart();
  return AppendRecord(part.stRecords, mark, key, values, wanted);
}

}  // namespace OstrandFleet
