// Between the records of packages and the lists of fields of the store.
//
// Threads: no state.
#pragma once

#include <string_view>
#include <vector>

#include "fleet/table.h"
#include "protocol/ostrand_protocol_cs.h"

namespace OstrandFleet {

RecordKey KeyOf(const ostrand_protocol_cs::OStrandKeySet& keys);
RecordKey KeyOf(const ostrand_protocol_cs::RecordView& record);
FieldList ValuesOf(const ostrand_protocol_cs::RecordView& record);

// Appends a record with those of the values whose names are wanted (all where none is). kDone, or
// kAnswerTooLarge when it does not fit together with so many results that are yet to come; then
// nothing is appended.
int32_t AppendRecord(ostrand_protocol_cs::OStrandRecords& records,
                     const ostrand_protocol_cs::RecordMark& mark, const FieldList& key,
                     const FieldList& values, const std::vector<std::string_view>& wanted,
                     size_t results_to_come = 0);

// Appends a record of a result alone. As AppendRecord.
int32_t AppendResult(ostrand_protocol_cs::OStrandRecords& records, int32_t result, int32_t index);

}  // namespace OstrandFleet
