#include "common/host_name.h"

#include <unistd.h>

#include <atomic>
#include <cstring>

namespace OstrandCommon {
namespace {

std::atomic<HostNameFunction> g_host_name{&gethostname};

}  // namespace

int GetHostName(char* name, size_t size) {
  if (name == nullptr || size == 0) {
    return -1;
  }
  std::memset(name, 0, size);
  // The last byte is not offered: a name that is cut would come without its NUL.
  return g_host_name.load(std::memory_order_relaxed)(name, size - 1) == 0 ? 0 : -1;
}

void ReplaceHostName(HostNameFunction function) {
  g_host_name.store(function != nullptr ? function : &gethostname, std::memory_order_relaxed);
}

}  // namespace OstrandCommon
