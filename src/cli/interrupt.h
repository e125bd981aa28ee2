// SIGINT and SIGTERM as a request to come to an end in good order.
//
//   InterruptGuard guard;
//   while (!Interrupted()) { ... }
//
// While a guard lives, the first of either signal only makes Interrupted answer true; a second one
// ends the process as if there were no guard. Threads: guards on the main thread, one at a time;
// Interrupted on any.
#pragma once

#include <signal.h>

namespace OstrandCli {

class InterruptGuard {
 public:
  InterruptGuard();   // Interrupted is false from here on
  ~InterruptGuard();  // the former handling of both signals
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;

 private:
  struct sigaction m_old_int {};
  struct sigaction m_old_term {};
};

bool Interrupted();

}  // namespace OstrandCli
