#include "startup/localtime_link.h"

#include <cstdio>
#include <err.h>
#include <string>
#include <string_view>
#include <unistd.h>

#include "fs/file_ops.h"

namespace kav {
namespace {

constexpr char default_zone[] = "America/Los_Angeles";
constexpr char default_target[] = "/var/db/timezone/zoneinfo/America/Los_Angeles";

bool starts_with(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

// Returns when the link is good or has been corrected; throws when it must be
// reset.
void keep_or_correct() {
  const std::string content = read_symlink(paths::localtime_link);
  // The zone behind the link need not exist: the link itself is right.
  if (starts_with(content, paths::zoneinfo_link)) return;
  if (!starts_with(content, paths::legacy_zoneinfo)) throw -1;

  const std::string corrected =
      paths::zoneinfo_link +
      content.substr(std::string_view(paths::legacy_zoneinfo).size());
  warn("Correcting localtime link to %s", corrected.c_str());
  if (!exists(corrected)) throw -1;
  std::remove(paths::localtime_link);
  create_symlink(corrected, paths::localtime_link);
}

}  // namespace

void check_localtime_link() {
  try {
    keep_or_correct();
    return;
  } catch (...) {
  }
  warn("localtime link invalid; resetting to %s", default_zone);
  std::remove(paths::localtime_link);
  create_symlink(default_target, paths::localtime_link);
}

}  // namespace kav
