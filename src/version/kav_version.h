#pragma once

#include <string>

namespace kav {

// A time zone data version such as 2014f.1.0: a year, lower-case letters and
// up to two dotted numbers. Absent numbers are -1; the unset value (-1, "",
// -1, -1) stands for "not a version string" and is smaller than any version.
class kav_version {
 public:
  kav_version() = default;
  // Parses `text`; see parse.
  explicit kav_version(const std::string& text);

  // Assigns all four fields from `text`, which must match
  // [0-9]+[a-z]+(.[0-9]+(.[0-9]+)?)? as a whole. Anything else writes two
  // warnings and leaves the unset value. A number beyond the signed 32-bit
  // range throws std::out_of_range, keeping the fields assigned before it.
  void parse(const std::string& text);

  bool operator>(const kav_version& other) const;
  bool operator==(const kav_version& other) const;

  int year = -1;
  std::string letters;
  int major = -1;
  int minor = -1;
};

}  // namespace kav
