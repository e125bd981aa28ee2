// The name of this machine.
//
// Threads: every function may be called from any thread.
#pragma once

#include <cstddef>

#include "common/export.h"

namespace OstrandCommon {

// Writes the machine's name, cut to size - 1 characters, NUL-terminated when size > 0. 0, or -1
// when the system does not tell it or the name was cut; what is there is then what the system
// wrote.
OSTRAND_API int GetHostName(char* name, size_t size);

using HostNameFunction = int (*)(char* name, size_t size);

// Puts `function` in the place of gethostname for the whole process; null puts gethostname back.
// For tests.
OSTRAND_API void ReplaceHostName(HostNameFunction function);

}  // namespace OstrandCommon
