// The application's tables as the options name them, and what a request needs of its own.
//
// Ownership: a copy of the options' tables; borrows their schemas. Threads: any, constant.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "client/client_options.h"
#include "client/client_request.h"

namespace OstrandService {

class TableCatalog {
 public:
  explicit TableCatalog(const ClientOptions& options) : m_tables(options.tables) {}

  // The place of the table among the options' tables; -1 for one that is not there, or, without a
  // zone (kZoneNotGiven), in several of them.
  int Find(int32_t zone_id, std::string_view name) const;

  const TableOptions& At(size_t place) const { return m_tables[place]; }
  size_t size() const { return m_tables.size(); }

  // Makes a request ready to be sent: checks that it is whole, looks its table up, gives its
  // integers the schema's types. 0; CheckComplete's codes; CLIENT_ERR_TABLE; ApplySchema's codes.
  int Prepare(ClientRequest& request) const;

 private:
  const std::vector<TableOptions> m_tables;
};

}  // namespace OstrandService
