// Ends a test program that uses the kit wrongly, or whose code under test breaks a contract that a
// fake can see (a connector removed twice, a pause never ended).
#pragma once

namespace OstrandFakes {

// Prints the text and aborts.
[[noreturn]] void Fault(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace OstrandFakes
