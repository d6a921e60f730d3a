#include "kavdata/writers/latest.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "fs/paths.h"
#include "kavdata/device/device.h"
#include "kavdata/device/version_name.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/handles.h"
#include "kavdata/walks/words.h"
#include "kavdata/writers/change.h"
#include "kavdata/writers/latest_link.h"
#include "kavdata/writers/staging.h"

namespace kav {
namespace {

// `text` as show writes a value, read back: "\\" is a backslash and "\xHH"
// the byte HH. Throws kav_failure for any other backslash, and for a NUL
// byte, which no link can hold.
std::string unescaped(const std::string& text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto hex = [&](std::size_t at) {
      return at < text.size() && std::isxdigit(static_cast<unsigned char>(text[at]));
    };
    if (text[i] != '\\') {
      bytes += text[i];
    } else if (i + 1 < text.size() && text[i + 1] == '\\') {
      bytes += text[++i];
    } else if (i + 1 < text.size() && text[i + 1] == 'x' && hex(i + 2) && hex(i + 3) &&
               text.compare(i + 2, 2, "00") != 0) {
      bytes += static_cast<char>(std::stoi(text.substr(i + 2, 2), nullptr, 16));
      i += 3;
    } else {
      throw kav_failure(escaped(text) + " is not a link target as show writes it");
    }
  }
  return bytes;
}

// The data sets under /var/db/timezone/tz/ that no link names once tz_latest
// is `target` (absent when empty): directories, leftovers aside, as clean
// deletes them.
std::vector<std::string> out_of_use(const kav_places& places, const std::string& target) {
  const std::set<std::string> named = {data_set_name(target),
                                       data_set_name(link_content(paths::zoneinfo_link)),
                                       data_set_name(link_content(paths::icutz_link))};
  std::vector<std::string> found;
  for (const std::string& name : names_in(places.updates.get(), paths::update_parent)) {
    struct stat status;
    if (named.count(name) == 0 && !leftover_name(name) &&
        ::fstatat(places.updates.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISDIR(status.st_mode))
      found.push_back(escaped(name));
  }
  return found;
}

// Leaves the clean-up request, durably, before tz_latest moves: a kill
// between the two then costs a clean with nothing to do, never a data set
// that no boot reclaims. A failure is only said: the link matters more.
void ask_for_clean(const kav_places& places) {
  const int timezone = places.timezone.get();
  const unique_fd fd(::openat(timezone, staging::clean_request_name,
                              O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (!fd.valid() && errno == EEXIST) return;
  try {
    if (!fd.valid() || ::fchmod(fd.get(), 0644) != 0)
      fail("cannot write " + std::string(staging::clean_request), errno);
    sync_directory(timezone, paths::timezone_dir);
  } catch (const kav_failure& failure) {
    tell("latest", failure.what());
  }
}

// Makes tz_latest `target`, or removes it when that is empty; what no link
// names then is left to the next boot's clean.
void change_latest(const kav_places& places, const std::string& target) {
  const std::vector<std::string> left = out_of_use(places, target);
  if (!left.empty()) ask_for_clean(places);
  if (target.empty()) {
    if (::unlinkat(places.timezone.get(), staging::latest_name, 0) != 0 && errno != ENOENT)
      fail("cannot delete " + std::string(paths::latest_link), errno);
    sync_directory(places.timezone.get(), paths::timezone_dir);
  } else if (link_content(paths::latest_link) != target) {
    point_latest_at(places, target);
  }
  std::printf("tz_latest names %s now\n", target.empty() ? "nothing" : escaped(target).c_str());
  std::string names;
  for (const std::string& name : left) names += (names.empty() ? "" : ", ") + name;
  if (!left.empty()) std::printf("the next boot's clean deletes what no link names: %s\n",
                                 names.c_str());
}

// Runs a latest: `judge` refuses bad input, changing nothing; `target_of`
// gives the link, once leftovers are settled.
int latest(const std::function<void()>& judge,
           const std::function<std::string(const kav_places&)>& target_of) {
  try {
    judge();
    const kav_change change = begin_change();
    for (const kav_leftover& leftover : change.leftovers)
      if (!leftover.failure.empty()) tell("latest", leftover.failure);
    change_latest(change.places, target_of(change.places));
    return 0;
  } catch (const kav_failure& failure) {
    tell("latest", failure.what());
    return 1;
  }
}

}  // namespace

int point_latest(const std::string& version) {
  const auto judge = [&] {
    const std::string problem = version == "none" ? "" : version_name_problem(version);
    if (!problem.empty()) throw kav_failure(problem);
  };
  return latest(judge, [&](const kav_places& places) {
    if (version == "none") return std::string();
    const std::string root = paths::update_parent + version;
    struct stat status;
    if (::fstatat(places.updates.get(), version.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISDIR(status.st_mode))
      throw kav_failure(escaped(root) + " is no staged data set");
    return root;
  });
}

int put_back_latest(const std::string& target) {
  std::string bytes;
  return latest([&] { bytes = unescaped(target); }, [&](const kav_places&) { return bytes; });
}

}  // namespace kav
