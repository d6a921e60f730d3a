#include "kavdata/building/links.h"

#include <cerrno>
#include <fcntl.h>
#include <map>
#include <sys/stat.h>
#include <unistd.h>

#include "fs/unique_fd.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/words.h"

namespace kav {
namespace {

std::vector<std::string> parts_of(const std::string& path) {
  std::vector<std::string> parts;
  for (std::size_t start = 0; start <= path.size();) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    if (end > start) parts.push_back(path.substr(start, end - start));
    start = end + 1;
  }
  return parts;
}

// Why zic would refuse `name` as a file name, or "".
std::string name_problem(const std::string& name) {
  if (name.empty() || name[0] == '/') return "it is empty or begins with /";
  for (const std::string& part : parts_of(name))
    if (part == "." || part == "..") return "it holds " + part;
  if (name.find("//") != std::string::npos || name.back() == '/') return "it holds an empty part";
  return "";
}

// Makes links below the directory open at `zoneinfo`, and the directories
// that hold them, each opened once, never through a link.
class kav_link_maker {
 public:
  explicit kav_link_maker(int zoneinfo) : zoneinfo_(zoneinfo) {}

  // Whether `name` is a zone file that zic made.
  bool zone(const std::string& name) const {
    struct stat status;
    return ::fstatat(zoneinfo_, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISREG(status.st_mode);
  }

  // Makes the link `name` holding `content`; false when `name` exists.
  bool make(const std::string& name, const std::string& content) {
    const std::size_t slash = name.rfind('/');
    const int at = slash == std::string::npos ? zoneinfo_ : directory(name.substr(0, slash), name);
    const std::string last = name.substr(slash == std::string::npos ? 0 : slash + 1);
    if (::symlinkat(content.c_str(), at, last.c_str()) == 0) return true;
    if (errno != EEXIST) fail("cannot make the link zoneinfo/" + escaped(name), errno);
    return false;
  }

 private:
  int directory(const std::string& path, const std::string& name) {
    auto found = directories_.find(path);
    if (found != directories_.end()) return found->second.get();
    int at = zoneinfo_;
    for (const std::string& part : parts_of(path)) {
      if (::mkdirat(at, part.c_str(), 0755) != 0 && errno != EEXIST)
        fail("cannot make the link zoneinfo/" + escaped(name), errno);
      at = ::openat(at, part.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
      if (at < 0) fail("cannot make the link zoneinfo/" + escaped(name), errno);
      opened_.emplace_back(at);
    }
    directories_.emplace(path, unique_fd(::fcntl(at, F_DUPFD_CLOEXEC, 0)));
    return directories_.at(path).get();
  }

  int zoneinfo_;
  std::map<std::string, unique_fd> directories_;
  std::vector<unique_fd> opened_;
};

// `link` in words for a message: where it stands, what it says.
std::string words_of(const kav_link& link, const kav_zic_input& input) {
  const kav_origin origin = input.origin(link.line);
  return escaped(origin.file) + ", line " + std::to_string(origin.line) + ": Link " +
         escaped(link.target) + " " + escaped(link.name);
}

}  // namespace

std::string relative_link(const std::string& name, const std::string& target) {
  const std::vector<std::string> from = parts_of(name), to = parts_of(target);
  std::size_t common = 0;
  while (common + 1 < from.size() && common < to.size() && from[common] == to[common]) ++common;
  std::string content;
  for (std::size_t i = common; i + 1 < from.size(); ++i) content += "../";
  for (std::size_t i = common; i < to.size(); ++i) content += to[i] + (i + 1 < to.size() ? "/" : "");
  return content;
}

void make_links(int zoneinfo, const kav_zic_input& input) {
  const std::vector<kav_link> links = links_of(input.text);
  std::map<std::string, std::string> all;  // every link's name, and its target
  for (const kav_link& link : links) all.emplace(link.name, link.target);
  std::map<std::string, std::string> made;  // each link made, and the zone it leads to
  kav_link_maker maker(zoneinfo);
  for (const kav_link& link : links) {
    for (const std::string& name : {link.name, link.target})
      if (const std::string problem = name_problem(name); !problem.empty())
        throw kav_failure(words_of(link, input) + ": " + escaped(name) + " is no file name: " +
                          problem);
    std::string zone = link.target;
    for (int hops = 0; all.count(zone) != 0 && hops < 64; ++hops) zone = all[zone];
    if (!maker.zone(zone))
      throw kav_failure(words_of(link, input) + ": it leads to no zone");
    std::string target = link.target;
    for (int hops = 0; made.count(target) != 0 && hops < 64; ++hops) target = made[target];
    if (!maker.make(link.name, relative_link(link.name, target)))
      throw kav_failure(words_of(link, input) + ": zoneinfo/" + escaped(link.name) +
                        " is a zone or a link already");
    made[link.name] = target;
  }
}

}  // namespace kav
