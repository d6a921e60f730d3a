#pragma once

#include <string>

namespace kav {

// Why `name` cannot name a data set, or empty when it is a version string;
// `hint` says how to name one.
std::string version_name_problem(
    const std::string& name,
    const std::string& hint = ": name the directory by its version, or give one with --as");

}  // namespace kav
