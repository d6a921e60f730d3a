#pragma once

#include <string_view>

#include "fs/paths.h"

namespace kav {

// Length of "/var/db/timezone/tz/"; an update root is this prefix followed by
// a version string, so it is at least one byte longer.
inline constexpr std::size_t update_prefix_length =
    std::string_view(paths::update_parent).size();

// Whether `path` is the update prefix followed by at least one byte.
inline bool has_update_prefix(std::string_view path) {
  return path.size() > update_prefix_length &&
         path.substr(0, update_prefix_length) == paths::update_parent;
}

}  // namespace kav
