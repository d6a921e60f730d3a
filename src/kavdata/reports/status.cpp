// `kavdata status`: the report for a person, a labelled block of lines.
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "components/kav_icu.h"
#include "fs/paths.h"
#include "kavdata/reports/report.h"
#include "kavdata/walks/words.h"

namespace kav {
namespace {

// Prints `lines` under `label`, the first beside it.
void block(const char* label, const std::vector<std::string>& lines) {
  for (std::size_t i = 0; i < lines.size(); ++i)
    std::printf("%16s%s %s\n", i == 0 ? label : "", i == 0 ? ":" : " ", lines[i].c_str());
}

// A name for a person: escaped, and cut short when very long.
std::string shown(const std::string& bytes) {
  const std::string text = escaped(bytes);
  if (text.size() <= 80) return text;
  return text.substr(0, 40) + "... (" + std::to_string(bytes.size()) + " bytes)";
}

std::string read_problem(const std::string& what, int error) {
  if (error == 0) return {};
  return what + (error == ENOENT ? " is missing" : " cannot be read: " + error_words(error));
}

std::string entry_words(const char* path, const kav_entry& entry) {
  switch (entry.type) {
    case kav_entry::link: return std::string(path) + " -> " + shown(entry.target);
    case kav_entry::absent: return std::string(path) + ": none";
    case kav_entry::file: return std::string(path) + ": a file, not a link";
    case kav_entry::empty_directory:
    case kav_entry::directory: return std::string(path) + ": a directory, not a link";
    case kav_entry::other: return std::string(path) + ": neither a link nor a file";
    case kav_entry::unknown: break;
  }
  return std::string(path) + ": cannot be examined: " + error_words(entry.error);
}

// A data set's version and ICU format, then what stood in the way of reading
// them.
std::vector<std::string> data_set_lines(const kav_built& built, const std::string& format_source) {
  if (!built.dataset) return {built.failure};
  const kav_dataset& data_set = *built.dataset;
  const std::string& format = data_set.icu().format();
  std::vector<std::string> lines = {shown(data_set.version_string()) + ", ICU format " +
                                    (format.empty() ? "none" : shown(format))};
  if (data_set.version() == kav_version())
    lines.push_back(shown(data_set.version_string()) + " is not a version string");
  const std::string problem = read_problem(format_source, built.format_error);
  if (!problem.empty()) lines.push_back(problem);
  return lines;
}

std::vector<std::string> system_lines(const kav_device& device) {
  const std::string version_file = paths::system_zoneinfo + std::string("/+VERSION");
  const std::string format_file = paths::system_icu + std::string("/icutzformat.txt");
  std::vector<std::string> lines = data_set_lines(device.system, format_file);
  lines.insert(lines.begin() + 1, "from " + version_file + " and " + format_file);
  const std::string problem = read_problem(version_file, device.system.version_error);
  if (!problem.empty()) lines.push_back(problem);
  return lines;
}

std::vector<std::string> in_use_lines(const kav_device& device) {
  std::vector<std::string> lines = {"unknown: the zoneinfo link names no data set"};
  if (device.current_link_usable)
    lines = device.current_root.empty() ? std::vector<std::string>{"the system's data"}
                                        : data_set_lines(device.current, "its icutz directory");
  lines.push_back(entry_words(paths::zoneinfo_link, device.zoneinfo));
  lines.push_back(entry_words(paths::icutz_link, device.icutz));
  return lines;
}

std::vector<std::string> latest_lines(const kav_device& device) {
  const kav_link_read& latest = device.latest;
  if (latest.error != 0) return {"cannot be read: " + error_words(latest.error)};
  if (latest.content.empty()) return {"none"};
  std::vector<std::string> lines = data_set_lines(device.download, "its icutz directory");
  lines.push_back(std::string(paths::latest_link) + " -> " + shown(latest.content));
  return lines;
}

std::vector<std::string> next_start_lines(const kav_next_start& next) {
  std::vector<std::string> lines;
  if (!next.obstacle_words.empty())
    lines.push_back(shown(next.obstacle) + " " + next.obstacle_words +
                    "; what follows is a best guess");
  else if (!next.obstacle.empty())
    lines.push_back("cannot write " + shown(next.obstacle) + "; what follows is a best guess");
  lines.insert(lines.end(), next.steps.begin(), next.steps.end());
  lines.push_back(next.exit_status == 0 ? "exits 0" : "exits 1");
  return lines;
}

// The zone the local time link leads to after the next start, and in which
// data set.
std::string zone_words(const kav_next_start& next) {
  const std::string zone = zone_name(next.local_zone_path);
  const char* const verdict = next.local_zone_exists ? " exists" : " does not exist";
  if (zone == next.local_zone_path || next.zoneinfo.type != kav_entry::link)
    return shown(zone) + verdict;
  const std::string& target = next.zoneinfo.target;
  return shown(zone) + verdict + " in " +
         (target == paths::system_zoneinfo ? "the system's data" : shown(data_set_name(target)));
}

std::vector<std::string> localtime_lines(const kav_report& report) {
  const kav_next_start& next = report.next;
  std::vector<std::string> lines = {entry_words(paths::localtime_link, report.device.localtime)};
  for (const std::string& step : next.localtime_steps) lines.push_back("the next start " + step);
  if (next.localtime.type != kav_entry::link)
    lines.push_back("the device will have no local time link: it will show UTC");
  else if (!next.local_zone_exists)
    lines.push_back(zone_words(next) + ": the device will show UTC");
  else
    lines.push_back(zone_words(next));
  const kav_zone_change& change = report.zone_change;
  if (change.switches && change.differs)
    lines.push_back("the switch to " + shown(change.to) + " changes " + shown(change.zone) + " " +
                    escaped(change.words));
  else if (change.switches)
    lines.push_back("the switch to " + shown(change.to) + " changes nothing for " +
                    shown(change.zone) + " in the next ten years");
  return lines;
}

std::vector<std::string> data_set_dir_lines(const kav_report& report) {
  if (report.data_sets_error != 0)
    return {std::string(paths::update_parent) + " cannot be listed: " +
            error_words(report.data_sets_error)};
  if (report.data_sets.empty()) return {"none"};
  std::vector<std::string> lines;
  for (const kav_data_set_dir& dir : report.data_sets) {
    std::string size = dir.directory ? size_words(dir.size) : "";
    if (dir.error != 0) size = "at least " + size + " (" + error_words(dir.error) + ")";
    char line[512];
    std::snprintf(line, sizeof line, "%-14s %9s  %s", shown(dir.name).c_str(), size.c_str(),
                  roles_text(dir, true).c_str());
    lines.push_back(line);
  }
  return lines;
}

}  // namespace

void print_status(const kav_report& report) {
  const kav_device& device = report.device;
  block("System", system_lines(device));
  block("In use", in_use_lines(device));
  block("tz_latest", latest_lines(device));
  block("Next start", next_start_lines(report.next));
  block("Local time", localtime_lines(report));
  const kav_entry& record = device.record;
  block("Last switch",
        {record.type == kav_entry::absent ? "none"
         : record.type != kav_entry::file ? entry_words(paths::version_diff_record, record)
         : record.error != 0 ? read_problem(paths::version_diff_record, record.error)
                             : shown(record.content)});
  block("Clean-up marker", {device.marker.type == kav_entry::absent ? "none" : "present"});
  block("Data sets", data_set_dir_lines(report));
  std::vector<std::string> keys = report.keys.unusable;
  keys.insert(keys.begin(), report.keys.keys.empty() ? "none: stage takes unsigned data"
                                                     : report.keys.ids());
  block("Trusted keys", keys);
}

}  // namespace kav
