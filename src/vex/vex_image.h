// The binary image of a schema library, and its writer. The loader is vex_load_metalib_buf in
// vex.h.
//
// All numbers are big-endian. A text is its length in bytes and then the bytes, without a NUL.
//
//   offset  bytes  image
//        0      4  magic, "VEXL"
//        4      2  format version, 1
//        6      2  number of tables, at most 4096
//        8      4  bytes of the whole image, the checksum included
//       12         the tables, one behind the other
//      end      4  CRC-32 of all bytes before it
//
//           bytes  table
//             1+n  name, 1 to 31 bytes
//               4  schema version, int32, not negative
//             2+n  customattr2, up to 4095 bytes; length 0: none
//               1  number of key fields, at most 8
//               1  number of value fields, at most 128
//                  the key fields, then the value fields
//
//           bytes  field
//             1+n  name, 1 to 31 bytes
//               1  type, a VexFieldType
//               4  size in bytes, uint32
//               4  since-version, int32, not negative
//
// One library has exactly one image. A change of the layout raises the format version, and loaders
// refuse versions that they do not know.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "common/export.h"
#include "vex/vex_schema.h"

constexpr uint32_t kVexImageMagic = 0x5645584C;
constexpr uint16_t kVexImageFormat = 1;
constexpr size_t kVexImageHeaderBytes = 12;
constexpr size_t kVexImageChecksumBytes = 4;
// The largest image that writer and loader accept: what fits, with a byte to spare, into the answer
// by which a proxy sends it.
constexpr size_t kVexImageBytesMax = 10485759;

// Writes the image of a library. `image` is replaced on success and unchanged on failure.
//
// Refuses, with its code, what vex_check_metalib refuses; kVexImageTooLarge above
// kVexImageBytesMax; kVexInvalidArgument for a null `image`; kVexNoMemory. Nothing throws; any
// thread.
OSTRAND_API int vex_write_metalib_buf(const VexMetaLib& lib, std::string* image);
