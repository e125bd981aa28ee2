#include "fakes/fault.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace OstrandFakes {

void Fault(const char* format, ...) {
  std::fputs("fakes: ", stderr);
  va_list args;
  va_start(args, format);
  std::vfprintf(stderr, format, args);
  va_end(args);
  std::fputc('\n', stderr);
  std::abort();
}

}  // namespace OstrandFakes
