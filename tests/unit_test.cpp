// Tables run in-process where they are much shorter than whole-program rows:
// version parsing and ordering, and the root a zoneinfo link names.
#include <algorithm>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

#include "dataset/dataset_links.h"
#include "version/kav_version.h"

namespace kav {
namespace {

// "year letters major minor", or "out of range"; `warnings` counts the lines
// written to standard error.
std::string parsed(const std::string& text, int& warnings) {
  testing::internal::CaptureStderr();
  std::string result;
  kav_version v;
  try {
    v.parse(text);
    result = std::to_string(v.year) + " " + v.letters + " " + std::to_string(v.major) +
             " " + std::to_string(v.minor);
  } catch (const std::out_of_range&) {
    result = "out of range after " + std::to_string(v.year) + " " + v.letters;
  }
  const std::string err = testing::internal::GetCapturedStderr();
  warnings = static_cast<int>(std::count(err.begin(), err.end(), '\n'));
  return result;
}

TEST(KavVersion, ParsesWholeVersionStringsOnly) {
  const struct {
    std::string text, fields;
    int warnings;
  } cases[] = {
      {"2014f.1.0", "2014 f 1 0", 0},   {"2015a", "2015 a -1 -1", 0},
      {"2015a.3", "2015 a 3 -1", 0},    {"0042zz.07.8", "42 zz 7 8", 0},
      {"2147483647a.0", "2147483647 a 0 -1", 0},
      {"2014F.1.0", "-1  -1 -1", 2},    {"2014f.1.0/", "-1  -1 -1", 2},
      {" 2014f", "-1  -1 -1", 2},       {"2014f.1.0.2", "-1  -1 -1", 2},
      {"2014f..0", "-1  -1 -1", 2},     {"2014.1.0", "-1  -1 -1", 2},
      {"f.1.0", "-1  -1 -1", 2},        {"-2014f", "-1  -1 -1", 2},
      {".1.0", "-1  -1 -1", 2},         {"", "-1  -1 -1", 2},
      {"2147483648a", "out of range after -1 ", 0},
      {"2014f.99999999999", "out of range after 2014 f", 0},
      {"2014f.1.2147483648", "out of range after 2014 f", 0},
  };
  for (const auto& c : cases) {
    int warnings = 0;
    EXPECT_EQ(parsed(c.text, warnings), c.fields) << c.text;
    EXPECT_EQ(warnings, c.warnings) << c.text;
  }
}

TEST(KavVersion, OrdersByYearLettersMajorMinor) {
  testing::internal::CaptureStderr();  // "" warns
  const struct {
    const char *greater, *smaller;
  } cases[] = {{"2014f.1.0", "2014e.9.9"}, {"2014f.1.1", "2014f.1.0"}, {"2014f.1.0", "2014f.1"},
               {"2014f.0", "2014f"},       {"2015a", "2014z.9.9"},     {"2014b", "2014aa"},
               {"2014za", "2014z"},        {"2014f.10", "2014f.9"},    {"0a", ""}};
  for (const auto& c : cases) {
    const kav_version greater(c.greater), smaller(c.smaller);
    EXPECT_TRUE(greater > smaller) << c.greater << " > " << c.smaller;
    EXPECT_FALSE(smaller > greater || greater == smaller) << c.greater << " ~ " << c.smaller;
  }
  testing::internal::GetCapturedStderr();
  for (const char* text : {"2014f.1.0", "0042zz.07.8", "2015a"})
    EXPECT_TRUE(kav_version(text) == kav_version(text) && !(kav_version(text) > kav_version(text)));
  EXPECT_TRUE(kav_version("2014f.01") == kav_version("2014f.1"));
}

TEST(RootFromZoneinfoLink, UpdateDirectoriesTheSystemDirectoryOrBad) {
  const std::string tz = "/var/db/timezone/tz/";
  const struct {
    std::string target, root;  // root "bad": warns and throws -1
  } cases[] = {
      {tz + "2015a.1.0/zoneinfo", tz + "2015a.1.0"},
      {tz + "2015a.1.0/zoneinfo/", tz + "2015a.1.0/zoneinfo"},
      {tz + "2015a.1.0/other", tz + "2015a.1.0"},
      {tz + "x/", tz + "x"},
      {"/usr/share/zoneinfo.default", ""},
      {tz + "2015a.1.0", "bad"},
      {tz + "/zoneinfo", "bad"},
      {tz, "bad"},
      {"/VAR/db/timezone/tz/2015a.1.0/zoneinfo", "bad"},
      {"/usr/share/zoneinfo.default/", "bad"},
      {"tz/2015a.1.0/zoneinfo", "bad"},
  };
  for (const auto& c : cases) {
    testing::internal::CaptureStderr();
    std::string root;
    try {
      root = root_from_zoneinfo_link(c.target);
    } catch (int thrown) {
      root = thrown == -1 ? "bad" : "threw " + std::to_string(thrown);
    }
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(root, c.root) << c.target;
    EXPECT_EQ(err.find("Bad zoneinfo link " + c.target + ": ") != std::string::npos,
              c.root == "bad")
        << c.target;
  }
}

}  // namespace
}  // namespace kav
