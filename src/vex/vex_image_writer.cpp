#include <new>

#include "common/crc.h"
#include "vex/vex_image.h"

namespace {

void PutNumber(uint32_t value, size_t bytes, std::string* out) {
  for (size_t i = bytes; i > 0; --i) {
    out->push_back(static_cast<char>(static_cast<uint8_t>(value >> (8 * (i - 1)))));
  }
}

// REQUIRES: the text's length fits `length_bytes`.
void PutText(const std::string& text, size_t length_bytes, std::string* out) {
  PutNumber(static_cast<uint32_t>(text.size()), length_bytes, out);
  *out += text;
}

void PutField(const VexField& field, std::string* out) {
  PutText(field.name, 1, out);
  PutNumber(static_cast<uint32_t>(field.type), 1, out);
  PutNumber(field.size, 4, out);
  PutNumber(static_cast<uint32_t>(field.since_version), 4, out);
}

void PutTable(const VexMeta& meta, std::string* out) {
  PutText(meta.name, 1, out);
  PutNumber(static_cast<uint32_t>(meta.version), 4, out);
  PutText(meta.customattr2, 2, out);
  PutNumber(static_cast<uint32_t>(meta.key_fields.size()), 1, out);
  PutNumber(static_cast<uint32_t>(meta.value_fields.size()), 1, out);
  for (const VexField& field : meta.key_fields) PutField(field, out);
  for (const VexField& field : meta.value_fields) PutField(field, out);
}

// REQUIRES: vex_check_metalib accepts the library.
int WriteImage(const VexMetaLib& lib, std::string* image) {
  std::string tables;
  for (const VexMeta& meta : lib.tables) PutTable(meta, &tables);
  const size_t image_bytes = kVexImageHeaderBytes + tables.size() + kVexImageChecksumBytes;
  if (image_bytes > kVexImageBytesMax) return kVexImageTooLarge;

  std::string out;
  out.reserve(image_bytes);
  PutNumber(kVexImageMagic, 4, &out);
  PutNumber(kVexImageFormat, 2, &out);
  PutNumber(static_cast<uint32_t>(lib.tables.size()), 2, &out);
  PutNumber(static_cast<uint32_t>(image_bytes), 4, &out);
  out += tables;
  PutNumber(OstrandCommon::CRC(out.data(), out.size()), 4, &out);
  image->swap(out);
  return kVexOk;
}

}  // namespace

int vex_write_metalib_buf(const VexMetaLib& lib, std::string* image) {
  if (image == nullptr) return kVexInvalidArgument;
  const int code = vex_check_metalib(lib);
  if (code != kVexOk) return code;
  try {
    return WriteImage(lib, image);
  } catch (const std::bad_alloc&) {
    return kVexNoMemory;
  }
}
