#include "startup/localtime_link.h"

#include <cstdio>
#include <err.h>
#include <string_view>

#include "fs/file_ops.h"

namespace kav {
namespace {

bool starts_with(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

// Returns when the link is good or has been corrected; throws when it must be
// reset.
void keep_or_correct() {
  const kav_localtime_plan plan = plan_localtime_link(read_symlink(paths::localtime_link));
  if (plan.action == kav_localtime_plan::keep) return;
  if (plan.action == kav_localtime_plan::reset) throw -1;
  warn("Correcting localtime link to %s", plan.target.c_str());
  if (!exists(plan.target)) throw -1;
  std::remove(paths::localtime_link);
  create_symlink(plan.target, paths::localtime_link);
}

}  // namespace

kav_localtime_plan plan_localtime_link(const std::string& content) {
  // The zone behind the link need not exist: the link itself is right.
  if (starts_with(content, paths::zoneinfo_link)) return {kav_localtime_plan::keep, {}};
  if (!starts_with(content, paths::legacy_zoneinfo)) return {kav_localtime_plan::reset, {}};
  return {kav_localtime_plan::correct,
          paths::zoneinfo_link + content.substr(std::string_view(paths::legacy_zoneinfo).size())};
}

void check_localtime_link() {
  try {
    keep_or_correct();
    return;
  } catch (...) {
  }
  warn("localtime link invalid; resetting to %s", default_zone);
  std::remove(paths::localtime_link);
  create_symlink(default_localtime_target, paths::localtime_link);
}

}  // namespace kav
