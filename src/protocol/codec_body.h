// The bodies of packages on the wire; which one, the head's command says.
#pragma once

#include <cstdint>

#include "protocol/byte_reader.h"
#include "protocol/byte_writer.h"
#include "protocol/ostrand_protocol_cs.h"

namespace ostrand_protocol_cs {

// Writes the body of a command; a failure sticks in the writer.
void PackBody(ByteWriter& out, const OStrandPkgBody& body, uint32_t cmd);

// Reads the body of a command; a failure sticks in the reader and leaves the body half read. Bytes
// behind the last field are left to the caller.
void UnpackBody(ByteReader& in, OStrandPkgBody& body, uint32_t cmd);

// Checks the body of a command as UnpackBody does, with the same failures, but copies no records,
// key sets or TTL entries: what would hold them is left empty, everything else is read.
void CheckBody(ByteReader& in, OStrandPkgBody& body, uint32_t cmd);

}  // namespace ostrand_protocol_cs
