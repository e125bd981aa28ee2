#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "common/crc.h"
#include "vex/vex.h"
#include "vex/vex_image.h"
#include "vex/vex_schema.h"

namespace {

// Reads a range of bytes from front to back. A read that reaches beyond the range consumes nothing
// more and answers 0 or "", and so does every later one: callers ask ok() once a record.
class Cursor {
 public:
  Cursor(const char* data, size_t bytes) : m_next(data), m_left(bytes) {}

  uint32_t Number(size_t bytes) {
    if (!Has(bytes)) return 0;
    uint32_t value = 0;
    for (size_t i = 0; i < bytes; ++i) value = value << 8 | static_cast<uint8_t>(m_next[i]);
    Skip(bytes);
    return value;
  }

  std::string Text(size_t length_bytes) {
    const size_t length = Number(length_bytes);
    if (!Has(length)) return {};
    std::string text(m_next, length);
    Skip(length);
    return text;
  }

  bool ok() const { return m_ok; }
  bool at_end() const { return m_left == 0; }

 private:
  bool Has(size_t bytes) {
    m_ok = m_ok && bytes <= m_left;
    return m_ok;
  }
  void Skip(size_t bytes) {
    m_next += bytes;
    m_left -= bytes;
  }

  const char* m_next;
  size_t m_left;
  bool m_ok = true;
};

// The lists grow as their elements are found, never by what a count promises.
void ReadFields(Cursor& cursor, uint32_t count, std::vector<VexField>* fields) {
  for (uint32_t i = 0; i < count; ++i) {
    VexField field;
    field.name = cursor.Text(1);
    field.type = static_cast<VexFieldType>(cursor.Number(1));
    field.size = cursor.Number(4);
    field.since_version = static_cast<int32_t>(cursor.Number(4));
    if (!cursor.ok()) return;
    fields->push_back(std::move(field));
  }
}

VexMeta ReadTable(Cursor& cursor) {
  VexMeta meta;
  meta.name = cursor.Text(1);
  meta.version = static_cast<int32_t>(cursor.Number(4));
  meta.customattr2 = cursor.Text(2);
  const uint32_t key_fields = cursor.Number(1);
  const uint32_t value_fields = cursor.Number(1);
  ReadFields(cursor, key_fields, &meta.key_fields);
  ReadFields(cursor, value_fields, &meta.value_fields);
  return meta;
}

// Reads the tables between header and checksum, all of those bytes.
int ReadTables(Cursor cursor, uint32_t count, VexMetaLib* lib) {
  for (uint32_t i = 0; i < count; ++i) {
    VexMeta meta = ReadTable(cursor);
    if (!cursor.ok()) return kVexBadLength;
    lib->tables.push_back(std::move(meta));
  }
  return cursor.at_end() ? vex_check_metalib(*lib) : kVexBadLength;
}

struct Envelope {
  uint32_t tables = 0;
  size_t image_bytes = 0;
};

// Checks all that can be told without a look into the tables. On success the image has at least its
// header and its checksum, and lies within the available bytes.
int ReadEnvelope(const char* buffer, size_t available, Envelope* envelope) {
  if (available < kVexImageHeaderBytes) return kVexTruncated;
  Cursor header(buffer, kVexImageHeaderBytes);
  if (header.Number(4) != kVexImageMagic) return kVexBadMagic;
  if (header.Number(2) != kVexImageFormat) return kVexBadFormat;
  envelope->tables = header.Number(2);
  envelope->image_bytes = header.Number(4);
  if (envelope->image_bytes < kVexImageHeaderBytes + kVexImageChecksumBytes) return kVexBadLength;
  if (envelope->image_bytes > kVexImageBytesMax) return kVexImageTooLarge;
  if (envelope->image_bytes > available) return kVexTruncated;

  const size_t covered = envelope->image_bytes - kVexImageChecksumBytes;
  Cursor checksum(buffer + covered, kVexImageChecksumBytes);
  return checksum.Number(4) == OstrandCommon::CRC(buffer, covered) ? kVexOk : kVexBadChecksum;
}

}  // namespace

int vex_load_metalib_buf(LPVEXMETALIB* lib, const char* buffer, int* length) {
  if (lib == nullptr) return kVexInvalidArgument;
  *lib = nullptr;
  if (buffer == nullptr || length == nullptr || *length < 0) return kVexInvalidArgument;

  Envelope envelope;
  int code = ReadEnvelope(buffer, static_cast<size_t>(*length), &envelope);
  if (code != kVexOk) return code;
  try {
    auto loaded = std::make_unique<VexMetaLib>();
    const Cursor tables(buffer + kVexImageHeaderBytes,
                        envelope.image_bytes - kVexImageHeaderBytes - kVexImageChecksumBytes);
    code = ReadTables(tables, envelope.tables, loaded.get());
    if (code != kVexOk) return code;
    *lib = loaded.release();
  } catch (const std::bad_alloc&) {
    return kVexNoMemory;
  }
  *length = static_cast<int>(envelope.image_bytes);
  return kVexOk;
}
