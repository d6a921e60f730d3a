#include "kavdata/walks/failure.h"

#include <cstring>

namespace kav {

void fail(const std::string& what, int error) {
  throw kav_failure(what + ": " + std::strerror(error), error);
}

}  // namespace kav
