#include "startup/unguarded_step.h"

#include <err.h>

namespace kav {

bool completes(void (*step)(), const char* failure) {
  try {
    step();
    return true;
  } catch (...) {
    warn("%s", failure);
    return false;
  }
}

}  // namespace kav
