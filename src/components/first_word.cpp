#include "components/first_word.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "fs/unique_fd.h"

namespace kav {

bool is_word_space(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

namespace {

// A plain read: a file stream would set up a locale and a buffer of its own
// for the few bytes wanted here.
std::string read_whole_first_word(const std::string& path) {
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
      if (!is_word_space(*c))
        word.push_back(*c);
      else if (!word.empty())
        return word;
    }
  }
}

first_word_reader reader_in_force = read_whole_first_word;

}  // namespace

std::string read_first_word(const std::string& path) { return reader_in_force(path); }

first_word_reader replace_first_word_reader(first_word_reader reader) {
  const first_word_reader replaced = reader_in_force;
  reader_in_force = reader;
  return replaced;
}

}  // namespace kav
