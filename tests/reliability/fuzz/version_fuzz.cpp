// Any text parses to the unset version or to one that survives formatting and
// parsing again; only digits, lower-case letters and dots are ever accepted.
#include <stdexcept>
#include <string>

#include "fuzz_support.h"
#include "version/kav_version.h"

namespace {

std::string format(const kav::kav_version& v) {
  std::string text = std::to_string(v.year) + v.letters;
  if (v.major >= 0) text += "." + std::to_string(v.major);
  if (v.minor >= 0) text += "." + std::to_string(v.minor);
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  silence_warnings();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  kav::kav_version version;
  try {
    version.parse(text);
  } catch (const std::out_of_range&) {
    return 0;  // a number beyond 32 bits is refused this way by design
  }
  if (version == kav::kav_version()) return 0;
  CHECK(text.find_first_not_of("0123456789abcdefghijklmnopqrstuvwxyz.") ==
        std::string::npos);
  CHECK(version.year >= 0 && !version.letters.empty());
  CHECK(version.minor < 0 || version.major >= 0);
  CHECK(text.find(version.letters) != std::string::npos);
  const kav::kav_version again(format(version));
  CHECK(again == version);
  CHECK(!(again > version) && !(version > again));
  return 0;
}
