#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Whole directory trees as the reports see them, by path: they only read.
// Links are never followed.
namespace kav {

// The bytes of the files under `path`; `error` is the first errno met.
std::uint64_t tree_size(const std::string& path, int& error);

// The names in the directory at `path`, sorted. Throws kav_failure.
std::vector<std::string> directory_names(const std::string& path);

}  // namespace kav
