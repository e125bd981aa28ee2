// The directory's packages to bytes and back. docs/protocol.md describes the bytes.
//
// On the wire the records have the layout of ostrand_dir.h with every number big-endian: a head of
// 20 bytes, then the body. Threads: any; the operations keep no state.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/export.h"
#include "protocol/ostrand_dir.h"

namespace ostrand_protocol_dir {

constexpr uint16_t OSTRDIR_MAGIC = 0x4F44;
constexpr int16_t OSTRDIR_VERSION = 1;
constexpr size_t OSTRDIR_HEAD_LEN = sizeof(tagOstrdirCSHead);
constexpr size_t OSTRDIR_MAX_FRAME_LEN = sizeof(tagOStrdirCSPkg);

enum OstrdirError : int {
  OSTRDIR_ERR_ARGUMENT = -32787,   // 0x8013: null, or an output that is too small
  OSTRDIR_ERR_MAGIC = -33043,      // 0x8113
  OSTRDIR_ERR_HEAD_LEN = -33299,   // 0x8213: the head is shorter than its fields
  OSTRDIR_ERR_FRAME_LEN = -33555,  // 0x8313: lengths do not add up to the frame, or it is too long
  OSTRDIR_ERR_COMMAND = -33811,    // 0x8413: another command
};

// Length of the frame that begins at `data`: 0 when more bytes are needed, negative when no frame
// of a directory begins like this.
OSTRAND_API int DirFrameLength(const char* data, size_t len);

// Pack one package: len is the capacity, then the packed length. Lengths, magic, version and
// command of the head are set by the packing; pkg.stHead.ullAppID is taken from the package. 0, or
// a code.
OSTRAND_API int PackDirRequest(char* buffer, size_t& len, const tagOStrdirCSPkg& pkg);
OSTRAND_API int PackDirResponse(char* buffer, size_t& len, const tagOStrdirCSPkg& pkg);

// Unpack one whole frame into a record in host order. What a shorter frame does not carry is zero,
// so that the record is whole whatever came; body bytes behind the record are ignored. 0, or a
// code; then the record is zero.
OSTRAND_API int UnpackDirRequest(tagOStrdirCSPkg& pkg, const char* data, size_t len);
OSTRAND_API int UnpackDirResponse(tagOStrdirCSPkg& pkg, const char* data, size_t len);

}  // namespace ostrand_protocol_dir
