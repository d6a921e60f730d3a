#include "kavdata/words.h"

#include <cstdio>
#include <cstring>
#include <iterator>

#include "components/kav_icu.h"

namespace kav {

std::string escaped(std::string_view bytes) {
  std::string text;
  for (const unsigned char byte : bytes) {
    char hex[5];
    if (byte == '\\')
      text += "\\\\";
    else if (byte >= 0x20 && byte < 0x7f)
      text += static_cast<char>(byte);
    else
      text.append(hex, static_cast<std::size_t>(std::snprintf(hex, sizeof hex, "\\x%02x", byte)));
  }
  return text;
}

std::string size_words(std::uint64_t bytes) {
  static const char* const units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
  double size = static_cast<double>(bytes);
  std::size_t unit = 0;
  for (; size >= 1024 && unit + 1 < std::size(units); ++unit) size /= 1024;
  char text[32];
  std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", size, units[unit]);
  return text;
}

std::string error_words(int error) { return std::strerror(error); }

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
