#include "components/icu_data_file.h"

#include <sys/stat.h>

#include "version/kav_regex_traits.h"

namespace kav {
namespace {

// Whether `name` could match the data file pattern, which begins with "icutz"
// and ends with ".dat": a cheap test, so that the regular expression, which
// alone decides, sees only names it might accept.
bool may_be_data_file_name(std::string_view name) {
  constexpr std::string_view head = "icutz", tail = ".dat";
  return name.size() > head.size() + tail.size() &&
         name.substr(0, head.size()) == head &&
         name.substr(name.size() - tail.size()) == tail;
}

}  // namespace

bool may_be_icu_data_file(const FTSENT& entry) {
  return entry.fts_errno == 0 && entry.fts_level == 1 &&
         entry.fts_namelen != 0 && entry.fts_info == FTS_F &&
         (entry.fts_statp->st_mode & S_IROTH) != 0;
}

std::string icu_format_of_file_name(std::string_view name) {
  // Compiled once per process: compiling costs far more than matching. The
  // breadth-first engine's stack depth does not grow with the name's length.
  static const kav_regex data_file_name(
      R"(icutz([0-9]+[lbe])\.dat)",
      kav_regex::ECMAScript | std::regex_constants::__polynomial);
  std::match_results<std::string_view::const_iterator> tag;
  if (!may_be_data_file_name(name) ||
      !std::regex_match(name.begin(), name.end(), tag, data_file_name))
    return {};
  return tag[1].str();
}

}  // namespace kav
