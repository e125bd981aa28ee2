// What a user of the fleet says and is told of tables.
//
// Threads: plain records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "vex/vex_schema.h"

namespace OstrandFleet {

struct Field {
  std::string name;
  std::string value;
};
using FieldList = std::vector<Field>;

inline bool operator==(const Field& a, const Field& b) {
  return a.name == b.name && a.value == b.value;
}

enum class TableKind {
  kRecords,  // a key has one record
  kLists,    // a key has a list of elements
};

// A table of a zone. The store does not tell applications apart.
struct TableSetup {
  int32_t zone = 1;
  // Name and fields. The fields are enforced: names, sizes, completeness of keys. A table without
  // any takes whatever fields come.
  VexMeta schema;
  TableKind kind = TableKind::kRecords;
  uint32_t type = 0;  // the number that metadata answers tell clients of the kind of table
};

// What metadata answers say of a table. Made of the table's schema, unless it is set.
struct MetadataAnswer {
  uint32_t type = 0;
  int32_t version = 0;
  int32_t idl_type = 0;
  std::string image;  // of the schema library; any bytes may be set
};

// A record as it stands in the store.
struct StoredRecord {
  FieldList key;
  FieldList values;                 // of a record, by name
  std::vector<FieldList> elements;  // of a list
  int32_t version = 0;              // 1 at first, and one more with each change
};

// Limits of the store.
struct StoreLimits {
  size_t max_bytes = size_t{1} << 30;  // of all tables together, about
  size_t max_tables = 256;
  size_t max_list_elements = 10000;
};

}  // namespace OstrandFleet
