#include "version/kav_version.h"

#include <gtest/gtest.h>
#include <stdexcept>

#include "support/capture.h"

namespace kav::test {
namespace {

TEST(KavVersionTest, ParsesOnlyWholeVersionStrings) {
  const struct {
    std::string text;
    int year;
    std::string letters;
    int major, minor;
  } cases[] = {
      {"2014f.1.0", 2014, "f", 1, 0},
      {"2015a", 2015, "a", -1, -1},
      {"2015a.3", 2015, "a", 3, -1},
      {"0042zz.07.8", 42, "zz", 7, 8},
      {"2147483647a.2147483647.0", 2147483647, "a", 2147483647, 0},
      // Not version strings: the unset value.
      {"2014F.1.0", -1, "", -1, -1},
      {"2014f.1.0/", -1, "", -1, -1},
      {" 2014f.1.0", -1, "", -1, -1},
      {"2014f.1.0.2", -1, "", -1, -1},
      {"2014f..0", -1, "", -1, -1},
      {"2014.1.0", -1, "", -1, -1},
      {"f.1.0", -1, "", -1, -1},
      {"-2014f", -1, "", -1, -1},
      {".1.0", -1, "", -1, -1},
      {"", -1, "", -1, -1},
  };
  for (const auto& c : cases) {
    kav_version version;
    const auto lines = stderr_of([&] { version.parse(c.text); });
    EXPECT_EQ(version.year, c.year) << c.text;
    EXPECT_EQ(version.letters, c.letters) << c.text;
    EXPECT_EQ(version.major, c.major) << c.text;
    EXPECT_EQ(version.minor, c.minor) << c.text;
    if (c.year >= 0) {
      EXPECT_TRUE(lines.empty()) << c.text;
      continue;
    }
    const std::string prefix = std::string(program_invocation_short_name) +
                               ": Cannot parse version string " + c.text;
    ASSERT_EQ(lines.size(), 2u) << c.text;
    EXPECT_EQ(lines[0].rfind(prefix + ", results.size() = 0: ", 0), 0u) << lines[0];
    EXPECT_EQ(lines[1].rfind(prefix + ": ", 0), 0u) << lines[1];
  }
}

TEST(KavVersionTest, NumbersBeyondThirtyTwoBitsThrowKeepingEarlierFields) {
  const struct {
    std::string text;
    int year;
    std::string letters;
  } cases[] = {{"2147483648a", -1, ""},
               {"99999999999f.1.0", -1, ""},
               {"2014f.99999999999", 2014, "f"},
               {"2014f.1.2147483648", 2014, "f"}};
  for (const auto& c : cases) {
    kav_version version;
    const auto lines = stderr_of([&] {
      EXPECT_THROW(version.parse(c.text), std::out_of_range) << c.text;
    });
    EXPECT_TRUE(lines.empty()) << c.text;
    EXPECT_EQ(version.year, c.year) << c.text;
    EXPECT_EQ(version.letters, c.letters) << c.text;
  }
}

TEST(KavVersionTest, OrdersLexicographicallyByField) {
  const struct {
    std::string greater, smaller;
  } cases[] = {
      {"2014f.1.0", "2014e.9.9"}, {"2014f.1.1", "2014f.1.0"}, {"2014f.1.0", "2014f.1"},
      {"2014f.0", "2014f"},       {"2015a", "2014z.9.9"},     {"2014b", "2014aa"},
      {"2014za", "2014z"},        {"2014f.10", "2014f.9"},    {"0a", ""},
  };
  stderr_of([&] {
    for (const auto& c : cases) {
      const kav_version greater(c.greater), smaller(c.smaller);
      EXPECT_TRUE(greater > smaller) << c.greater << " > " << c.smaller;
      EXPECT_FALSE(smaller > greater) << c.smaller << " > " << c.greater;
      EXPECT_FALSE(greater == smaller) << c.greater << " == " << c.smaller;
    }
  });
}

TEST(KavVersionTest, EqualVersionsAreNeitherGreater) {
  for (const std::string text : {"2014f.1.0", "0042zz.07.8", "2015a"}) {
    const kav_version a(text), b(text);
    EXPECT_TRUE(a == b) << text;
    EXPECT_FALSE(a > b) << text;
  }
  EXPECT_TRUE(kav_version("2014f.01") == kav_version("2014f.1"));
  EXPECT_FALSE(kav_version("2014f") == kav_version("2014f.1"));
}

}  // namespace
}  // namespace kav::test
