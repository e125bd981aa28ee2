// One table in memory: records or lists by key, with versions and times to live.
//
// Times are milliseconds of the wall clock (which tests may replace). A record whose time has come
// is gone: it vanishes when somebody comes across it.
// On the loop only. Codes are those of fleet_codes.h.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "fleet/fleet_codes.h"
#include "fleet/table_setup.h"

namespace OstrandFleet {

// A key as a request names it.
struct RecordKey {
  FieldList fields;
  int32_t version = -1;  // that the record must have; -1: any
};

// The memory of all tables together.
struct StoreBudget {
  size_t max_bytes;
  size_t used_bytes = 0;
};

struct Row : StoredRecord {
  int64_t expires_at_ms = -1;  // -1: never
  size_t bytes = 0;            // charged to the budget
};

class Table {
 public:
  // The budget outlives the table.
  Table(TableSetup setup, const StoreLimits& limits, StoreBudget& budget);
  ~Table();
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  const TableSetup& setup() const { return m_setup; }
  MetadataAnswer Metadata() const;
  void SetMetadata(MetadataAnswer answer);

  // kDone when the table has these fields and, for a whole key, they are all of its key.
  int32_t CheckKey(const FieldList& key, bool whole) const;
  int32_t CheckValues(const FieldList& values) const;
  int32_t CheckValueName(const std::string& name) const;

  // Each checks key, version and values first.
  int32_t Insert(const RecordKey& key, const FieldList& values);
  int32_t Replace(const RecordKey& key, const FieldList& values);  // the record is a new one
  int32_t Update(const RecordKey& key, const FieldList& values);   // other fields stay
  int32_t Delete(const RecordKey& key, const FieldList& unused = FieldList());

  // kDone and the row, or a code. The row is valid until the next change of the table.
  int32_t Find(const RecordKey& key, Row*& row);
  // The rows whose key has all of these fields, in the order of their keys.
  std::vector<const Row*> FindByPart(const FieldList& part);
  // Takes out a row that FindByPart answered.
  void Remove(const Row& row);

  // time_ms: from now on; negative: for ever.
  int32_t SetTimeToLive(const RecordKey& key, int64_t time_ms);
  int32_t GetTimeToLive(const RecordKey& key, int64_t& time_ms);

  // Elements of a list. InsertElement makes the list where there is none; `index` is in the place
  // behind which the element goes (-1: at the end), out the place that it got.
  int32_t InsertElement(const RecordKey& key, const FieldList& values, int32_t& index);
  int32_t UpdateElement(Row& list, int32_t index, const FieldList& values);
  // Takes out the elements at these places, which are counted before any is taken out.
  void DeleteElements(Row& list, const std::set<int32_t>& indices);
  static bool HasElement(const Row& list, int32_t index);

  size_t CountRows();

 private:
  using Rows = std::map<std::string, Row>;

  Rows::iterator Lookup(const FieldList& key);
  int32_t CheckRequest(const RecordKey& key, const FieldList& values) const;
  Row* AddRow(const FieldList& key, size_t value_bytes);
  bool Charge(Row& row, size_t old_bytes, size_t new_bytes);
  void Erase(Rows::iterator place);
  void EraseExpired();

  const TableSetup m_setup;
  const size_t m_max_list_elements;
  StoreBudget& m_budget;
  Rows m_rows;           // by CanonicalKey
  int64_t m_now_ms = 0;  // of the operation that goes on: for one of them time stands still
  bool m_metadata_is_set = false;
  MetadataAnswer m_metadata;
};

}  // namespace OstrandFleet
