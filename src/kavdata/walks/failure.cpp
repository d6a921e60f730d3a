#include "kavdata/walks/failure.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace kav {

void fail(const std::string& what, int error) {
  throw kav_failure(what + ": " + std::strerror(error), error);
}

void tell(const char* command, const std::string& line) {
  std::fprintf(stderr, "%s: %s: %s\n", program_invocation_short_name, command, line.c_str());
}

}  // namespace kav
