#include <algorithm>

#include "vex/vex.h"
#include "vex/vex_schema.h"

namespace {

bool HasValueField(const VexMeta& meta, const std::string& name) {
  return std::any_of(meta.value_fields.begin(), meta.value_fields.end(),
                     [&name](const VexField& field) { return field.name == name; });
}

// Compares the fields that stand at one place in both schemas.
int CompareField(const VexField& local, const VexField& server, const VexMeta& server_meta) {
  if (local.name != server.name) {
    return HasValueField(server_meta, local.name) ? kVexDiffFieldOrder : kVexDiffFieldMissing;
  }
  if (local.type != server.type) return kVexDiffFieldType;
  if (local.size != server.size) return kVexDiffFieldSize;
  return kVexOk;
}

}  // namespace

int vex_compare_value_fields(LPVEXMETA local, LPVEXMETA server) {
  if (local == nullptr) return kVexNoLocalMeta;
  if (server == nullptr) return kVexNoServerMeta;

  const size_t local_count = local->value_fields.size();
  const size_t server_count = server->value_fields.size();
  for (size_t i = 0; i < std::min(local_count, server_count); ++i) {
    const int code = CompareField(local->value_fields[i], server->value_fields[i], *server);
    if (code != kVexOk) return code;
  }
  if (server_count < local_count) return kVexDiffServerShorter;
  if (server_count > local_count && server->version <= local->version) return kVexDiffServerLonger;
  return kVexOk;
}
