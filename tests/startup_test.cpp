// The whole program, run in a fake root on device trees: which data set the
// links name afterwards, the marker, the record and the messages.
#include <gtest/gtest.h>

#include "support/fake_root.h"

namespace kav::test {
namespace {

const std::string tz = "/var/db/timezone/tz/";
const std::string zoneinfo_link = "/var/db/timezone/zoneinfo";
const std::string icutz_link = "/var/db/icutz";
const std::string latest_link = "/var/db/timezone/tz_latest";
const std::string marker = "/var/db/timezone/needs_cleanup";
const std::string record = "/var/db/timezone/TZVersionDiffRecord";
// Longer than any record a switch writes here, so a partial rewrite shows.
const std::string earlier_record = "2013a.1.0_2013b.1.0 from an earlier switch";

std::vector<entry> operator+(std::vector<entry> a, const std::vector<entry>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

std::vector<entry> update_set(const std::string& name, const std::string& tag) {
  return {file(tz + name + "/zoneinfo/America/Los_Angeles", "TZif"),
          file(tz + name + "/icutz/icutz" + tag + ".dat")};
}

// System data with ICU format 44l, downloads around it, and a local time link
// that needs no repair.
std::vector<entry> device(const std::string& system_version) {
  std::vector<entry> tree = {
      file("/usr/share/zoneinfo.default/+VERSION", system_version),
      file("/usr/share/zoneinfo.default/America/Los_Angeles", "TZif"),
      file("/usr/share/icu/icutzformat.txt", "44l\n"),
      link("/var/db/timezone/localtime", "/var/db/timezone/zoneinfo/America/Los_Angeles"),
      file(record, earlier_record)};
  for (const auto& [name, tag] : {std::pair{"2013a.1.0", "44l"}, {"2014a.1.0", "44l"},
                                  {"2014f.1.0", "44l"}, {"2015a.1.0", "44l"},
                                  {"2016a.1.0", "45b"}, {"foo", "44l"}})
    for (const entry& item : update_set(name, tag)) tree.push_back(item);
  return tree;
}

// Links naming the data set at `name` ("" for the system's) as the data in use.
std::vector<entry> in_use(const std::string& name) {
  if (name.empty()) return {link(zoneinfo_link, "/usr/share/zoneinfo.default")};
  return {link(zoneinfo_link, tz + name + "/zoneinfo"),
          link(icutz_link, tz + name + "/icutz")};
}

std::vector<entry> latest(const std::string& name) {
  return {link(latest_link, tz + name)};
}

// The four outcomes every row checks.
std::vector<state> links_to(const std::string& name, bool marked,
                            const std::string& record_text = earlier_record) {
  return {{zoneinfo_link, name.empty() ? "-> /usr/share/zoneinfo.default"
                                       : "-> " + tz + name + "/zoneinfo"},
          {icutz_link, name.empty() ? "absent" : "-> " + tz + name + "/icutz"},
          {marker, marked ? "file:" : "absent"},
          {record, "file:" + record_text}};
}

const std::string refused = "Symlink points at data incompatible with installed system";
const std::string invalid_current = "Invalid current symlinks; resetting to system partition";
const std::string not_newer = "New update not compatible or older version";
const std::string unable = "Unable to locate data; resetting to system partition";

// A message whose errno text is that of a path that was not found.
std::string noent(const std::string& text) {
  return "kavsetup: " + text + ": No such file or directory";
}

struct startup_case {
  std::string name;
  std::vector<entry> tree;
  std::vector<std::string> err;
  std::vector<state> after;
  int status = 0;
  std::string system_version = "2014b\n";
};

TEST(StartupTest, ChoosesTheDataSetAndKeepsTheLinksConsistent) {
  const startup_case cases[] = {
      {"typical switch from one update to a newer one",
       in_use("2014f.1.0") + latest("2015a.1.0"), {},
       links_to("2015a.1.0", true, "2014f.1.0_2015a.1.0")},
      {"switch from the system data leaves no marker",
       in_use("") + latest("2014f.1.0"), {},
       links_to("2014f.1.0", false, "2014b.1.0_2014f.1.0")},
      {"steady on the system data", in_use(""), {}, links_to("", false)},
      {"steady on an update equal to the system's version",
       in_use("2014f.1.0"), {}, links_to("2014f.1.0", false), 0, "2014f\n"},
      {"update in use older than the system's", in_use("2014a.1.0"),
       {noent(refused)}, links_to("", true)},
      {"update in use with another ICU format", in_use("2016a.1.0"),
       {noent(refused)}, links_to("", true)},
      {"update in use not named by a version", in_use("foo"),
       {noent("Cannot parse version string foo, results.size() = 0"),
        noent("Cannot parse version string foo"), noent(refused)},
       links_to("", true)},
      {"no zoneinfo link", {}, {noent("Bad zoneinfo link "), noent(invalid_current)},
       links_to("", false)},
      {"zoneinfo link to another directory",
       {link(zoneinfo_link, "/usr/share/zoneinfo")},
       {noent("Bad zoneinfo link /usr/share/zoneinfo"), noent(invalid_current)},
       links_to("", false)},
      {"tz_latest names the data in use", in_use("2015a.1.0") + latest("2015a.1.0"),
       {noent(not_newer)}, links_to("2015a.1.0", false)},
      {"tz_latest names an older download", in_use("2015a.1.0") + latest("2014f.1.0"),
       {noent(not_newer)}, links_to("2015a.1.0", false)},
      {"tz_latest names an ICU-incompatible download",
       in_use("2015a.1.0") + latest("2016a.1.0"), {noent(not_newer)},
       links_to("2015a.1.0", false)},
      {"tz_latest names something that is not a version",
       in_use("2015a.1.0") + latest("foo"),
       {noent("Cannot parse version string foo, results.size() = 0"),
        noent("Cannot parse version string foo"), noent(not_newer)},
       links_to("2015a.1.0", false)},
      {"tz_latest outside the update directory",
       in_use("2015a.1.0") + std::vector{link(latest_link, "/usr/share/zoneinfo.default")},
       {noent("kav_dataset::create_components: bad path /usr/share/zoneinfo.default"),
        noent(unable)},
       links_to("", false)},
      {"tz_latest is a plain file", in_use("2015a.1.0") + std::vector{file(latest_link)},
       {"kavsetup: read_symlink: /var/db/timezone/tz_latest: Invalid argument",
        "kavsetup: " + unable + ": Invalid argument"},
       links_to("", false)},
      {"refused data, then a download older than the system's",
       in_use("2013a.1.0") + latest("2014a.1.0"), {noent(refused)},
       links_to("2014a.1.0", true, "2014b.1.0_2014a.1.0")},
      {"switch fails half-way at the ICU link",
       {link(zoneinfo_link, tz + "2014f.1.0/zoneinfo"), file(icutz_link + "/keep"),
        link(latest_link, tz + "2015a.1.0")},
       {"kavsetup: remove: could not remove /var/db/icutz: Is a directory",
        "kavsetup: unlink of ICU softlink failed: Is a directory",
        "kavsetup: create_symlink: from /var/db/icutz to " + tz +
            "2015a.1.0/icutz: File exists",
        "kavsetup: " + unable + ": File exists",
        "kavsetup: remove: could not remove /var/db/icutz: Is a directory",
        "kavsetup: unlink of ICU softlink failed: Is a directory"},
       {{zoneinfo_link, "-> /usr/share/zoneinfo.default"}, {icutz_link, "dir"},
        {marker, "absent"}, {record, "file:" + earlier_record}}},
      {"no reset possible: the zoneinfo link is a directory",
       {file(zoneinfo_link + "/keep")},
       {"kavsetup: read_symlink: /var/db/timezone/zoneinfo: Invalid argument",
        "kavsetup: " + invalid_current + ": Invalid argument",
        "kavsetup: remove: could not remove /var/db/timezone/zoneinfo: Is a directory",
        "kavsetup: Unlink of zoneinfo softlink failed: Is a directory",
        "kavsetup: create_symlink: from /var/db/timezone/zoneinfo to "
        "/usr/share/zoneinfo.default: File exists",
        "kavsetup: " + unable + ": File exists",
        "kavsetup: remove: could not remove /var/db/timezone/zoneinfo: Is a directory",
        "kavsetup: Unlink of zoneinfo softlink failed: Is a directory",
        "kavsetup: create_symlink: from /var/db/timezone/zoneinfo to "
        "/usr/share/zoneinfo.default: File exists",
        "kavsetup: Unable to reset to system partition; exiting: File exists"},
       {{zoneinfo_link, "dir"}, {marker, "absent"}, {record, "file:" + earlier_record}},
       1},
      {"system version beyond 32 bits: nothing can be built", in_use("2014f.1.0"),
       {noent(unable), noent("Unable to reset to system partition; exiting")},
       links_to("2014f.1.0", false), 1, "99999999999b\n"},
  };
  for (const auto& c : cases) {
    const fake_root root(device(c.system_version) + c.tree);
    const run_result result = root.run();
    EXPECT_EQ(result.status, c.status) << c.name;
    EXPECT_EQ(result.out, "") << c.name;
    EXPECT_EQ(result.err, c.err) << c.name;
    expect_states(root, c.after, c.name);
  }
}

}  // namespace
}  // namespace kav::test
