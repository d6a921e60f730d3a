#include "kavdata/building/links.h"

#include <cerrno>
#include <fcntl.h>
#include <map>
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

// Replaces entries below the directory open at `zoneinfo` by links, each
// directory opened once, never through a link.
class kav_link_maker {
 public:
  explicit kav_link_maker(int zoneinfo) : zoneinfo_(zoneinfo) {}

  void replace(const std::string& name, const std::string& content) {
    const std::size_t slash = name.rfind('/');
    const int at = slash == std::string::npos ? zoneinfo_ : directory(name.substr(0, slash), name);
    const std::string last = name.substr(slash == std::string::npos ? 0 : slash + 1);
    if (::unlinkat(at, last.c_str(), 0) != 0 || ::symlinkat(content.c_str(), at, last.c_str()) != 0)
      fail("cannot make the link zoneinfo/" + escaped(name), errno);
  }

 private:
  int directory(const std::string& path, const std::string& name) {
    auto found = directories_.find(path);
    if (found != directories_.end()) return found->second.get();
    int at = zoneinfo_;
    for (const std::string& part : parts_of(path)) {
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

void make_links(int zoneinfo, const std::vector<kav_link>& links) {
  std::map<std::string, std::string> made;  // a link's name, and the zone it leads to
  kav_link_maker maker(zoneinfo);
  for (const kav_link& link : links) {
    std::string target = link.target;
    for (int hops = 0; made.count(target) != 0 && hops < 64; ++hops) target = made[target];
    maker.replace(link.name, relative_link(link.name, target));
    made[link.name] = target;
  }
}

}  // namespace kav
