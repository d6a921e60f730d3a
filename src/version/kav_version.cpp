#include "version/kav_version.h"

#include <err.h>
#include <stdexcept>
#include <tuple>

#include "version/kav_regex_traits.h"

namespace kav {
namespace {

int number_or_unset(const std::ssub_match& group) {
  return group.matched ? std::stoi(group.str()) : -1;
}

}  // namespace

kav_version::kav_version(const std::string& text) { parse(text); }

void kav_version::parse(const std::string& text) {
  try {
    // Compiled once per process: compiling costs far more than matching. The
    // breadth-first engine uses a stack of fixed depth, whatever the length of
    // the text: the default one recurses once per byte, and a long word in a
    // version file would overflow the stack.
    static const kav_regex pattern(
        R"(([0-9]+)([a-z]+)(?:\.([0-9]+))?(?:\.([0-9]+))?)",
        kav_regex::ECMAScript | std::regex_constants::__polynomial);
    std::smatch results;
    if (!std::regex_match(text, results, pattern) || results.size() != 5) {
      warn("Cannot parse version string %s, results.size() = %d", text.c_str(),
           static_cast<int>(results.size()));
      throw std::invalid_argument("no match");
    }
    year = std::stoi(results[1].str());
    letters = results[2].str();
    major = number_or_unset(results[3]);
    minor = number_or_unset(results[4]);
  } catch (const std::invalid_argument&) {
    warn("Cannot parse version string %s", text.c_str());
    *this = kav_version();
  }
}

// Lexicographic on the fields; letters compare as unsigned bytes, a proper
// prefix being the smaller.
bool kav_version::operator>(const kav_version& other) const {
  return std::tie(year, letters, major, minor) >
         std::tie(other.year, other.letters, other.major, other.minor);
}

bool kav_version::operator==(const kav_version& other) const {
  return std::tie(year, letters, major, minor) ==
         std::tie(other.year, other.letters, other.major, other.minor);
}

}  // namespace kav
