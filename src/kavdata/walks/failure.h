#pragma once

#include <stdexcept>
#include <string>

namespace kav {

// Why a command that writes cannot go on, in one line, with the errno that
// stopped it where there is one.
class kav_failure : public std::runtime_error {
 public:
  explicit kav_failure(const std::string& what, int error = 0)
      : std::runtime_error(what), error_(error) {}
  int error() const { return error_; }

 private:
  int error_;
};

// Throws a kav_failure: `what`, then ": " and the text of `error`.
[[noreturn]] void fail(const std::string& what, int error);

// Writes `line` on standard error as the command's own, "kavdata: COMMAND:
// LINE", for a failure or a warning that the command goes on after.
void tell(const char* command, const std::string& line);

}  // namespace kav
