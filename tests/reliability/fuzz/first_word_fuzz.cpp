// The first word read from a file is exactly the first run of bytes that are
// not C-locale white space, after only white space.
#include <cctype>
#include <fstream>
#include <string>
#include <unistd.h>

#include "components/first_word.h"
#include "fuzz_support.h"

namespace {

std::string scratch_path;

bool is_space(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  silence_warnings();
  const char* const directory = std::getenv("TMPDIR");
  scratch_path = std::string(directory ? directory : "/tmp") + "/first_word_fuzz." +
                 std::to_string(::getpid());
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string content(reinterpret_cast<const char*>(data), size);
  std::ofstream(scratch_path, std::ios::binary | std::ios::trunc) << content;
  const std::string word = kav::read_first_word(scratch_path);
  ::unlink(scratch_path.c_str());

  std::size_t start = 0;
  while (start < content.size() && is_space(content[start])) ++start;
  std::size_t end = start;
  while (end < content.size() && !is_space(content[end])) ++end;
  for (char c : word) CHECK(!is_space(c));
  CHECK(word == content.substr(start, end - start));
  return 0;
}
