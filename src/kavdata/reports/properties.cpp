// `kavdata show`: the report as NAME=VALUE lines, one a line, every value's
// bytes escaped, for scripts.
#include <cstdio>
#include <string>

#include "components/kav_icu.h"
#include "fs/paths.h"
#include "kavdata/reports/report.h"
#include "kavdata/walks/words.h"

namespace kav {
namespace {

void property(const char* name, const std::string& value) {
  std::printf("%s=%s\n", name, escaped(value).c_str());
}

std::string yes_no(bool value) { return value ? "yes" : "no"; }

std::string link_target(const kav_entry& entry) {
  return entry.type == kav_entry::link ? entry.target : std::string();
}

void data_set_properties(const char* version_name, const char* format_name,
                         const kav_built& built) {
  property(version_name, built.dataset ? built.dataset->version_string() : std::string());
  property(format_name, built.dataset ? built.dataset->icu().format() : std::string());
}

const char* record_state(const kav_next_start& next) {
  if (next.record_written) return "written";
  return next.record.type == kav_entry::absent ? "absent" : "unchanged";
}

}  // namespace

void print_properties(const kav_report& report) {
  const kav_device& device = report.device;
  const kav_next_start& next = report.next;
  data_set_properties("SystemVersion", "SystemICUFormat", device.system);
  property("InUse", device.current_root);
  data_set_properties("InUseVersion", "InUseICUFormat",
                      device.current_link_usable ? device.current : kav_built());
  property("Latest", device.latest.content);
  data_set_properties("LatestVersion", "LatestICUFormat", device.download);
  property("Localtime", device.localtime_link.content);
  property("Marker", yes_no(device.marker.type != kav_entry::absent));
  property("Record", device.record.content);
  property("NextZoneinfo", link_target(next.zoneinfo));
  property("NextICU", link_target(next.icutz));
  property("NextLocaltime", link_target(next.localtime));
  property("NextMarker", yes_no(next.marker.type != kav_entry::absent));
  property("NextRecord", next.record.content);
  property("NextRecordState", record_state(next));
  property("NextExitStatus", std::to_string(next.exit_status));
  property("LocalZoneExists", yes_no(next.local_zone_exists));
  const kav_zone_change& change = report.zone_change;
  property("NextLocalZoneChange", change.differs ? change.zone + " " + change.words : "");
  property("Obstacle", next.obstacle);
  property("TrustedKeys", report.keys.ids());
  for (const kav_data_set_dir& dir : report.data_sets) {
    property("DataSet", roles_text(dir, false) + " " + std::to_string(dir.size) + " " + dir.name);
  }
}

}  // namespace kav
