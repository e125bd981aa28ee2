// Loads any bytes as a schema image: once as they are, and once dressed up with a good header and
// checksum, so that the tables are reached. What loads must be a library that writes back to the
// very same bytes, and every table of it must be found and agree with itself.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "common/crc.h"
#include "vex/vex.h"
#include "vex/vex_image.h"
#include "vex/vex_schema.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

void CheckLibrary(LPVEXMETALIB lib, const std::string& image) {
  std::string written;
  Require(vex_write_metalib_buf(*lib, &written) == kVexOk);
  Require(written == image);
  for (const VexMeta& meta : lib->tables) {
    Require(vex_get_meta_by_name(lib, meta.name.c_str()) == &meta);
    Require(vex_get_meta_current_version(&meta) >= 0);
    Require((vex_get_meta_customattr2(&meta) == nullptr) == meta.customattr2.empty());
    Require(vex_compare_value_fields(&meta, &meta) == kVexOk);
  }
  // Any two tables compare without harm.
  if (!lib->tables.empty()) vex_compare_value_fields(&lib->tables.front(), &lib->tables.back());
}

// The bytes are copied so that they end where their memory ends.
void LoadAndCheck(const char* data, size_t size) {
  const std::unique_ptr<char[]> bytes(new char[size]);
  std::copy(data, data + size, bytes.get());
  int length = static_cast<int>(size);
  LPVEXMETALIB lib = nullptr;
  const int code = vex_load_metalib_buf(&lib, bytes.get(), &length);
  Require((code == kVexOk) == (lib != nullptr));
  Require(length >= 0 && static_cast<size_t>(length) <= size);
  if (lib != nullptr) CheckLibrary(lib, std::string(data, static_cast<size_t>(length)));
  vex_free_lib(&lib);
}

void PutBigEndian(uint64_t value, size_t offset, size_t bytes, std::string* image) {
  for (size_t i = 0; i < bytes; ++i) {
    (*image)[offset + i] = static_cast<char>(value >> (8 * (bytes - 1 - i)));
  }
}

// Keeps the number of tables and the tables.
std::string DressedUp(std::string image) {
  const size_t covered = image.size() - kVexImageChecksumBytes;
  PutBigEndian(kVexImageMagic, 0, 4, &image);
  PutBigEndian(kVexImageFormat, 4, 2, &image);
  PutBigEndian(image.size(), 8, 4, &image);
  PutBigEndian(OstrandCommon::CRC(image.data(), covered), covered, 4, &image);
  return image;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const char* bytes = reinterpret_cast<const char*>(data);
  LoadAndCheck(bytes, size);
  if (size >= kVexImageHeaderBytes + kVexImageChecksumBytes) {
    const std::string image = DressedUp(std::string(bytes, size));
    LoadAndCheck(image.data(), image.size());
  }
  return 0;
}
