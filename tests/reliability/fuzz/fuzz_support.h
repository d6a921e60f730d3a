#pragma once

#include <cstdio>
#include <cstdlib>

// The code under test warns through warn(3), which writes to `stderr`; point
// that stream at /dev/null so that millions of warnings do not drown the
// fuzzer's own output (libFuzzer and the sanitizers keep the real stream).
inline void silence_warnings() {
  if (FILE* null = std::fopen("/dev/null", "w")) stderr = null;
}

// Stops the fuzzer with a message when an invariant does not hold.
#define CHECK(condition)                                                    \
  do {                                                                      \
    if (!(condition)) {                                                     \
      std::fprintf(stdout, "invariant failed: %s\n", #condition);           \
      std::fflush(stdout);                                                  \
      std::abort();                                                         \
    }                                                                       \
  } while (0)
