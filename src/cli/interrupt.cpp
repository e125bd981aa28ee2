#include "cli/interrupt.h"

#include <cstring>

namespace OstrandCli {
namespace {

volatile sig_atomic_t was_interrupted = 0;

extern "C" void OnInterrupt(int /*signal_number*/) { was_interrupted = 1; }

}  // namespace

InterruptGuard::InterruptGuard() {
  was_interrupted = 0;
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigemptyset(&action.sa_mask);
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGINT, &action, &m_old_int);
  sigaction(SIGTERM, &action, &m_old_term);
}

InterruptGuard::~InterruptGuard() {
  sigaction(SIGINT, &m_old_int, nullptr);
  sigaction(SIGTERM, &m_old_term, nullptr);
}

bool Interrupted() { return was_interrupted != 0; }

}  // namespace OstrandCli
