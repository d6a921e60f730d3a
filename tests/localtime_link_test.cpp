// The local time link, checked and repaired by the whole program in a fake root.
#include <gtest/gtest.h>

#include "support/fake_root.h"

namespace kav::test {
namespace {

const std::string localtime = "/var/db/timezone/localtime";
const std::string reset_link = "-> /var/db/timezone/zoneinfo/America/Los_Angeles";
const std::string reset_warning =
    "kavsetup: localtime link invalid; resetting to America/Los_Angeles: ";

struct localtime_case {
  std::string name;
  std::vector<entry> local;  // what stands at the local time link, if anything
  std::vector<std::string> err;
  std::string after;
  int status = 0;
};

TEST(LocaltimeLinkTest, KeepsCorrectsOrResets) {
  const localtime_case cases[] = {
      {"already under the zoneinfo link",
       {link(localtime, "/var/db/timezone/zoneinfo/Europe/Paris")}, {},
       "-> /var/db/timezone/zoneinfo/Europe/Paris"},
      {"under the zoneinfo link, zone missing",
       {link(localtime, "/var/db/timezone/zoneinfo/Mars/Olympus")}, {},
       "-> /var/db/timezone/zoneinfo/Mars/Olympus"},
      {"the bare prefix, no slash after it",
       {link(localtime, "/var/db/timezone/zoneinfoX")}, {},
       "-> /var/db/timezone/zoneinfoX"},
      {"older location, zone present",
       {link(localtime, "/usr/share/zoneinfo/Europe/Paris")},
       {"kavsetup: Correcting localtime link to /var/db/timezone/zoneinfo/Europe/Paris: "
        "No such file or directory"},
       "-> /var/db/timezone/zoneinfo/Europe/Paris"},
      {"older prefix without a slash, rewritten path missing",
       {link(localtime, "/usr/share/zoneinfo.default/Europe/Paris")},
       {"kavsetup: Correcting localtime link to "
        "/var/db/timezone/zoneinfo.default/Europe/Paris: No such file or directory",
        reset_warning + "No such file or directory"},
       reset_link},
      {"older location, zone missing",
       {link(localtime, "/usr/share/zoneinfo/Mars/Olympus")},
       {"kavsetup: Correcting localtime link to /var/db/timezone/zoneinfo/Mars/Olympus: "
        "No such file or directory",
        reset_warning + "No such file or directory"},
       reset_link},
      {"no link at all", {}, {reset_warning + "No such file or directory"}, reset_link},
      {"relative link", {link(localtime, "zoneinfo/Europe/Paris")},
       {reset_warning + "No such file or directory"}, reset_link},
      {"prefix in another case", {link(localtime, "/VAR/db/timezone/zoneinfo/UTC")},
       {reset_warning + "No such file or directory"}, reset_link},
      {"a regular file", {file(localtime, "TZif")},
       {"kavsetup: read_symlink: /var/db/timezone/localtime: Invalid argument",
        reset_warning + "Invalid argument"},
       reset_link},
      {"a directory that cannot be replaced", {file(localtime + "/zone")},
       {"kavsetup: read_symlink: /var/db/timezone/localtime: Invalid argument",
        reset_warning + "Invalid argument",
        "kavsetup: create_symlink: from /var/db/timezone/localtime to "
        "/var/db/timezone/zoneinfo/America/Los_Angeles: File exists",
        "kavsetup: Unable to reset localtime link; exiting: File exists"},
       "dir", 1},
  };
  for (const auto& c : cases) {
    fake_root root({link("/var/db/timezone/zoneinfo", "/usr/share/zoneinfo.default"),
                    file("/usr/share/zoneinfo.default/+VERSION", "2014f\n"),
                    file("/usr/share/zoneinfo.default/Europe/Paris", "TZif")});
    for (const entry& item : c.local) root.add(item);
    const run_result result = root.run();
    EXPECT_EQ(result.status, c.status) << c.name;
    EXPECT_EQ(result.out, "") << c.name;
    EXPECT_EQ(result.err, c.err) << c.name;
    EXPECT_EQ(root.describe(localtime), c.after) << c.name;
  }
}

}  // namespace
}  // namespace kav::test
