// Which sanitizer the tests run under: some make memory figures meaningless, and all of them make
// long tests many times longer.
#pragma once

#include <cstdint>

namespace OstrandFakes {

#if defined(__has_feature)
#define OSTRAND_HAS_FEATURE(name) __has_feature(name)
#else
#define OSTRAND_HAS_FEATURE(name) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || OSTRAND_HAS_FEATURE(address_sanitizer)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif
#if defined(__SANITIZE_THREAD__) || OSTRAND_HAS_FEATURE(thread_sanitizer)
constexpr bool kThreadSanitizer = true;
#else
constexpr bool kThreadSanitizer = false;
#endif
#undef OSTRAND_HAS_FEATURE

// How often a long random test repeats: `rounds`, a tenth of them under a sanitizer.
constexpr int Rounds(int rounds) {
  return kAddressSanitizer || kThreadSanitizer ? (rounds + 9) / 10 : rounds;
}

}  // namespace OstrandFakes
