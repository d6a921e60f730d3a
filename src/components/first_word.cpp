#include "components/first_word.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "fs/unique_fd.h"

namespace kav {
namespace {

// White space of the "C" locale.
bool is_space(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

}  // namespace

// A plain read: a file stream would set up a locale and a buffer of its own
// for the few bytes wanted here.
std::string read_first_word(const std::string& path) {
  const unique_fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::string word;
  if (!fd.valid()) return word;
  char buffer[8192];
  for (;;) {
    const ssize_t length = ::read(fd.get(), buffer, sizeof buffer);
    if (length < 0 && errno == EINTR) continue;
    // The end of the file, or a read that fails (as on a directory), ends the
    // word where it stands.
    if (length <= 0) return word;
    for (const char* c = buffer; c != buffer + length; ++c) {
      if (!is_space(*c))
        word.push_back(*c);
      else if (!word.empty())
        return word;
    }
  }
}

}  // namespace kav
