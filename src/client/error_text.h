// Every code that a user of the library can meet, with a text for each: of router and runtime, of
// codec and directory, and the results of proxies and servers.
//
// Codes are declared where they arise; this is the one table of all of them, from which the
// reference page of the codes is made. Threads: any.
#pragma once

#include <cstddef>

#include "common/export.h"

namespace OstrandService {

// What gives the code.
enum class ErrorOrigin {
  kLibrary,    // router and runtime, without sending anything or in place of an answer
  kFrame,      // a package that cannot be written or read
  kDirectory,  // a directory's package that cannot be written or read
  kSchema,     // the comparison of the application's schema with the server's
  kProxy,      // the result of an answer, set by the proxy
  kServer,     // the result of an answer, set by a server behind the proxy
};

struct ErrorEntry {
  int code;
  ErrorOrigin origin;
  const char* name;  // of the constant, or of the counter in the statistics; never null
  const char* text;  // a phrase without a full stop
};

// The text of a code: "success" for 0, "unknown error" for a code that is not in the table. Static
// storage.
OSTRAND_API const char* ErrorText(int code);

// The table, without 0, by origin; each code once.
OSTRAND_API const ErrorEntry* AllErrors(size_t& count);

}  // namespace OstrandService
