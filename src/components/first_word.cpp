#include "components/first_word.h"

#include <fstream>

namespace kav {

std::string read_first_word(const std::string& path) {
  std::ifstream file(path);
  std::string word;
  file >> word;  // leaves `word` empty when nothing could be read
  return word;
}

}  // namespace kav
