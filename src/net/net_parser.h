// How the connector layer finds the frames in a stream of bytes.
#pragma once

#include "common/export.h"

namespace OSTRNET {

// Ownership: borrowed by the connectors that use it; outlives them.
// Threads: called on the network thread.
class OSTRAND_API IPackParser {
 public:
  virtual ~IPackParser() = default;

  // The length in bytes of the whole frame that begins at `data`, of which `len` bytes are there.
  // 0: more bytes are needed to tell. Negative: no frame begins like this; the connector then drops
  // the connection. A positive result may be larger than `len`: the frame is not whole yet.
  virtual int ParsePackLength(const char* data, unsigned int len) = 0;
};

}  // namespace OSTRNET
