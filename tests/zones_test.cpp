// The zone file reader against its oracles: the C library's localtime_r on
// every zone of this machine's tz database and of a slim build of it, on
// files made here, and on TZ strings; zdump -v for comparisons of zones; and
// malformed files, each refused for its reason.
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "kavdata/judgement/zone_diff.h"
#include "kavdata/judgement/zone_tree.h"
#include "kavdata/zones/calendar.h"
#include "kavdata/zones/tz_rule.h"
#include "kavdata/zones/zone_compare.h"
#include "kavdata/zones/zone_file.h"
#include "kavdata/zones/zone_time.h"

namespace kav {
namespace {

const std::string zoneinfo = "/usr/share/zoneinfo";
// zic and zdump are in sbin and bin; an ordinary user's PATH may lack sbin.
const std::string tools_path = "PATH=/usr/sbin:/usr/bin:/sbin:/bin ";

std::string file_bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

std::string command_output(const std::string& command) {
  std::string output;
  if (FILE* pipe = ::popen((tools_path + command).c_str(), "r")) {
    char buffer[65536];
    for (std::size_t length; (length = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
      output.append(buffer, length);
    ::pclose(pipe);
  }
  return output;
}

// A directory of its own under $TMPDIR, deleted with everything in it.
class kav_temp_dir {
 public:
  kav_temp_dir() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/zones-test.XXXXXX";
    path_ = ::mkdtemp(pattern.data()) ? pattern : "";
  }
  ~kav_temp_dir() {
    if (!path_.empty()) command_output("rm -rf '" + path_ + "'");
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// This machine's tz database compiled slim into `directory`, from its own
// source; false when zic is missing.
bool compile_slim(const std::string& directory) {
  if (std::system((tools_path + "zic --version >/dev/null 2>&1").c_str()) != 0) return false;
  const std::string command = "zic -b slim -d '" + directory + "' " + zoneinfo + "/tzdata.zi";
  return std::system((tools_path + command).c_str()) == 0;
}

// The names under `root` of the zone files (those beginning with "TZif"),
// not links to them, posix/ and right/ left out; in byte order.
std::vector<std::string> zone_names(const std::string& root) {
  std::vector<std::string> names;
  std::istringstream found(command_output(
      "cd '" + root + "' && find . -path ./posix -prune -o -path ./right -prune -o -type f -print"));
  for (std::string line; std::getline(found, line);) {
    const std::string name = line.substr(2);
    if (file_bytes(root + "/" + name).compare(0, 4, "TZif") == 0) names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Compares the reader with localtime_r at `instants`, under TZ=`tz`;
// returns a line for each instant where they disagree.
std::vector<std::string> disagreements(const std::string& tz,
                                       const std::function<kav_local_time(std::int64_t)>& reader,
                                       const std::vector<std::int64_t>& instants) {
  ::setenv("TZ", tz.c_str(), 1);
  ::tzset();
  std::vector<std::string> lines;
  for (const std::int64_t instant : instants) {
    const std::time_t t = instant;
    struct tm broken;
    if (::localtime_r(&t, &broken) == nullptr) continue;
    const kav_local_time libc{static_cast<std::int32_t>(broken.tm_gmtoff), broken.tm_isdst > 0,
                              broken.tm_zone ? broken.tm_zone : ""};
    const kav_local_time ours = reader(instant);
    if (libc != ours)
      lines.push_back(tz + " at " + std::to_string(instant) + ": the C library says " +
                      local_time_words(libc) + ", the reader " + local_time_words(ours));
  }
  return lines;
}

// Instants at which to ask a zone: far before and after, each transition
// and the second before it, every change up to 2100 and the second before
// it, and every 97 days from 1900 to 2100.
std::vector<std::int64_t> probe_instants(const kav_zone& zone) {
  std::vector<std::int64_t> instants = {-(std::int64_t{1} << 47), -(std::int64_t{1} << 40),
                                        std::int64_t{INT32_MIN} - 1, INT32_MIN, -1, 0,
                                        INT32_MAX, std::int64_t{INT32_MAX} + 1,
                                        std::int64_t{1} << 40, std::int64_t{1} << 47};
  for (const std::int64_t time : zone.transitions) instants.insert(instants.end(), {time - 1, time});
  const std::int64_t y1900 = start_of_year(1900), y2100 = start_of_year(2100);
  const std::int64_t last = zone.transitions.empty() ? y1900 : zone.transitions.back();
  for (const kav_change& change : changes_between(zone, std::clamp(last, y1900, y2100), y2100))
    instants.insert(instants.end(), {change.instant - 1, change.instant});
  for (std::int64_t t = y1900; t < y2100; t += 97 * seconds_per_day) instants.push_back(t);
  return instants;
}

// Every zone file under `root` must read, and read as the C library reads it.
void expect_as_libc(const std::string& root, std::size_t& zones, std::size_t& instants) {
  std::vector<std::string> lines;
  for (const std::string& name : zone_names(root)) {
    const std::string path = root + "/" + name;
    const kav_zone_read read = read_zone(file_bytes(path));
    if (!read.problem.empty()) {
      lines.push_back(path + ": " + read.problem);
      continue;
    }
    const std::vector<std::int64_t> probes = probe_instants(read.zone);
    const auto at = [&](std::int64_t t) { return local_time_at(read.zone, t); };
    for (const std::string& line : disagreements(":" + path, at, probes)) lines.push_back(line);
    ++zones;
    instants += probes.size();
  }
  for (std::size_t i = 0; i < lines.size() && i < 20; ++i) ADD_FAILURE() << lines[i];
  EXPECT_EQ(lines.size(), 0u);
}

TEST(ZoneFiles, EveryZoneOfThisMachineFatAndSlimReadsAsTheCLibraryReadsIt) {
  std::size_t zones = 0, instants = 0;
  expect_as_libc(zoneinfo, zones, instants);
  EXPECT_GT(zones, 300u) << "this machine's tz database is too small to prove anything";
  const kav_temp_dir slim;
  if (!compile_slim(slim.path())) GTEST_SKIP() << "zic is missing: the slim zones are not tried";
  expect_as_libc(slim.path(), zones, instants);
  std::printf("%zu zone files, %zu instants\n", zones, instants);
}

// Local time under the TZ string `rule`, read as a footer is.
kav_local_time under_rule(const std::string& rule, std::int64_t instant) {
  return rule_local_time(parse_tz_rule(rule).rule, instant);
}

TEST(TzRules, ReadAsTheCLibraryReadsThem) {
  // Both hemispheres, every kind of day, rule times past 24 hours and below
  // zero, quoted names, and daylight saving time all year.
  const char* const rules[] = {
      "EST5EDT,M3.2.0,M11.1.0", "CET-1CEST,M3.5.0,M10.5.0/3", "<-03>3<-02>,M3.5.0/-2,M10.5.0/-1",
      "IST-2IDT,M3.4.4/26,M10.5.0", "AEST-10AEDT,M10.1.0,M4.1.0/3", "<+1245>-12:45<+1345>,M9.5.0/2:45,M4.1.0/3:45",
      "XXX3EDT4,0/0,J365/25", "WET0WEST,J60/1,J300/-3", "HST10HDT9:30,59/1:30:15,364/167",
      "<+03>-3", "NST3:30NDT,M3.2.0/0:01,M11.1.0/0:01", "ABC-23:59:59DEF,M2.5.6/-167,M12.5.3/23"};
  std::vector<std::int64_t> instants;
  for (std::int64_t year : {1900, 1960, 1969, 1970, 1971, 1972, 2024, 2025, 2100, 2400, 4000})
    for (std::int64_t t = start_of_year(year) - 2 * seconds_per_day;
         t < start_of_year(year + 1) + seconds_per_day; t += 3 * 3600 + 7)
      instants.push_back(t);
  for (const char* rule : rules) {
    ASSERT_EQ(parse_tz_rule(rule).problem, "") << rule;
    std::vector<std::int64_t> probes = instants;
    std::vector<std::int64_t> changes;
    for (std::int64_t year : {1960, 1970, 1971, 2024, 2025, 2100})
      rule_change_candidates(parse_tz_rule(rule).rule, year, changes);
    for (const std::int64_t change : changes) probes.insert(probes.end(), {change - 1, change});
    const auto at = [&](std::int64_t t) { return under_rule(rule, t); };
    for (const std::string& line : disagreements(rule, at, probes)) ADD_FAILURE() << line;
  }
}

TEST(TzRules, RefuseWhatIsNoTzString) {
  const char* const cases[][2] = {
      {"", "standard time has no name of three or more characters"},
      {"CE-1", "standard time has no name of three or more characters"},
      {"<+0>-3", "standard time has no name of three or more characters"},
      {"<+03-3", "standard time has no name of three or more characters"},
      {"CET", "standard time has no offset of at most 24 hours"},
      {"CET-25", "standard time has no offset of at most 24 hours"},
      {"CET-1:60", "standard time has no offset of at most 24 hours"},
      {"CET-1X", "daylight saving time has no name of three or more characters"},
      {"CET-1CEST", "daylight saving time has no rule"},
      {"CET-1CEST-25,M3.5.0,M10.5.0", "daylight saving time has no offset of at most 24 hours, or no rule"},
      {"CET-1CEST-2M3.5.0,M10.5.0", "daylight saving time has no offset of at most 24 hours, or no rule"},
      {"CET-1CEST,M3.5.0", "its rule's end is not Jn, n or Mm.w.d, with a time of at most 167 hours"},
      {"CET-1CEST,M13.5.0,M10.5.0", "its rule's start is not Jn, n or Mm.w.d, with a time of at most 167 hours"},
      {"CET-1CEST,M3.6.0,M10.5.0", "its rule's start is not Jn, n or Mm.w.d, with a time of at most 167 hours"},
      {"CET-1CEST,M3.5.7,M10.5.0", "its rule's start is not Jn, n or Mm.w.d, with a time of at most 167 hours"},
      {"CET-1CEST,J0,M10.5.0", "its rule's start is not Jn, n or Mm.w.d, with a time of at most 167 hours"},
      {"CET-1CEST,366,M10.5.0", "its rule's start is not Jn, n or Mm.w.d, with a time of at most 167 hours"},
      {"CET-1CEST,M3.5.0/168,M10.5.0", "its rule's start is not Jn, n or Mm.w.d, with a time of at most 167 hours"},
      {"CET-1CEST,M3.5.0/,M10.5.0", "its rule's start is not Jn, n or Mm.w.d, with a time of at most 167 hours"},
      {"CET-1CEST,M3.5.0,M10.5.0/2:5x", "it goes on after its rule"},
      {"CET-1CEST,M3.5.0,M10.5.0,", "it goes on after its rule"},
      {"CET-1 ", "daylight saving time has no name of three or more characters"},
  };
  for (const auto& [rule, problem] : cases) EXPECT_EQ(parse_tz_rule(rule).problem, problem) << rule;
}

// A zone file made here: `version` '\0' writes the 32-bit data alone,
// another the 64-bit data and footer after a minimal first block, as a slim
// file has them.
struct kav_tzif {
  char version = '2';
  std::vector<std::int64_t> times;
  std::vector<std::uint8_t> indices;
  struct kav_type {
    std::int32_t offset;
    std::uint8_t dst, abbreviation;
  };
  std::vector<kav_type> types = {{3600, 0, 0}};
  std::string characters = std::string("CET\0CEST\0", 9);
  std::string footer = "\nCET-1CEST,M3.5.0,M10.5.0/3\n";
  std::uint32_t leaps = 0;

  static void put(std::string& out, std::uint64_t value, int width) {
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
      out += static_cast<char>(value >> shift & 0xff);
  }
  static std::string header(char version, std::uint32_t times, std::uint32_t types,
                            std::uint32_t characters, std::uint32_t leaps) {
    std::string out = std::string("TZif") + version + std::string(15, '\0');
    for (std::uint32_t count : {0u, 0u, leaps, times, types, characters}) put(out, count, 4);
    return out;
  }
  std::string bytes() const {
    const int width = version == '\0' ? 4 : 8;
    std::string out = version == '\0' ? "" : header(version, 0, 1, 1, 0) + std::string(7, '\0');
    out += header(version, times.size(), types.size(), characters.size(), leaps);
    for (std::int64_t time : times) put(out, static_cast<std::uint64_t>(time), width);
    for (std::uint8_t index : indices) out += static_cast<char>(index);
    for (const kav_type& type : types) {
      put(out, static_cast<std::uint32_t>(type.offset), 4);
      out += {static_cast<char>(type.dst), static_cast<char>(type.abbreviation)};
    }
    out += characters + std::string(leaps * (width + 4), '\0');
    return version == '\0' ? out : out + footer;
  }
};

// Offsets in the bytes of a version 2 kav_tzif of its second header's counts.
constexpr std::size_t time_count_at = 51 + 32, type_count_at = 51 + 36, flag_count_at = 51 + 24;

std::string with(std::string bytes, std::size_t at, const std::string& patch) {
  return bytes.replace(at, patch.size(), patch);
}

// Winter and summer time in Paris in 2024 and 2025, then the footer.
kav_tzif paris() {
  kav_tzif file;
  file.times = {1711846800, 1729990800, 1743296400, 1761440400};
  file.indices = {1, 0, 1, 0};
  file.types = {{3600, 0, 0}, {7200, 1, 4}};
  return file;
}

TEST(ZoneFiles, MadeHereReadAsTheCLibraryReadsThem) {
  std::vector<std::pair<const char*, kav_tzif>> files;
  files.emplace_back("version 2", paris());
  kav_tzif file = paris();
  file.version = '\0';  // its 32-bit data alone, times before 1970 too, and no footer
  file.times.insert(file.times.begin(), -1000000000);
  file.indices.insert(file.indices.begin(), 1);
  files.emplace_back("version 1", file);
  for (char version : {'3', '4'}) {
    file = paris();
    file.version = version;
    file.footer = "\n<+0330>-3:30<+0430>,J79/24,J263/24\n";
    files.emplace_back("versions 3 and 4", file);
  }
  file = paris();
  file.times = {};
  file.indices = {};
  files.emplace_back("slim, no transition: the footer is not read", file);
  file = paris();
  file.types = {{7200, 1, 4}, {3600, 0, 0}};
  file.indices = {0, 1, 0, 1};
  files.emplace_back("first type DST: the first standard one before the first transition", file);
  file.types = {{7200, 1, 4}, {10800, 1, 0}};
  files.emplace_back("every type DST: the first", file);
  file = paris();
  file.footer = "\n\n";
  files.emplace_back("an empty footer: the last type", file);
  file = paris();
  file.times = {-1000000000};
  file.indices = {0};
  files.emplace_back("the footer from 1938, with the days of the years before 1971 counted from 1970",
                     file);
  file.times = {-(std::int64_t{1} << 59)};
  file.leaps = 2;
  files.emplace_back("a transition at the dawn of time, and leap seconds", file);
  const kav_temp_dir directory;
  for (const auto& [what, made] : files) {
    // A name of its own: the C library reads a zone again only for a new TZ.
    const std::string path = directory.path() + "/" + std::to_string(&made - &files[0].second);
    std::ofstream(path, std::ios::binary) << made.bytes();
    const kav_zone_read read = read_zone(made.bytes());
    ASSERT_EQ(read.problem, "") << what;
    std::vector<std::int64_t> probes = probe_instants(read.zone);
    for (std::int64_t t = start_of_year(1930); t < start_of_year(1975); t += 5 * seconds_per_day)
      probes.push_back(t);
    const auto at = [&](std::int64_t t) { return local_time_at(read.zone, t); };
    for (const std::string& line : disagreements(":" + path, at, probes))
      ADD_FAILURE() << what << ": " << line;
  }
}

TEST(ZoneFiles, RefuseMalformedOnesForTheirReason) {
  const std::string good = paris().bytes();
  kav_tzif unsorted = paris(), equal = paris(), bad_index = paris(), bad_dst = paris(),
           bad_abbreviation = paris(), unterminated = paris();
  unsorted.times[2] = unsorted.times[0] - 1;
  equal.times[2] = equal.times[1];
  bad_index.indices[3] = 2;
  bad_dst.types[1].dst = 2;
  bad_abbreviation.types[1].abbreviation = 9;
  unterminated.characters = "CET\0CEST";
  const std::pair<std::string, std::string> cases[] = {
      {"", "it does not begin with TZif"},
      {"TZiF" + good.substr(4), "it does not begin with TZif"},
      {good.substr(0, 43), "truncated: it ends within its header"},
      {good.substr(0, 50), "truncated: its header counts 7 bytes of data, 6 remain"},
      {good.substr(0, 51 + 43), "truncated: it ends within its header"},
      {good.substr(0, 110), "truncated: its header counts 57 bytes of data, 15 remain"},
      {with(good, 51, "TZ1f"), "its second header does not begin with TZif"},
      {with(good, time_count_at, std::string("\xff\xff\xff\xff", 4)),
       "truncated: its header counts 38654705676 bytes of data, 85 remain"},
      {with(good, type_count_at, std::string("\0\0\0\0", 4)), "its counts are impossible"},
      {with(good, flag_count_at, std::string("\0\0\0\3", 4)), "its counts are impossible"},
      {unsorted.bytes(), "its transitions are not sorted"},
      {equal.bytes(), "its transitions are not sorted"},
      {bad_index.bytes(), "a type index is out of range"},
      {bad_dst.bytes(), "a DST flag is neither 0 nor 1"},
      {bad_abbreviation.bytes(), "an abbreviation index is out of its table"},
      {unterminated.bytes(), "an abbreviation index is out of its table"},
      {good.substr(0, good.size() - 28), "truncated: it ends before its footer"},
      {good.substr(0, good.size() - 1), "truncated: its footer has no end"},
      {good + "\n", "its footer does not parse: bytes follow it"},
      {with(good, good.size() - 28, "X"), "its footer does not parse: it does not begin with a newline"},
      {with(good, good.size() - 3, "x"), "its footer does not parse: it goes on after its rule"},
      {with(good, good.size() - 23, "x"),
       "its footer does not parse: standard time has no offset of at most 24 hours"},
  };
  for (const auto& [bytes, problem] : cases) EXPECT_EQ(read_zone(bytes).problem, problem) << bytes.size();
  // No prefix of a good file, of any version, is taken for a whole one.
  kav_tzif version1 = paris();
  version1.version = '\0';
  for (const std::string& whole : {good, version1.bytes()})
    for (std::size_t length = 0; length < whole.size(); ++length) {
      const std::string problem = read_zone(whole.substr(0, length)).problem;
      EXPECT_TRUE(length == 0 ? problem == not_a_zone_file : problem.rfind("truncated: ", 0) == 0)
          << length << ": " << problem;
    }
}

// A change of local time as zdump -v shows it: the lines for the second
// before it and for it, less the zone's name; by its instant.
using kav_zdump_changes = std::map<std::int64_t, std::string>;

// zdump -v over [from, until) for the zones `names` under each of `roots`,
// by root and name.
std::map<std::string, kav_zdump_changes> zdump(const std::vector<std::string>& roots,
                                               const std::vector<std::string>& names,
                                               std::int64_t from, std::int64_t until) {
  std::string command = "zdump -v -t " + std::to_string(from) + "," + std::to_string(until);
  for (const std::string& root : roots)
    for (const std::string& name : names) command += " '" + root + "/" + name + "'";
  std::map<std::string, kav_zdump_changes> changes;
  std::istringstream lines(command_output(command));
  std::string previous;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t gap = line.find("  ");
    if (gap == std::string::npos || line.find("= NULL") != std::string::npos) continue;
    const std::string text = line.substr(line.find_first_not_of(' ', gap));
    if (previous.empty()) {
      previous = text;
      continue;
    }
    struct tm broken = {};
    ::strptime(text.c_str(), "%a %b %e %H:%M:%S %Y UT", &broken);
    changes[line.substr(0, gap)][::timegm(&broken)] = previous + "\n" + text;
    previous.clear();
  }
  return changes;
}

// The comparison of two zones against zdump's: whether they differ, where
// zdump first shows it (unless they differ from the window's start, where it
// shows nothing), and at how many instants their changes differ.
std::string compared(const kav_zone& old_zone, const kav_zone& new_zone, std::int64_t from,
                     std::int64_t until) {
  const kav_zone_difference difference = compare_zones(old_zone, new_zone, from, until);
  return !difference.differs ? "same"
         : difference.first == from
             ? "differ from the start, " + std::to_string(difference.changes)
             : "differ at " + instant_words(difference.first) + ", " +
                   std::to_string(difference.changes);
}

std::string zdump_compared(const kav_zdump_changes& olds, const kav_zdump_changes& news,
                           bool differ_at_start) {
  std::size_t changes = 0;
  std::int64_t first = 0;
  for (auto o = olds.begin(), n = news.begin(); o != olds.end() || n != news.end();) {
    const bool old_first = n == news.end() || (o != olds.end() && o->first <= n->first);
    const std::int64_t instant = old_first ? o->first : n->first;
    const bool in_old = o != olds.end() && o->first == instant;
    const bool in_new = n != news.end() && n->first == instant;
    if (!in_old || !in_new || o->second != n->second) {
      if (changes++ == 0) first = instant;
    }
    if (in_old) ++o;
    if (in_new) ++n;
  }
  return differ_at_start ? "differ from the start, " + std::to_string(changes)
         : changes == 0  ? "same"
                         : "differ at " + instant_words(first) + ", " + std::to_string(changes);
}

TEST(ZoneComparison, AgreesWithZdumpOnFatAgainstSlimAndOnNeighbours) {
  const kav_temp_dir slim;
  if (!compile_slim(slim.path())) GTEST_SKIP() << "zic is missing: no slim zones to compare";
  std::vector<std::string> names;
  for (const std::string& name : zone_names(slim.path()))
    if (file_bytes(zoneinfo + "/" + name).compare(0, 4, "TZif") == 0) names.push_back(name);
  std::map<std::string, kav_zone> zones;
  for (const std::string& root : {zoneinfo, slim.path()})
    for (const std::string& name : names) zones[root + "/" + name] = read_zone(file_bytes(root + "/" + name)).zone;
  // A year of the past, and the years in which this machine's slim zones
  // read otherwise than its fat ones (with tzdata 2025b).
  std::set<std::string> differing;
  for (const char* from_date : {"1976-01-01", "2022-06-01", "2073-06-01"}) {
    const std::int64_t from = *parse_date(from_date), until = from + 365 * seconds_per_day;
    auto dumped = zdump({zoneinfo, slim.path()}, names, from, until);
    for (std::size_t i = 0; i < names.size(); ++i) {
      const std::string fat = zoneinfo + "/" + names[i], thin = slim.path() + "/" + names[i];
      const std::string neighbour = zoneinfo + "/" + names[(i + 1) % names.size()];
      for (const auto& [old_path, new_path] : {std::pair(fat, thin), std::pair(fat, neighbour)}) {
        const std::string ours = compared(zones[old_path], zones[new_path], from, until);
        const bool at_start = local_time_at(zones[old_path], from) != local_time_at(zones[new_path], from);
        EXPECT_EQ(ours, zdump_compared(dumped[old_path], dumped[new_path], at_start))
            << old_path << " against " << new_path << " from " << from_date;
        if (new_path == thin && ours != "same") differing.insert(names[i]);
      }
    }
  }
  std::string listed;
  for (const std::string& name : differing) listed += name + " ";
  std::printf("fat and slim differ for %s\n", listed.c_str());
}

// Two releases of a small source: a rule that moves in 2030, a zone that
// takes up DST in 2027, one that gains an abbreviation, one removed, one
// added, links kept and moved.
const char* const releases[2] = {
    "Rule EU 1981 max - Mar lastSun 1:00u 1:00 S\n"
    "Rule EU 1996 max - Oct lastSun 1:00u 0 -\n"
    "Zone Europe/Paris 1:00 EU CE%sT\nZone Europe/Berlin 1:00 EU CE%sT\n"
    "Zone America/Nuuk -2:00 - -02\nZone Asia/Old 5:00 - +05\nZone Asia/Same 7:00 - +07\n"
    "Link Europe/Berlin Europe/Busingen\nLink Europe/Paris Europe/Monaco\n",
    "Rule EU 1981 max - Mar lastSun 1:00u 1:00 S\n"
    "Rule EU 1996 2029 - Oct lastSun 1:00u 0 -\nRule EU 2030 max - Oct Sun>=22 1:00u 0 -\n"
    "Zone Europe/Paris 1:00 EU CE%sT\nZone Europe/Berlin 1:00 - CET 2031 Jan 1\n 1:00 EU CE%sT\n"
    "Rule Nuuk 2027 max - Mar lastSun 1:00u 1:00 -\nRule Nuuk 2027 max - Oct lastSun 1:00u 0 -\n"
    "Zone America/Nuuk -2:00 Nuuk -02/-01\nZone Asia/New 6:00 - +06\nZone Asia/Same 7:00 - +07\n"
    "Link Europe/Berlin Europe/Busingen\nLink Europe/Berlin Europe/Monaco\n"};

TEST(ZoneComparison, OfTwoReleasesListsWhatZdumpShowsDiffering) {
  const kav_temp_dir directory;
  kav_zone_tree trees[2];
  for (int i = 0; i < 2; ++i) {
    const std::string root = directory.path() + "/" + std::to_string(i);
    std::ofstream(root + ".zi") << releases[i];
    if (std::system((tools_path + "zic -d " + root + " " + root + ".zi").c_str()) != 0)
      GTEST_SKIP() << "zic is missing: no releases to compare";
    const int fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    trees[i] = read_zone_tree(fd, root);
    ::close(fd);
    ASSERT_EQ(trees[i].problems, std::vector<std::string>());
  }
  const std::int64_t from = *parse_date("2025-01-01"), until = *parse_date("2035-01-01");
  std::size_t total = 0;
  std::string ours;
  for (const kav_name_difference& difference :
       compare_zone_trees(trees[0], trees[1], from, until, {}, total))
    ours += difference.name + (difference.time.differs ? " " + instant_words(difference.time.first) : "") + "\n";
  std::vector<std::string> names;
  for (const kav_zone_tree& tree : trees)
    for (const auto& entry : tree.names) names.push_back(entry.first);
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  EXPECT_EQ(total, names.size());
  auto dumped = zdump({directory.path() + "/0", directory.path() + "/1"}, names, from, until);
  std::string theirs;
  for (const std::string& name : names) {
    const std::string old_path = directory.path() + "/0/" + name, new_path = directory.path() + "/1/" + name;
    if (!trees[0].names.count(name) || !trees[1].names.count(name)) {
      theirs += name + "\n";
      continue;
    }
    const std::string zdump_says = zdump_compared(dumped[old_path], dumped[new_path], false);
    if (zdump_says != "same")
      theirs += name + " " + zdump_says.substr(10, zdump_says.rfind(',') - 10) + "\n";
  }
  EXPECT_EQ(ours, theirs);
  EXPECT_EQ(std::count(ours.begin(), ours.end(), '\n'), 7) << ours;
}

}  // namespace
}  // namespace kav
