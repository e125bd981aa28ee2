#include "vex/vex.h"
#include "vex/vex_schema.h"

void vex_free_lib(LPVEXMETALIB* lib) {
  if (lib == nullptr) return;
  delete *lib;
  *lib = nullptr;
}

LPVEXMETA vex_get_meta_by_name(LPVEXMETALIB lib, const char* name) {
  if (lib == nullptr || name == nullptr) return nullptr;
  for (const VexMeta& meta : lib->tables) {
    if (meta.name == name) return &meta;
  }
  return nullptr;
}

int vex_get_meta_current_version(LPVEXMETA meta) { return meta != nullptr ? meta->version : -1; }

const char* vex_get_meta_customattr2(LPVEXMETA meta) {
  return meta != nullptr && !meta->customattr2.empty() ? meta->customattr2.c_str() : nullptr;
}
