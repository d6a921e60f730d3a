#include "kavdata/building/build.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "kavdata/archives/archive.h"
#include "kavdata/archives/spool.h"
#include "kavdata/building/authenticity.h"
#include "kavdata/building/compile.h"
#include "kavdata/building/files.h"
#include "kavdata/building/icu_input.h"
#include "kavdata/building/links.h"
#include "kavdata/building/place.h"
#include "kavdata/building/release.h"
#include "kavdata/building/settle.h"
#include "kavdata/device/version_name.h"
#include "kavdata/judgement/check.h"
#include "kavdata/walks/beneath.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/handles.h"
#include "kavdata/walks/limits.h"
#include "kavdata/walks/source.h"
#include "kavdata/walks/words.h"

namespace kav {
namespace {

bool ends_with(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// The release the request names, authenticated first when a keyring is given.
kav_release read_source(const kav_build_request& request, const kav_build_place& place) {
  struct stat status;
  const bool directory = ::stat(request.source.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
  const bool zi = !directory && ends_with(request.source, ".zi");
  if (!request.keyring.empty() && (directory || zi))
    throw kav_failure(escaped(request.source) + " is " + (zi ? "a tzdata.zi" : "a directory") +
                      ", which carries no signature: --keyring checks a release tarball");
  if (request.keyring.empty())
    tell("build", escaped(request.source) +
                      " is not authenticated: no --keyring to check its signature");
  if (zi) return read_zi(request.source);
  if (directory) {
    const unique_fd top(::open(request.source.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!top.valid()) fail("cannot read " + escaped(request.source), errno);
    return read_release(top.get(), escaped(request.source + "/"));
  }
  // A private copy, which nobody can change between its signature check and
  // its unpacking.
  const unique_fd source(open_source(request.source));
  const kav_spool tarball = spool_archive(source.get(), place.fd(), place.path());
  if (!request.keyring.empty()) {
    const std::string key = verify_signature(
        tarball.fd.get(), request.signature.empty() ? request.source + ".asc" : request.signature,
        request.keyring, place.path());
    std::printf("signed by key %s\n", escaped(key).c_str());
  }
  if (::mkdirat(place.fd(), "release", 0700) != 0) fail("cannot write " + escaped(place.path()), errno);
  const unique_fd unpacked(open_directory_at(place.fd(), "release"));
  if (!unpacked.valid()) fail("cannot write " + escaped(place.path()), errno);
  const kav_unpacked whole = unpack_archive(tarball.fd.get(), unpacked.get(), tarball.free_space,
                                              kav_layout::release);
  // The build reads no link, but a release whose links lead astray is
  // refused as a data set would be.
  for (const auto& [link, text] : whole.links) {
    const unique_fd led(open_beneath(unpacked.get(), link));
    if (!led.valid()) throw kav_failure(escaped(link) + astray_words(errno) + escaped(text));
  }
  const unique_fd top(release_in(unpacked.get()));
  kav_release release = read_release(top.get(), "the release's ");
  release.time = whole.newest;
  return release;
}

// The data set's version string, given or the release's, which +VERSION
// must begin.
std::string version_string(const kav_release& release, const std::string& as) {
  const std::string word = release.version;
  if (word.empty()) throw kav_failure("the release names no version: its version line is empty");
  if (word.find('.') != std::string::npos || !version_name_problem(word + ".1.0").empty())
    throw kav_failure("the release's version " + escaped(word) +
                      " is not a version: a year and letters, such as 2026b");
  if (as.empty()) return word + ".1.0";
  const std::string problem =
      version_name_problem(as, ": give --as a version string, such as " + word + ".1.0");
  if (!problem.empty()) throw kav_failure(problem);
  if (as.substr(0, as.find('.')) != word)
    throw kav_failure("--as " + escaped(as) + " does not begin with the release's version " +
                      escaped(word) + ", which zoneinfo/+VERSION holds");
  return as;
}

// The time SOURCE_DATE_EPOCH gives every file, if any.
std::optional<std::int64_t> source_date_epoch() {
  const char* const epoch = std::getenv("SOURCE_DATE_EPOCH");
  if (epoch == nullptr || *epoch == '\0') return std::nullopt;
  char* end;
  errno = 0;
  const long long seconds = std::strtoll(epoch, &end, 10);
  if (*end != '\0' || errno != 0 || seconds < 0)
    throw kav_failure("SOURCE_DATE_EPOCH is not a number of seconds: " + escaped(epoch));
  return std::int64_t{seconds};
}

int made_directory(const kav_build_place& place, int parent, const std::string& name) {
  if (::mkdirat(parent, name.c_str(), 0755) != 0) fail("cannot write " + escaped(place.path()), errno);
  const int fd = open_directory_at(parent, name.c_str());
  if (fd < 0) fail("cannot write " + escaped(place.path()), errno);
  return fd;
}

// Makes the data set as "set" in `place`: the zones compiled from the input
// without its links, the links, the text files, the ICU data file.
void make_data_set(const kav_build_place& place, const kav_release& release,
                   const kav_icu_file& icu, bool slim) {
  write_file_at(place.fd(), "tzdata.zi", without_links(release.input.text), "tzdata.zi");
  const unique_fd top(made_directory(place, place.fd(), "set"));
  const unique_fd zoneinfo(made_directory(place, top.get(), "zoneinfo"));
  const unique_fd icutz(made_directory(place, top.get(), "icutz"));
  compile_zones(release.input, place.path(), "tzdata.zi", "set/zoneinfo", slim);
  make_links(zoneinfo.get(), release.input);
  write_file_at(zoneinfo.get(), "tzdata.zi", release.input.text, "zoneinfo/tzdata.zi");
  write_file_at(zoneinfo.get(), "+VERSION", release.version + "\n", "zoneinfo/+VERSION");
  for (const auto& [name, bytes] : release.tables)
    write_file_at(zoneinfo.get(), name, bytes, "zoneinfo/" + name);
  write_file_at(icutz.get(), icu.name, icu.bytes, "icutz/" + escaped(icu.name));
}

void build(const kav_build_request& request) {
  // What zic and this build make is 0644 and 0755 from the start, whatever
  // the caller's umask: nothing needs mending afterwards.
  ::umask(022);
  const std::optional<std::int64_t> epoch = source_date_epoch();
  const std::size_t slash = request.output.find_last_of('/');
  const std::string parent = request.output.empty() || slash == std::string::npos ? "."
                             : slash == 0 ? "/" : request.output.substr(0, slash);
  struct stat status;
  if (!request.output.empty() && ::lstat(request.output.c_str(), &status) == 0)
    throw kav_failure(escaped(request.output) + " exists: build makes a new directory");
  const kav_icu_file icu = read_icu(request.icu, request.icu_from);
  const kav_build_place place(parent);
  const kav_release release = read_source(request, place);
  const std::string version = version_string(release, request.as);
  const std::string output = request.output.empty() ? version : request.output;
  if (::lstat(output.c_str(), &status) == 0)
    throw kav_failure(escaped(output) + " exists: build makes a new directory");

  make_data_set(place, release, icu, request.slim);
  const std::int64_t when = epoch.value_or(release.time);
  const unique_fd top(open_directory_at(place.fd(), "set"));
  if (!top.valid()) fail("cannot read " + escaped(place.path()), errno);
  settle_tree(top.get(), escaped(output), when);

  const kav_check check = check_contents(place.path() + "/set", version);
  for (std::size_t i = 0; i + 1 < check.reasons.size(); ++i) tell("build", check.reasons[i]);
  if (!check.reasons.empty()) throw kav_failure(check.reasons.back());
  place.publish("set", output);
  // Moved into another directory, it may take the time of the move.
  const timespec times[2] = {{static_cast<time_t>(when), 0}, {static_cast<time_t>(when), 0}};
  if (::utimensat(AT_FDCWD, output.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0)
    fail("cannot write " + escaped(output), errno);
  std::printf("built %s from release %s (%s) in %s\n", escaped(version).c_str(),
              escaped(release.version).c_str(), request.slim ? "slim" : "fat",
              escaped(output).c_str());
}

}  // namespace

int build_data_set(const kav_build_request& request) {
  try {
    build(request);
    return 0;
  } catch (const kav_failure& failure) {
    tell("build", failure.what());
    return 1;
  }
}

}  // namespace kav
