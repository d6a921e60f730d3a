#pragma once

#include <stdexcept>
#include <string>

namespace kav {

// Why a command that writes cannot go on, in one line.
class kav_failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws a kav_failure: `what`, then ": " and the text of `error`.
[[noreturn]] void fail(const std::string& what, int error);

}  // namespace kav
