// Any text, up to the longest word a version file may hold, parses to the
// unset version, to an out-of-range refusal, or to a version that survives
// formatting and parsing again; only digits, letters and dots are accepted.
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "version/kav_version.h"

#define CHECK(condition) \
  if (!(condition)) std::fprintf(stderr, "failed: %s\n", #condition), std::abort()

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // warn(3) writes to `stderr`; millions of warnings would drown the fuzzer's
  // own report, which keeps the real stream.
  stderr = std::fopen("/dev/null", "w");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  kav::kav_version v;
  try {
    v.parse(text);
  } catch (const std::out_of_range&) {
    return 0;
  }
  if (v == kav::kav_version()) return 0;
  CHECK(text.find_first_not_of("0123456789abcdefghijklmnopqrstuvwxyz.") == std::string::npos);
  CHECK(v.year >= 0 && !v.letters.empty() && (v.minor < 0 || v.major >= 0));
  std::string again = std::to_string(v.year) + v.letters;
  if (v.major >= 0) again += "." + std::to_string(v.major);
  if (v.minor >= 0) again += "." + std::to_string(v.minor);
  CHECK(kav::kav_version(again) == v);
  return 0;
}
