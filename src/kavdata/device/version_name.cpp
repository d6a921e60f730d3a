#include "kavdata/device/version_name.h"

#include <stdexcept>

#include "kavdata/device/muted_warnings.h"
#include "kavdata/walks/words.h"
#include "version/kav_version.h"

namespace kav {

std::string version_name_problem(const std::string& name, const std::string& hint) {
  const kav_muted_warnings muted;
  try {
    if (kav_version(name) == kav_version()) return escaped(name) + " is not a version string" + hint;
  } catch (const std::out_of_range&) {
    return escaped(name) + " has a number beyond 2147483647";
  }
  return {};
}

}  // namespace kav
