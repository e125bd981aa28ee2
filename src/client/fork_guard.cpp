#include "client/fork_guard.h"

#include <sys/mman.h>
#include <unistd.h>

namespace OstrandService {
namespace {

constexpr size_t kPageSize = 4096;

}  // namespace

ForkGuard::ForkGuard() : m_process(getpid()) {
  void* const page =
      mmap(nullptr, kPageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) {
    return;
  }
  if (madvise(page, kPageSize, MADV_WIPEONFORK) != 0) {
    munmap(page, kPageSize);
    return;
  }
  m_page = static_cast<volatile char*>(page);
  *m_page = 1;
}

ForkGuard::~ForkGuard() {
  if (m_page != nullptr) {
    munmap(const_cast<char*>(m_page), kPageSize);
  }
}

bool ForkGuard::IsOtherProcess() const { return getpid() != m_process; }

}  // namespace OstrandService
