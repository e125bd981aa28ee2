// Tells whether this process is a fork of the one that made the object.
//
// It asks a page of memory that the kernel clears in a forked child (madvise, MADV_WIPEONFORK), so
// that no lock and no system call is needed. Where the kernel has no such pages it asks for the
// process's id. Threads: any.
#pragma once

#include <sys/types.h>

namespace OstrandService {

class ForkGuard {
 public:
  ForkGuard();
  ~ForkGuard();
  ForkGuard(const ForkGuard&) = delete;
  ForkGuard& operator=(const ForkGuard&) = delete;

  bool InChild() const { return m_page != nullptr ? *m_page == 0 : IsOtherProcess(); }

 private:
  bool IsOtherProcess() const;

  volatile char* m_page = nullptr;  // null: no such pages
  pid_t m_process;
};

}  // namespace OstrandService
