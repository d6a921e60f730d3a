#include "kavdata/walks/inside.h"

#include <algorithm>

namespace kav {

bool stays_inside(std::string_view location, std::string_view target) {
  if (target.empty() || target[0] == '/') return false;
  std::size_t depth = static_cast<std::size_t>(std::count(location.begin(), location.end(), '/'));
  while (!target.empty()) {
    const std::string_view part = target.substr(0, target.find('/'));
    target.remove_prefix(std::min(target.size(), part.size() + 1));
    if (part == "..") {
      if (depth == 0) return false;
      --depth;
    } else if (!part.empty() && part != ".") {
      ++depth;
    }
  }
  return true;
}

}  // namespace kav
