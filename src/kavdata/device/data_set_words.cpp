#include "kavdata/device/data_set_words.h"

#include "components/kav_icu.h"
#include "kavdata/walks/words.h"

namespace kav {

std::string data_set_words(const kav_dataset& data_set) {
  return data_set.root().empty() ? "the system's data" : escaped(data_set.version_string());
}

std::string format_mismatch(const kav_dataset& data_set, const kav_dataset& system) {
  const std::string& format = data_set.icu().format();
  const std::string& wanted = system.icu().format();
  if (format.empty())
    return "it has no ICU data file icutzTAG.dat, and the system's ICU format is " +
           escaped(wanted);
  if (wanted.empty())
    return "its ICU format " + escaped(format) + " differs from the system's, which has none";
  return "its ICU format " + escaped(format) + " differs from the system's " + escaped(wanted);
}

std::string than(std::string_view relation, const kav_dataset& other, std::string_view role) {
  std::string text = std::string(relation) + (other.root().empty() ? " the system's " : " ") +
                     escaped(other.version_string());
  return role.empty() ? text : text + ", " + std::string(role);
}

std::string version_comparison(const kav_dataset& data_set, std::string_view relation,
                               const kav_dataset& other, std::string_view role) {
  const std::string name = escaped(data_set.version_string());
  if (data_set.version() == kav_version()) return name + " is not a version string";
  return name + " is " + than(relation, other, role);
}

}  // namespace kav
