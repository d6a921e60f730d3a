#include <gtest/gtest.h>
#include <stdexcept>

#include "dataset/dataset_links.h"
#include "dataset/kav_dataset.h"
#include "support/capture.h"
#include "support/fake_root.h"

namespace kav::test {
namespace {

const std::string prefix = "/var/db/timezone/tz/";

TEST(RootFromZoneinfoLinkTest, UpdateDirectoriesSystemDirectoryOrBad) {
  const struct {
    std::string target, root;
    bool bad;
  } cases[] = {
      {prefix + "2015a.1.0/zoneinfo", prefix + "2015a.1.0", false},
      {prefix + "2015a.1.0/zoneinfo/", prefix + "2015a.1.0/zoneinfo", false},
      {prefix + "2015a.1.0/other", prefix + "2015a.1.0", false},
      {prefix + "x/zoneinfo", prefix + "x", false},
      {prefix + "x/", prefix + "x", false},
      {"/usr/share/zoneinfo.default", "", false},
      {prefix + "2015a.1.0", "", true},
      {prefix + "/zoneinfo", "", true},
      {prefix, "", true},
      {"/var/db/timezone/tz", "", true},
      {"/VAR/db/timezone/tz/2015a.1.0/zoneinfo", "", true},
      {"/usr/share/zoneinfo.default/", "", true},
      {"/usr/share/zoneinfo", "", true},
      {"tz/2015a.1.0/zoneinfo", "", true},
      {"", "", true},
  };
  for (const auto& c : cases) {
    std::string root;
    int thrown = 0;
    const auto lines = stderr_of([&] {
      try {
        root = root_from_zoneinfo_link(c.target);
      } catch (int value) {
        thrown = value;
      }
    });
    EXPECT_EQ(root, c.root) << c.target;
    EXPECT_EQ(thrown, c.bad ? -1 : 0) << c.target;
    ASSERT_EQ(lines.size(), c.bad ? 1u : 0u) << c.target;
    if (c.bad) {
      EXPECT_EQ(lines[0].rfind(std::string(program_invocation_short_name) +
                                   ": Bad zoneinfo link " + c.target + ": ", 0),
                0u);
    }
  }
}

// A system partition at 2014f with ICU format 44l and three downloads.
std::vector<entry> device(const std::string& system_version) {
  return {file("/usr/share/zoneinfo.default/+VERSION", system_version),
          file("/usr/share/icu/icutzformat.txt", "44l\n"),
          file(prefix + "2015a.1.0/icutz/icutz44l.dat"),
          file(prefix + "2015a/icutz/icutz44l.dat"),
          file(prefix + "2014e.1.0/icutz/icutz44l.dat"),
          file(prefix + "2016a.1.0/icutz/icutz45l.dat")};
}

// How a data set built from `root` turns out, beside the system's.
std::string outcome(const std::string& root) {
  try {
    const kav_dataset system, dataset(root);
    const kav_version& v = dataset.version();
    return dataset.version_string() + " " + std::to_string(v.year) + " " + v.letters +
           " " + std::to_string(v.major) + " " + std::to_string(v.minor) +
           (dataset.compatible_with(system) ? " compatible" : " incompatible") +
           (dataset > system ? " newer" : "") + (system > dataset ? " older" : "") +
           (dataset == system ? " system" : "");
  } catch (const std::invalid_argument& error) {
    return error.what();
  } catch (const std::out_of_range&) {
    return "out of range";
  }
}

TEST(KavDatasetTest, VersionComesFromTheRootOrTheSystemVersionFile) {
  const struct {
    std::string root, system_version, outcome;
    std::size_t warnings;
  } cases[] = {
      {"", "2014f\n", "2014f.1.0 2014 f 1 0 compatible system", 0},
      {"", "2014f", "2014f.1.0 2014 f 1 0 compatible system", 0},
      {"", "", ".1.0 -1  -1 -1 compatible system", 4},
      {prefix + "2015a.1.0", "2014f", "2015a.1.0 2015 a 1 0 compatible newer", 0},
      {prefix + "2015a", "2014f", "2015a 2015 a -1 -1 compatible newer", 0},
      {prefix + "2014e.1.0", "2014f", "2014e.1.0 2014 e 1 0 compatible older", 0},
      {prefix + "2016a.1.0", "2014f", "2016a.1.0 2016 a 1 0 incompatible newer", 0},
      {prefix + "2015a.1.0/", "2014f", "2015a.1.0/ -1  -1 -1 compatible older", 2},
      {prefix + "x", "2014f", "x -1  -1 -1 incompatible older", 2},
      {prefix + "2015a.99999999999", "2014f", "out of range", 0},
      {prefix, "2014f", "badpath", 1},
      {"/usr/share/zoneinfo.default", "2014f", "badpath", 1},
      {"tz/2015a.1.0", "2014f", "badpath", 1},
      {"/var/db/Timezone/tz/2015a.1.0", "2014f", "badpath", 1},
  };
  for (const auto& c : cases) {
    const fake_root root(device(c.system_version));
    const run_result result = root.run_in_process([&] { return outcome(c.root); });
    EXPECT_EQ(result.out, c.outcome) << c.root;
    EXPECT_EQ(result.err.size(), c.warnings) << c.root;
    if (c.outcome == "badpath") {
      EXPECT_EQ(result.err[0].rfind(std::string(program_invocation_short_name) +
                                        ": kav_dataset::create_components: bad path " +
                                        c.root + ": ",
                                    0),
                0u);
    }
  }
}

}  // namespace
}  // namespace kav::test
