#include "cli/interrupt.h"

#include <gtest/gtest.h>

namespace OstrandCli {
namespace {

void DoNothing(int /*signal_number*/) {}

TEST(InterruptTest, NotesTheFirstSignal) {
  for (const int signal_number : {SIGINT, SIGTERM}) {
    const InterruptGuard guard;
    EXPECT_FALSE(Interrupted());
    raise(signal_number);
    EXPECT_TRUE(Interrupted());
    struct sigaction action {};
    sigaction(signal_number, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_DFL) << "a second one ends the process";
  }
}

TEST(InterruptTest, PutsTheFormerHandlingBack) {
  struct sigaction own {};
  own.sa_handler = DoNothing;
  struct sigaction before {};
  sigaction(SIGINT, &own, &before);
  { const InterruptGuard guard; }
  struct sigaction after {};
  sigaction(SIGINT, &before, &after);
  EXPECT_EQ(after.sa_handler, &DoNothing);
}

}  // namespace
}  // namespace OstrandCli
