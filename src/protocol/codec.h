// Packages to bytes and back: a pure machine without socket, clock, log or allocation.
// docs/protocol.md describes the bytes.
//
// Threads: any; the operations keep no state.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/export.h"
#include "protocol/codec_errors.h"
#include "protocol/ostrand_protocol_cs.h"

namespace ostrand_protocol_cs {

// The fixed part with which every frame's head begins, whatever its version.
constexpr size_t OSTRAND_FIXED_HEAD_LEN = 28;

// Upper bounds of what packing writes, for whoever sizes a buffer.
constexpr size_t OSTRAND_MAX_KEY_SET_WIRE_LEN =
    8 + OSTRAND_MAX_KEY_FIELD_NUM * (8 + OSTRAND_MAX_FIELD_NAME_LEN + OSTRAND_MAX_KEY_FIELD_LEN);
constexpr size_t OSTRAND_MAX_HEAD_WIRE_LEN =
    48 + OSTRAND_MAX_TABLE_NAME_LEN + 4 + OSTRAND_MAX_USER_BUFF_LEN + OSTRAND_MAX_KEY_SET_WIRE_LEN +
    10 + OSTRAND_MAX_SPLIT_TABLE_KEY_BUFF_LEN + 8 + 4 + OSTRAND_MAX_PERF_TEST_LEN;
constexpr size_t OSTRAND_MAX_TTL_REQ_WIRE_LEN =
    4 + OSTRAND_MAX_TTL_RECORD_NUM * (OSTRAND_MAX_KEY_SET_WIRE_LEN + 8);
constexpr size_t OSTRAND_MAX_RECORDS_WIRE_LEN = 8 + OSTRAND_MAX_RECORDS_LEN;
constexpr size_t OSTRAND_MAX_REQ_FRAME_LEN =
    OSTRAND_MAX_HEAD_WIRE_LEN + (OSTRAND_MAX_TTL_REQ_WIRE_LEN > OSTRAND_MAX_RECORDS_WIRE_LEN
                                     ? OSTRAND_MAX_TTL_REQ_WIRE_LEN
                                     : OSTRAND_MAX_RECORDS_WIRE_LEN);
constexpr size_t OSTRAND_MAX_FRAME_LEN =
    OSTRAND_MAX_HEAD_WIRE_LEN + 16 + OSTRAND_MAX_IDL_CONTENT_LEN;
static_assert(OSTRAND_MAX_REQ_FRAME_LEN <= OSTRAND_MAX_FRAME_LEN);

// Packs a whole package.
// buf, len: the output; capacity in, packed length out. zip_buf, zip_len: room for compression; not
// used, may be (null, 0). version: the fields that this protocol version knows are written, and the
// frame says so; a version above OSTRAND_PKG_CURRENT_VERSION counts as that one. log_handle: not
// used. Magic, version and both lengths come from the packing, not from the package. 0, or a
// negative code; then len is unchanged and buf's content is of no use.
OSTRAND_API int PackWholeCsPkgMaybeCompress(char* buf, size_t& len, char* zip_buf, size_t zip_len,
                                            const OStrandPkg& pkg, int version, void* log_handle);

// Unpacks the one frame that fills data[0, len) exactly; every byte is checked before it is used.
// zip_buf, zip_len, extra_buf, extra_len: room for decompression; not used, may be (null, 0).
// log_handle: not used.
// Bodies of commands without a body record (BodyKind::kSkipped) are passed over. An answer with a
// result other than 0 may lack its body; it then gets a constructed one.
// 0, or a negative code; then the package's head is as constructed: no command, nothing in it.
OSTRAND_API int UnpackWholeCsPkgMaybeDecompress(OStrandPkg& pkg, char* zip_buf, size_t zip_len,
                                                const char* data, size_t len, void* log_handle,
                                                char* extra_buf, size_t extra_len);

// Packs the package's head, in the current version, and behind it a body that is in wire form
// already. len: capacity in, packed length out. The codes of PackWholeCsPkgMaybeCompress.
OSTRAND_API int PackHeadBeforeBody(char* buf, size_t& len, const OStrandPkg& pkg, const char* body,
                                   size_t body_len);

// Unpacks the frame's head and checks its whole body, with the codes that
// UnpackWholeCsPkgMaybeDecompress answers for the same bytes, but copies no records, key sets or
// TTL entries: in the package there are none of them. What else a body has (metadata, iResult and
// bHasMorePkgs) is there.
OSTRAND_API int UnpackHeadCheckBody(OStrandPkg& pkg, const char* data, size_t len);

// Unpacks a body that stands alone, without head. 0, or a code of the codec.
OSTRAND_API int UnpackBodyOfCmd(OStrandPkgBody& body, uint32_t cmd, const char* data, size_t len);

// Where in a frame the parts of its head begin.
struct OStrandHeadPlaces {
  size_t table;    // the text's characters
  size_t user;     // the user buffer's bytes
  size_t key_set;  // the key set's version
};

// REQUIRES: a frame that one of the operations above has taken.
OSTRAND_API OStrandHeadPlaces FindHeadPlaces(const char* frame);

}  // namespace ostrand_protocol_cs
