#include "kavdata/reports/diff.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "fs/paths.h"
#include "fs/unique_fd.h"
#include "kavdata/device/device.h"
#include "kavdata/device/muted_warnings.h"
#include "kavdata/device/version_name.h"
#include "kavdata/judgement/check_archive.h"
#include "kavdata/judgement/zone_diff.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/handles.h"
#include "kavdata/walks/identity.h"
#include "kavdata/walks/source.h"
#include "kavdata/walks/words.h"
#include "kavdata/zones/calendar.h"

namespace kav {
namespace {

constexpr int trouble = 2;
// Problems told per side; more are counted.
constexpr std::size_t problems_told = 3;

// A side's zone names, and what to call it in the last line.
struct kav_side {
  std::string label;
  kav_zone_tree tree;
};

// The zone names in the directory `path` (a zoneinfo/), which belongs to
// the device or to the caller.
kav_zone_tree read_tree(const std::string& path, const std::vector<std::string>& only) {
  const unique_fd zoneinfo(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!zoneinfo.valid()) fail("cannot read " + escaped(path), errno);
  return read_zone_tree(zoneinfo.get(), path, only);
}

// The device's data set that `word` names, or none when it names none.
std::optional<kav_side> device_side(const std::string& word, const std::vector<std::string>& only) {
  const bool known = word == "system" || word == "in-use" || word == "latest";
  if (!known && !version_name_problem(word).empty()) return std::nullopt;
  const kav_muted_warnings muted;
  const kav_device device = read_device(word == "latest");
  const auto side = [&](const kav_built& built, const std::string& zoneinfo) {
    return kav_side{built.dataset ? escaped(built.dataset->version_string()) : escaped(word),
                    read_tree(zoneinfo, only)};
  };
  if (word == "system") return side(device.system, paths::system_zoneinfo);
  if (word == "in-use") {
    if (!device.current_link_usable) throw kav_failure("in-use: the zoneinfo link names no data set");
    return side(device.current, device.current_root.empty()
                                    ? std::string(paths::system_zoneinfo)
                                    : device.current_root + "/zoneinfo");
  }
  if (word == "latest") {
    if (device.latest.content.empty()) throw kav_failure("latest: tz_latest names no data set");
    return side(device.download, device.latest.content + "/zoneinfo");
  }
  const std::string root = paths::update_parent + word;
  struct stat status;
  if (::stat(root.c_str(), &status) != 0) return std::nullopt;
  return side(build_data_set(root), root + "/zoneinfo");
}

// A data set directory of the caller's, reached as check reaches one; root
// reads it as the owner of what it reached.
kav_side directory_side(const std::string& directory, const std::vector<std::string>& only) {
  const unique_fd top(open_given(directory, O_RDONLY | O_DIRECTORY | O_NONBLOCK));
  struct stat status;
  if (!top.valid() || ::fstat(top.get(), &status) != 0)
    fail(escaped(directory) + " cannot be read", errno);
  std::optional<kav_provider> provider;
  std::optional<kav_provider::kav_acting> acting;
  if (::geteuid() == 0) acting.emplace(provider.emplace(status, escaped(directory).c_str()));
  const unique_fd zoneinfo(open_directory_at(top.get(), "zoneinfo"));
  if (!zoneinfo.valid()) fail(escaped(directory) + " has no zoneinfo/ directory", errno);
  const std::size_t end = directory.find_last_not_of('/');
  const std::size_t start = end == std::string::npos ? 0 : directory.rfind('/', end) + 1;
  return {escaped(directory.substr(start, end == std::string::npos ? 0 : end - start + 1)),
          read_zone_tree(zoneinfo.get(), directory + "/zoneinfo", only)};
}

kav_side archive_side(const std::string& file, const std::vector<std::string>& only) {
  kav_unpacked_archive unpacked;
  unpack_to_judge(file, "", unpacked);
  if (!unpacked.verdict.good) throw kav_failure(escaped(file) + ": " + unpacked.verdict.words);
  kav_side side{escaped(unpacked.top), read_tree(unpacked.scratch->path() + "/zoneinfo", only)};
  // Messages name the archive, not the directory it was unpacked in.
  for (std::string& problem : side.tree.problems)
    problem.replace(0, escaped(unpacked.scratch->path()).size(), escaped(file));
  return side;
}

kav_side read_side(const std::string& side, const std::vector<std::string>& only) {
  struct stat status;
  const bool exists = ::stat(side.c_str(), &status) == 0;
  if (side == "-" || (exists && !S_ISDIR(status.st_mode))) return archive_side(side, only);
  if (exists && side != "system" && side != "in-use" && side != "latest")
    return directory_side(side, only);
  if (std::optional<kav_side> found = device_side(side, only)) return std::move(*found);
  throw kav_failure(escaped(side) + " is neither a data set, an archive, nor a data set of the device");
}

// Tells a side's problems, a few of them; whether there were any.
bool told_problems(const kav_zone_tree& tree) {
  const std::vector<std::string>& problems = tree.problems;
  for (std::size_t i = 0; i < problems.size() && i < problems_told; ++i)
    tell("diff", problems[i]);
  if (problems.size() > problems_told)
    tell("diff", "and " + std::to_string(problems.size() - problems_told) + " more");
  return !problems.empty();
}

int bad_input(const std::string& line) {
  tell("diff", line);
  return trouble;
}

}  // namespace

int diff_data_sets(const kav_diff_request& request) {
  const std::optional<std::int64_t> from =
      request.from.empty() ? std::optional<std::int64_t>(std::time(nullptr)) : parse_date(request.from);
  if (!from) return bad_input("--from " + escaped(request.from) + " is not a date as YYYY-MM-DD");
  const std::optional<std::int64_t> until =
      request.until.empty() ? std::optional<std::int64_t>(years_later(*from, 10)) : parse_date(request.until);
  if (!until) return bad_input("--until " + escaped(request.until) + " is not a date as YYYY-MM-DD");
  if (*until <= *from) return bad_input("--until must come after --from");
  kav_side sides[2];
  try {
    sides[0] = read_side(request.old_side, request.zones);
    sides[1] = read_side(request.new_side, request.zones);
  } catch (const kav_failure& failure) {
    return bad_input(failure.what());
  }
  if (told_problems(sides[0].tree) | told_problems(sides[1].tree)) return trouble;
  for (const std::string& zone : request.zones)
    if (!sides[0].tree.names.count(zone) && !sides[1].tree.names.count(zone))
      return bad_input(escaped(zone) + " is a zone name of neither " + sides[0].label + " nor " +
                       sides[1].label);
  std::size_t total = 0;
  const std::vector<kav_name_difference> differences =
      compare_zone_trees(sides[0].tree, sides[1].tree, *from, *until, request.zones, total);
  for (const kav_name_difference& difference : differences)
    std::printf("%s\n", difference_words(difference, sides[0].label, sides[1].label).c_str());
  std::printf("%zu of %zu zone names change between %s and %s from %s to %s\n", differences.size(),
              total, sides[0].label.c_str(), sides[1].label.c_str(), date_words(*from).c_str(),
              date_words(*until).c_str());
  return differences.empty() ? 0 : 1;
}

}  // namespace kav
