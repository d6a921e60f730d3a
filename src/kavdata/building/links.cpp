#include "kavdata/building/links.h"

#include <cerrno>
#include <fcntl.h>
#include <map>
#include <optional>
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

// Replaces the entry `name` below `zoneinfo` by a link holding `content`.
void replace_by_link(int zoneinfo, const std::string& name, const std::string& content) {
  const std::vector<std::string> parts = parts_of(name);
  std::optional<unique_fd> parent;
  for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
    parent.emplace(::openat(parent ? parent->get() : zoneinfo, parts[i].c_str(),
                            O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!parent->valid()) fail("cannot make the link zoneinfo/" + escaped(name), errno);
  }
  const int at = parent ? parent->get() : zoneinfo;
  if (parts.empty() || ::unlinkat(at, parts.back().c_str(), 0) != 0 ||
      ::symlinkat(content.c_str(), at, parts.back().c_str()) != 0)
    fail("cannot make the link zoneinfo/" + escaped(name), parts.empty() ? EINVAL : errno);
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

void make_links(int zoneinfo, const std::vector<kav_link>& links) {
  std::map<std::string, std::string> made;  // a link's name, and the zone it leads to
  for (const kav_link& link : links) {
    std::string target = link.target;
    for (int hops = 0; made.count(target) != 0 && hops < 64; ++hops) target = made[target];
    replace_by_link(zoneinfo, link.name, relative_link(link.name, target));
    made[link.name] = target;
  }
}

}  // namespace kav
