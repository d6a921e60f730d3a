#include "kavdata/reports/zone_change.h"

#include <fcntl.h>
#include <optional>

#include "fs/paths.h"
#include "fs/unique_fd.h"
#include "kavdata/judgement/zone_diff.h"
#include "kavdata/walks/words.h"
#include "kavdata/zones/calendar.h"

namespace kav {
namespace {

// The zone `name` of the zoneinfo directory `path`, if it reads.
std::optional<kav_zone> zone_in(const std::string& path, const std::string& name) {
  const unique_fd zoneinfo(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!zoneinfo.valid()) return std::nullopt;
  kav_zone_tree tree = read_zone_tree(zoneinfo.get(), path, {name});
  const auto found = tree.names.find(name);
  if (found == tree.names.end()) return std::nullopt;
  return std::move(found->second.zone);
}

}  // namespace

kav_zone_change local_zone_change(const kav_device& device, const kav_next_start& next,
                                  std::int64_t now) {
  kav_zone_change change;
  if (!device.current_link_usable || next.zoneinfo.type != kav_entry::link ||
      !next.local_zone_exists)
    return change;
  const std::string from = device.current_root.empty() ? std::string(paths::system_zoneinfo)
                                                        : device.current_root + "/zoneinfo";
  const std::string& to = next.zoneinfo.target;
  change.zone = zone_name(next.local_zone_path);
  if (from == to || change.zone == next.local_zone_path) return change;
  const std::optional<kav_zone> old_zone = zone_in(from, change.zone);
  const std::optional<kav_zone> new_zone = zone_in(to, change.zone);
  if (!old_zone || !new_zone) return change;
  change.switches = true;
  change.to = to == paths::system_zoneinfo ? "the system's data" : data_set_name(to);
  const kav_zone_difference time = compare_zones(*old_zone, *new_zone, now, years_later(now, 10));
  change.differs = time.differs;
  if (time.differs) change.words = time_change_words(time, now);
  return change;
}

}  // namespace kav
