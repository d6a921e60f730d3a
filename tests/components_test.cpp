#include <gtest/gtest.h>

#include "components/first_word.h"
#include "components/kav_icu.h"
#include "components/kav_zoneinfo.h"
#include "support/capture.h"
#include "support/fake_root.h"

namespace kav::test {
namespace {

TEST(FirstWordTest, SkipsLeadingWhiteSpaceAndStopsAtTheNext) {
  const struct {
    std::string content, word;
  } cases[] = {
      {"2014f\n", "2014f"},           {"2014f", "2014f"},
      {"\n\n  \t2014f\n", "2014f"},   {"2014f 2014g\n2015a\n", "2014f"},
      {"\v\f\r44l\r\n", "44l"},       {"", ""},
      {" \n\t\v\f\r", ""},            {std::string(5000, 'x') + " y", std::string(5000, 'x')},
      {"caf\xc3\xa9\xa0x", "caf\xc3\xa9\xa0x"},  // only C-locale white space ends a word
      // Words and white space longer than any one read.
      {std::string(20000, 'x'), std::string(20000, 'x')},
      {std::string(9000, '\n') + "2014f\n", "2014f"},
      {std::string("20\0" "14f\n", 7), std::string("20\0" "14f", 6)},
  };
  for (const auto& c : cases) {
    const fake_root root({file("/+VERSION", c.content)});
    EXPECT_EQ(read_first_word(root.path() + "/+VERSION"), c.word) << c.content;
  }
  const fake_root root({file("/private", "2014f", 0), dir("/dir")});
  EXPECT_EQ(read_first_word(root.path() + "/missing"), "");
  EXPECT_EQ(read_first_word(root.path() + "/dir"), "");
}

TEST(KavIcuTest, TagComesFromTheFirstQualifyingDataFileName) {
  const std::string icutz = "/set/icutz/";
  const struct {
    std::string name;
    std::vector<entry> entries;
    std::string tag;
  } cases[] = {
      {"little endian", {file(icutz + "icutz44l.dat")}, "44l"},
      {"one digit", {file(icutz + "icutz7e.dat")}, "7e"},
      {"among other files",
       {file(icutz + "icutzformat.txt", "99b"), file(icutz + "zone.res"),
        file(icutz + "icutz44b.dat")},
       "44b"},
      {"unknown byte order", {file(icutz + "icutz44x.dat")}, ""},
      {"trailing junk", {file(icutz + "icutz44l.dat.bak")}, ""},
      {"leading junk", {file(icutz + "xicutz44l.dat")}, ""},
      {"no digits", {file(icutz + "icutzl.dat")}, ""},
      {"capitals", {file(icutz + "ICUTZ44L.DAT")}, ""},
      {"private to its owner", {file(icutz + "icutz44l.dat", "", 0640)}, ""},
      {"a link to a data file",
       {file("/set/real.dat"), link(icutz + "icutz44l.dat", "../real.dat")}, ""},
      {"a directory", {dir(icutz + "icutz44l.dat")}, ""},
      {"one level down", {file(icutz + "sub/icutz44l.dat")}, ""},
      {"private one level down beside a match",
       {dir(icutz + "sub", 0), file(icutz + "icutz45e.dat")}, "45e"},
      {"no ICU directory", {dir("/set")}, ""},
  };
  for (const auto& c : cases) {
    const fake_root root(c.entries);
    const auto lines = stderr_of([&] {
      const kav_icu icu(root.path() + "/set");
      EXPECT_EQ(icu.format(), c.tag) << c.name;
      EXPECT_EQ(icu.directory(), root.path() + "/set/icutz") << c.name;
    });
    EXPECT_TRUE(lines.empty()) << c.name;
  }
}

TEST(CompatibleSchemaTest, IcuTagsMustMatchAndKindsMustAgree) {
  const fake_root root({file("/a/icutz/icutz44l.dat"), file("/b/icutz/icutz44l.dat"),
                        file("/c/icutz/icutz44b.dat"), dir("/d/icutz"), dir("/e")});
  const kav_icu a(root.path() + "/a"), b(root.path() + "/b"), c(root.path() + "/c"),
      d(root.path() + "/d"), e(root.path() + "/e");
  const kav_zoneinfo zoneinfo(root.path() + "/a");
  const struct {
    const kav_dataset_component &self, &other;
    bool compatible;
    std::size_t warnings;
  } cases[] = {{a, b, true, 0},        {a, a, true, 0},         {a, c, false, 0},
               {c, a, false, 0},       {d, e, true, 0},         {a, d, false, 0},
               {a, zoneinfo, false, 1}, {zoneinfo, a, true, 0}, {zoneinfo, zoneinfo, true, 0}};
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    bool compatible = false;
    const auto lines =
        stderr_of([&] { compatible = cases[i].self.compatible_schema(cases[i].other); });
    EXPECT_EQ(compatible, cases[i].compatible) << "case " << i;
    ASSERT_EQ(lines.size(), cases[i].warnings) << "case " << i;
    if (!lines.empty()) {
      EXPECT_NE(lines[0].find(": kav_icu::compatible_schema: could not dynamic_cast "
                              "other component: "),
                std::string::npos);
    }
  }
}

}  // namespace
}  // namespace kav::test
