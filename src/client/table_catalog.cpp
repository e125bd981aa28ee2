#include "client/table_catalog.h"

#include "client/client_errors.h"
#include "client/request_check.h"

namespace OstrandService {

int TableCatalog::Find(int32_t zone_id, std::string_view name) const {
  int found = -1;
  for (size_t place = 0; place < m_tables.size(); ++place) {
    if (m_tables[place].name != name) {
      continue;
    }
    if (zone_id != kZoneNotGiven) {
      if (m_tables[place].zone_id == zone_id) {
        return static_cast<int>(place);
      }
    } else if (found >= 0) {
      return -1;
    } else {
      found = static_cast<int>(place);
    }
  }
  return found;
}

int TableCatalog::Prepare(ClientRequest& request) const {
  if (const int ret = CheckComplete(request)) {
    return ret;
  }
  const RequestHead& head = request.Head();
  const int place = Find(head.zone_id, {head.table_name, head.table_name_len});
  if (place < 0) {
    return CLIENT_ERR_TABLE;
  }
  request.SetTable(static_cast<int16_t>(place));
  const LPVEXMETA schema = m_tables[static_cast<size_t>(place)].schema;
  return schema != nullptr ? request.ApplySchema(schema) : 0;
}

}  // namespace OstrandService
