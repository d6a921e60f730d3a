#include "kavdata/device/next_start.h"

#include <string_view>

#include "components/kav_icu.h"
#include "components/kav_zoneinfo.h"
#include "dataset/dataset_rules.h"
#include "fs/file_ops.h"
#include "kavdata/device/data_set_words.h"
#include "kavdata/walks/words.h"
#include "startup/localtime_link.h"

namespace kav {
namespace {

// Where the start throws: to its outer handler, or out of a reset.
struct start_failure {
  std::string why;
};

std::string kind_words(const kav_entry& entry) {
  if (entry.type == kav_entry::directory || entry.type == kav_entry::empty_directory)
    return "a directory stands there";
  if (entry.type == kav_entry::unknown) return "it cannot be examined: " + error_words(entry.error);
  if (!entry.parent_writable) return "its directory cannot be written";
  if (entry.type == kav_entry::file) return "it cannot be written";
  return "something stands there";
}

// Plays the start's sequence on the facts: the rules decide as they decide
// at boot, and the writes change the entries as they would change the paths.
class kav_played_start {
 public:
  explicit kav_played_start(const kav_device& device) : device_(device) {
    next_.zoneinfo = device.zoneinfo;
    next_.icutz = device.icutz;
    next_.localtime = device.localtime;
    next_.marker = device.marker;
    next_.record = device.record;
  }

  kav_next_start play() {
    remove_any(next_.marker, paths::needs_cleanup);
    kav_entry old_icu = device_.old_icu;
    remove_any(old_icu, paths::old_icu);
    try {
      select();
    } catch (const start_failure& failure) {
      next_.steps.push_back(failure.why);
      const bool tried = next_.resets;
      try {
        reset();
      } catch (const start_failure& again) {
        next_.steps.push_back(again.why + (tried ? ", on a second try too" : ""));
        next_.exit_status = 1;
        next_.localtime_steps.push_back("does not come to it: it exits 1 before");
        return next_;
      }
    }
    check_localtime();
    return next_;
  }

 private:
  void blocked(const char* path) {
    if (next_.obstacle.empty()) next_.obstacle = path;
  }

  // The start builds `built` here: a file of it may hang the start or swell it.
  void reads(const kav_built& built) {
    if (!next_.obstacle.empty() || built.obstacle.empty()) return;
    next_.obstacle = built.obstacle;
    next_.obstacle_words = built.obstacle_words;
  }

  // remove(3): a file, a link or an empty directory goes, silently or not.
  void remove_any(kav_entry& entry, const char* path) {
    if (entry.type == kav_entry::absent) return;
    if (entry.type == kav_entry::directory || entry.type == kav_entry::unknown ||
        !entry.parent_writable)
      return blocked(path);
    entry = gone(entry);
  }

  // The start's remove: an unlink, warned about and passed over when it fails.
  void unlink_link(kav_entry& entry, const char* path) {
    if (entry.type == kav_entry::empty_directory) return blocked(path);
    remove_any(entry, path);
  }

  void make_link(kav_entry& entry, const char* path, const std::string& target) {
    if (entry.type != kav_entry::absent || !entry.parent_writable) {
      blocked(path);
      throw start_failure{"cannot make " + std::string(path) + ": " + kind_words(entry)};
    }
    entry.type = kav_entry::link;
    entry.target = target;
  }

  static kav_entry gone(const kav_entry& entry) {
    kav_entry absent;
    absent.parent_writable = entry.parent_writable;
    return absent;
  }

  void touch_marker(const kav_dataset& out_of_use) {
    kav_entry& marker = next_.marker;
    if (marker.type == kav_entry::absent && marker.parent_writable) marker.type = kav_entry::file;
    if (marker.type == kav_entry::file)
      return next_.steps.push_back("leaves the clean-up marker: " + data_set_words(out_of_use) +
                                   " goes out of use");
    blocked(paths::needs_cleanup);
    next_.steps.push_back("cannot make the clean-up marker: " + kind_words(marker));
  }

  void write_record(const std::string& text) {
    kav_entry& record = next_.record;
    if (!(record.type == kav_entry::absent && record.parent_writable) &&
        !(record.type == kav_entry::file && record.writable)) {
      blocked(paths::version_diff_record);
      next_.steps.push_back("cannot write the record: " + kind_words(record));
      return;
    }
    record.type = kav_entry::file;
    record.content = text;
    next_.record_written = true;
    next_.steps.push_back("records the switch as " + escaped(text));
  }

  void install(const kav_dataset& data_set) {
    unlink_link(next_.zoneinfo, paths::zoneinfo_link);
    make_link(next_.zoneinfo, paths::zoneinfo_link, data_set.zoneinfo().directory());
    unlink_link(next_.icutz, paths::icutz_link);
    if (!data_set.root().empty())
      make_link(next_.icutz, paths::icutz_link, data_set.icu().directory());
  }

  // Points the links at the system's data; throws where the start throws.
  void reset() {
    next_.resets = true;
    const std::string cannot = "cannot reset the links to the system's data: ";
    if (!device_.system.dataset) throw start_failure{cannot + "the system's data set cannot be used"};
    try {
      install(*device_.system.dataset);
    } catch (const start_failure& failure) {
      throw start_failure{cannot + failure.why};
    }
    next_.steps.push_back("resets the links to the system's data");
  }

  void select() {
    const kav_device& device = device_;
    reads(device.system);
    if (!device.system.dataset)
      throw start_failure{"the system's data set cannot be used: " + device.system.failure};
    if (device.latest.error != 0)
      throw start_failure{"tz_latest cannot be read: " + error_words(device.latest.error)};
    if (!device.current_link_usable) {
      next_.steps.push_back(unusable_link());
      reset();
    }
    reads(device.current);
    if (!device.current.dataset)
      throw start_failure{"the data set in use, " + escaped(data_set_name(device.current_root)) +
                          ", cannot be used: " + device.current.failure};
    const kav_dataset& system = *device.system.dataset;
    const kav_dataset& current = *device.current.dataset;
    const kav_dataset* in_use = &current;
    const kav_in_use_verdict verdict = judge_in_use(current, system);
    if (verdict == kav_in_use_verdict::kept) {
      next_.steps.push_back("keeps " + data_set_words(current) + " in use");
    } else {
      next_.refuses = true;
      next_.steps.push_back(
          "refuses " + data_set_words(current) + ": " +
          (verdict == kav_in_use_verdict::incompatible
               ? format_mismatch(current, system)
               : version_comparison(current, "older than", system, "")));
      reset();
      touch_marker(current);
      in_use = &system;
    }
    if (device.latest.content.empty()) return;
    switch_to_download(system, current, *in_use);
  }

  std::string unusable_link() const {
    const kav_link_read& link = device_.current_link;
    if (link.error != 0) return "the zoneinfo link cannot be read: " + error_words(link.error);
    if (link.content.empty()) return "the zoneinfo link is missing";
    return "the zoneinfo link names neither a data set under " + std::string(paths::update_parent) +
           " nor the system's data: " + escaped(link.content);
  }

  void switch_to_download(const kav_dataset& system, const kav_dataset& current,
                          const kav_dataset& in_use) {
    const kav_built& download = device_.download;
    reads(download);
    if (!download.dataset) {
      const std::string& latest = device_.latest.content;
      next_.download_refusal = download.failure;
      throw start_failure{data_set_name(latest).empty()
                              ? "tz_latest points outside " + std::string(paths::update_parent) +
                                    ": " + escaped(latest)
                              : "tz_latest names " + escaped(data_set_name(latest)) +
                                    ", which cannot be used: " + download.failure};
    }
    const kav_dataset& update = *download.dataset;
    const char* const role = &current == &in_use ? "in use" : "which the links named";
    switch (judge_download(update, system, current)) {
      case kav_download_verdict::incompatible:
        next_.download_incompatible = true;
        return not_taken(update, format_mismatch(update, system));
      case kav_download_verdict::not_newer:
        return not_taken(update, version_comparison(update, "not newer than", current, role));
      case kav_download_verdict::taken:
        break;
    }
    next_.steps.push_back("switches to " + data_set_words(update) + ", " +
                          than("newer than", current, role));
    install(update);
    if (!(in_use == system)) touch_marker(in_use);
    write_record(in_use.version_string() + "_" + update.version_string());
  }

  void not_taken(const kav_dataset& update, const std::string& why) {
    next_.download_refusal = why;
    next_.steps.push_back("does not take " + data_set_words(update) + ": " + why);
  }

  // The local time link: true when it is kept or corrected.
  bool keep_or_correct() {
    const kav_link_read& link = device_.localtime_link;
    std::vector<std::string>& steps = next_.localtime_steps;
    if (link.error != 0) {
      steps.push_back("cannot read it: " + error_words(link.error));
      return false;
    }
    const kav_localtime_plan plan = plan_localtime_link(link.content);
    if (plan.action == kav_localtime_plan::keep) {
      steps.push_back("keeps it: it leads under " + std::string(paths::zoneinfo_link));
      return true;
    }
    if (plan.action == kav_localtime_plan::reset) {
      steps.push_back(link.content.empty()
                          ? "finds none"
                          : "finds it leading neither under " + std::string(paths::zoneinfo_link) +
                                " nor under " + paths::legacy_zoneinfo);
      return false;
    }
    if (!exists_under(next_.zoneinfo, plan.target)) {
      steps.push_back("cannot correct it: " + escaped(plan.target) + " will not exist");
      return false;
    }
    remove_any(next_.localtime, paths::localtime_link);
    try {
      make_link(next_.localtime, paths::localtime_link, plan.target);
    } catch (const start_failure& failure) {
      steps.push_back(failure.why);
      return false;
    }
    steps.push_back("corrects it to " + escaped(plan.target));
    return true;
  }

  void check_localtime() {
    if (keep_or_correct()) return;
    next_.resets = true;
    remove_any(next_.localtime, paths::localtime_link);
    try {
      make_link(next_.localtime, paths::localtime_link, default_localtime_target);
      next_.localtime_steps.push_back("resets it to " + std::string(default_zone));
    } catch (const start_failure& failure) {
      next_.localtime_steps.push_back("cannot reset it (" + failure.why + "): exits 1");
      next_.exit_status = 1;
    }
  }

  const kav_device& device_;
  kav_next_start next_;
};

}  // namespace

kav_next_start predict_next_start(const kav_device& device) {
  kav_next_start next = kav_played_start(device).play();
  // A relative link leads from the link's own directory.
  std::string& zone = next.local_zone_path = next.localtime.target;
  if (!zone.empty() && zone[0] != '/') zone = paths::timezone_dir + zone;
  next.local_zone_exists =
      next.localtime.type == kav_entry::link && exists_under(next.zoneinfo, zone);
  return next;
}

std::string zone_name(const std::string& target) {
  const std::string prefix = paths::zoneinfo_link + std::string("/");
  return target.compare(0, prefix.size(), prefix) == 0 ? target.substr(prefix.size()) : target;
}

bool exists_under(const kav_entry& zoneinfo, const std::string& path) {
  const std::string_view link = paths::zoneinfo_link;
  const bool through_link = path.compare(0, link.size(), link) == 0 &&
                            (path.size() == link.size() || path[link.size()] == '/');
  if (!through_link || zoneinfo.type == kav_entry::directory) return exists(path);
  return zoneinfo.type == kav_entry::link && exists(zoneinfo.target + path.substr(link.size()));
}

}  // namespace kav
