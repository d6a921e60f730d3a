#include "kavdata/walks/words.h"

#include <cstdio>
#include <cstring>
#include <iterator>

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

}  // namespace kav
