// Tables run in-process where they are much shorter than whole-program rows:
// version parsing and ordering, the regular expressions' traits, and the root
// a zoneinfo link names.
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

#include "dataset/dataset_links.h"
#include "version/kav_regex_traits.h"
#include "version/kav_version.h"

namespace kav {
namespace {

// What `f` returns, or the int it throws, then " / " and the number of lines
// it writes to standard error.
template <class F>
std::string outcome(F f) {
  testing::internal::CaptureStderr();
  std::string result;
  try {
    result = f();
  } catch (int thrown) {
    result = "threw " + std::to_string(thrown);
  }
  const std::string err = testing::internal::GetCapturedStderr();
  return result + " / " + std::to_string(std::count(err.begin(), err.end(), '\n'));
}

std::string fields(const kav_version& v) {
  return std::to_string(v.year) + " " + v.letters + " " + std::to_string(v.major) + " " +
         std::to_string(v.minor);
}

// The fields `text` parses to, or those set before a number beyond 32 bits.
std::string parsed(const std::string& text) {
  kav_version v;
  try {
    v.parse(text);
  } catch (const std::out_of_range&) {
    return "out of range: " + fields(v);
  }
  return fields(v);
}

TEST(KavVersion, ParsesWholeVersionStringsOnly) {
  const char* const cases[][2] = {
      {"2014f.1.0", "2014 f 1 0 / 0"}, {"2015a", "2015 a -1 -1 / 0"},
      {"2015a.3", "2015 a 3 -1 / 0"},  {"0042zz.07.8", "42 zz 7 8 / 0"},
      {"2147483647a.0", "2147483647 a 0 -1 / 0"},
      {"2014F.1.0", "-1  -1 -1 / 2"},  {"2014f.1.0/", "-1  -1 -1 / 2"},
      {" 2014f", "-1  -1 -1 / 2"},     {"2014f.1.0.2", "-1  -1 -1 / 2"},
      {"2014f..0", "-1  -1 -1 / 2"},   {"2014.1.0", "-1  -1 -1 / 2"},
      {"f.1.0", "-1  -1 -1 / 2"},      {"-2014f", "-1  -1 -1 / 2"},
      {".1.0", "-1  -1 -1 / 2"},       {"", "-1  -1 -1 / 2"}, {"2014f-1", "-1  -1 -1 / 2"},
      // Numbers beyond 32 bits throw, keeping the fields set before them.
      {"2147483648a", "out of range: -1  -1 -1 / 0"},
      {"2014f.99999999999", "out of range: 2014 f -1 -1 / 0"},
      {"2014f.1.2147483648", "out of range: 2014 f 1 -1 / 0"},
  };
  for (const auto& [text, expected] : cases)
    EXPECT_EQ(outcome([&] { return parsed(text); }), expected) << text;
}

TEST(KavVersion, OrdersByYearLettersMajorMinor) {
  const char* const cases[][2] = {
      {"2014f.1.0", "2014e.9.9"}, {"2014f.1.1", "2014f.1.0"}, {"2014f.1.0", "2014f.1"},
      {"2014f.0", "2014f"},       {"2015a", "2014z.9.9"},     {"2014b", "2014aa"},
      {"2014za", "2014z"},        {"2014f.10", "2014f.9"},    {"2014f.2.0", "2014f.1.5"}, {"0a", ""}};
  for (const auto& [greater, smaller] : cases) {
    const kav_version a(greater), b = *smaller ? kav_version(smaller) : kav_version();
    EXPECT_TRUE(a > b && !(b > a) && !(a == b)) << greater << " > " << smaller;
    EXPECT_TRUE(a == kav_version(greater) && !(a > kav_version(greater))) << greater;
  }
  EXPECT_TRUE(kav_version("2014f.01") == kav_version("2014f.1"));
}

// What compiling a bracket expression asks of every byte, its primary sort key
// and whether it is in the empty set of classes (named "") or in a named one,
// is answered as the standard traits answer it in the "C" locale.
TEST(KavRegexTraits, AnswerAsTheStandardTraitsInTheCLocale) {
  std::regex_traits<char> standard;
  standard.imbue(std::locale::classic());
  const kav_regex_traits traits;
  std::string bytes;
  for (int b = 0; b < 256; ++b) bytes += static_cast<char>(b);
  EXPECT_EQ(traits.transform_primary(bytes.begin(), bytes.end()),
            standard.transform_primary(bytes.begin(), bytes.end()));
  for (const char& c : bytes) {
    EXPECT_EQ(traits.transform_primary(&c, &c + 1), standard.transform_primary(&c, &c + 1)) << +c;
    for (const char* name : {"", "w", "alpha"}) {
      const auto classes = standard.lookup_classname(name, name + std::strlen(name));
      EXPECT_EQ(traits.isctype(c, classes), standard.isctype(c, classes)) << name << " " << +c;
    }
  }
}

TEST(RootFromZoneinfoLink, UpdateDirectoriesTheSystemDirectoryOrBad) {
  const std::string tz = "/var/db/timezone/tz/";
  const std::string cases[][2] = {
      {tz + "2015a.1.0/zoneinfo", tz + "2015a.1.0 / 0"},
      {tz + "2015a.1.0/zoneinfo/", tz + "2015a.1.0/zoneinfo / 0"},
      {tz + "2015a.1.0/other", tz + "2015a.1.0 / 0"},
      {tz + "x/", tz + "x / 0"},
      {"/usr/share/zoneinfo.default", " / 0"},
      {tz + "2015a.1.0", "threw -1 / 1"},
      {tz + "/zoneinfo", "threw -1 / 1"},
      {tz, "threw -1 / 1"},
      {"/VAR/db/timezone/tz/2015a.1.0/zoneinfo", "threw -1 / 1"},
      {"/usr/share/zoneinfo.default/", "threw -1 / 1"},
      {"tz/2015a.1.0/zoneinfo", "threw -1 / 1"},
  };
  for (const auto& [target, expected] : cases)
    EXPECT_EQ(outcome([&] { return root_from_zoneinfo_link(target); }), expected) << target;
}

}  // namespace
}  // namespace kav
