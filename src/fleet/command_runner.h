// Carries out requests of table operations against the store and writes their answers.
//
// Which command does what stands in one table in command_runner.cpp; what the commands do, in
// record_commands.cpp and list_commands.cpp. On the loop only.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fleet/answer_writer.h"
#include "fleet/table_store.h"
#include "protocol/ostrand_protocol_cs.h"

namespace OstrandFleet {

// Whether the command is one on tables, whose bodies the protocol defines or not.
bool IsTableRequest(uint32_t cmd);

class CommandRunner {
 public:
  // records_per_package: of an answer in several packages, from 1 on. All outlive the runner.
  CommandRunner(TableStore& store, AnswerWriter& writer, size_t records_per_package);

  // Carries out the request whose answer was begun in the writer, and emits all of the answer.
  // REQUIRES: IsTableRequest of its command.
  void Run(const ostrand_protocol_cs::OStrandPkg& request);

  // Fills the answer to a metadata request and emits it.
  void RunMetadata(const ostrand_protocol_cs::OStrandPkg& request);

 private:
  // Does the work on m_table and fills the answer's body. Returns the answer's result; with one
  // that is not 0 the body is not used.
  using Command = int32_t (CommandRunner::*)();
  using RecordWrite = int32_t (Table::*)(const RecordKey&, const FieldList&);

  struct CommandRow {
    uint32_t cmd;
    TableKind kind;
    bool any_kind;
    Command command;
  };
  static const CommandRow kCommands[];
  static const CommandRow* FindCommand(uint32_t cmd);

  int32_t RunCommand();

  // record_commands.cpp
  template <RecordWrite kWrite>
  int32_t WriteOne();
  template <RecordWrite kWrite>
  int32_t WriteMany();
  int32_t Get();
  int32_t GetMany();
  int32_t GetByPartKey();
  int32_t DeleteByPartKey();
  int32_t SetTimesToLive();
  int32_t GetTimesToLive();

  // list_commands.cpp
  int32_t ListGetAll();
  int32_t ListGet();
  int32_t ListInsert();
  int32_t ListUpdate();
  int32_t ListDelete();
  int32_t ListDeleteAll();

  // Reading the request. The names are views into it.
  RecordKey HeadKey() const;
  FieldList HeadValues() const;
  int32_t WantedFields(std::vector<std::string_view>& names) const;
  int32_t WantedFields(const ostrand_protocol_cs::RecordView& record,
                       std::vector<std::string_view>& names) const;
  const ostrand_protocol_cs::OStrandRecords& RequestRecords() const;

  // Appends a record to an answer of packages, which are emitted as they fill.
  int32_t AddToParts(ostrand_protocol_cs::OStrandMultiPkgRes& part,
                     const ostrand_protocol_cs::RecordMark& mark, const FieldList& key,
                     const FieldList& values, const std::vector<std::string_view>& wanted);

  TableStore& m_store;
  AnswerWriter& m_writer;
  const size_t m_records_per_package;
  const ostrand_protocol_cs::OStrandPkg* m_request = nullptr;
  Table* m_table = nullptr;
};

}  // namespace OstrandFleet
