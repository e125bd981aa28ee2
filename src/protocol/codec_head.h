// The head of a package on the wire.
#pragma once

#include <cstdint>

#include "protocol/byte_reader.h"
#include "protocol/byte_writer.h"
#include "protocol/ostrand_protocol_cs.h"

namespace ostrand_protocol_cs {

// Where the lengths stand that the frame's packing fills in last.
constexpr size_t kHeadLenOffset = 4;
constexpr size_t kBodyLenOffset = 8;

// Where the table name stands, in every version that has one.
constexpr size_t kTableNameOffset = 44;

// Writes the head with lengths of 0; a failure sticks in the writer. REQUIRES: version <=
// OSTRAND_PKG_CURRENT_VERSION.
void PackHead(ByteWriter& out, const OStrandPkgHead& head, uint16_t version);

// Reads a head of the version that it states and leaves alone what a newer version put behind the
// known fields; a failure sticks in the reader and leaves the head half read.
void UnpackHead(ByteReader& in, OStrandPkgHead& head);

}  // namespace ostrand_protocol_cs
