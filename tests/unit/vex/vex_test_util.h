// What the tests of the schema library share: a library small enough to be read as bytes, loaded
// libraries that free themselves, images with a checksum that fits whatever was done to them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "common/crc.h"
#include "vex/vex.h"
#include "vex/vex_image.h"
#include "vex/vex_schema.h"

namespace vex_test {

inline VexMeta UserTable() {
  VexMeta user;
  user.name = "user";
  user.version = 3;
  user.customattr2 = "DataProtocolType=VEX";
  user.key_fields = {{"uid", VexFieldType::kUint64, 8, 0}};
  user.value_fields = {{"nick", VexFieldType::kString, 300, 1},
                       {"gold", VexFieldType::kInt32, 4, 3}};
  return user;
}

inline VexMetaLib UserLibrary() { return VexMetaLib{{UserTable()}}; }

// The image of a library that the writer accepts; "" otherwise.
inline std::string ImageOf(const VexMetaLib& lib) {
  std::string image;
  return vex_write_metalib_buf(lib, &image) == kVexOk ? image : std::string();
}

inline void PutBigEndian(uint32_t value, size_t offset, std::string* image) {
  for (size_t i = 0; i < 4; ++i) (*image)[offset + i] = static_cast<char>(value >> (24 - 8 * i));
}

// Sets the checksum in the last four bytes to what the bytes before it call for.
inline std::string Sealed(std::string image) {
  const size_t covered = image.size() - kVexImageChecksumBytes;
  PutBigEndian(OstrandCommon::CRC(image.data(), covered), covered, &image);
  return image;
}

// An image of the given number of tables, made of their bytes as they are.
inline std::string ImageOfBytes(uint16_t tables, const std::string& bytes) {
  std::string image("VEXL\0\1\0\0\0\0\0\0", 12);
  image[6] = static_cast<char>(tables >> 8);
  image[7] = static_cast<char>(tables);
  image += bytes + std::string(4, '\0');
  PutBigEndian(static_cast<uint32_t>(image.size()), 8, &image);
  return Sealed(image);
}

struct FreeLibrary {
  void operator()(VexMetaLib* lib) const { vex_free_lib(&lib); }
};

struct Loaded {
  int code;
  int consumed;  // the length after the call
  std::unique_ptr<VexMetaLib, FreeLibrary> lib;
};

// Loads from a copy that is exactly as long as the image, so that the address sanitizer sees a read
// of one byte too many.
inline Loaded Load(const std::string& image) {
  const std::unique_ptr<char[]> bytes(new char[image.size()]);
  image.copy(bytes.get(), image.size());
  int length = static_cast<int>(image.size());
  LPVEXMETALIB lib = nullptr;
  const int code = vex_load_metalib_buf(&lib, bytes.get(), &length);
  return {code, length, std::unique_ptr<VexMetaLib, FreeLibrary>(lib)};
}

}  // namespace vex_test
