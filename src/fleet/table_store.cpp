#include "fleet/table_store.h"

namespace OstrandFleet {

TableStore::TableStore(const StoreLimits& limits, bool create_unknown)
    : m_limits(limits), m_create_unknown(create_unknown), m_budget{limits.max_bytes} {}

bool TableStore::AddTable(const TableSetup& setup) {
  const auto place = m_tables.find({setup.zone, setup.schema.name});
  const bool has_room = place != m_tables.end() || m_tables.size() < m_limits.max_tables;
  if (!has_room || vex_check_meta(setup.schema) != kVexOk) {
    return false;
  }
  m_tables[{setup.zone, setup.schema.name}] = std::make_unique<Table>(setup, m_limits, m_budget);
  return true;
}

Table* TableStore::Find(int32_t zone, const std::string& name) {
  const auto place = m_tables.find({zone, name});
  return place == m_tables.end() ? nullptr : place->second.get();
}

Table* TableStore::FindOrCreate(int32_t zone, const std::string& name, TableKind kind) {
  Table* const table = Find(zone, name);
  if (table != nullptr || !m_create_unknown) {
    return table;
  }
  TableSetup setup;
  setup.zone = zone;
  setup.schema.name = name;
  setup.kind = kind;
  return AddTable(setup) ? Find(zone, name) : nullptr;
}

std::vector<std::string> TableStore::TableNames(int32_t zone) const {
  std::vector<std::string> names;
  for (const auto& table : m_tables) {
    if (table.first.first == zone) {
      names.push_back(table.first.second);
    }
  }
  return names;
}

}  // namespace OstrandFleet
