// The tables of all zones, which all proxies of a fleet share. On the loop only.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fleet/table.h"

namespace OstrandFleet {

class TableStore {
 public:
  // create_unknown: a table that nobody declared comes to be, without schema, when a client first
  // names it.
  TableStore(const StoreLimits& limits, bool create_unknown);

  // Declares a table; one of this name and zone is replaced with what is in it. False when there
  // are as many tables as there may be, or the schema is not one.
  bool AddTable(const TableSetup& setup);

  // Null when there is none. list: what a table that comes to be is to hold.
  Table* Find(int32_t zone, const std::string& name);
  Table* FindOrCreate(int32_t zone, const std::string& name, TableKind kind);

  std::vector<std::string> TableNames(int32_t zone) const;

 private:
  const StoreLimits m_limits;
  const bool m_create_unknown;
  StoreBudget m_budget;
  std::map<std::pair<int32_t, std::string>, std::unique_ptr<Table>> m_tables;
};

}  // namespace OstrandFleet
