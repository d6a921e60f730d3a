#pragma once

#include <string>

namespace kav {

// The ICU data file that a build puts into icutz/, never compiled here.
struct kav_icu_file {
  std::string name;   // icutzTAG.dat
  std::string bytes;
};

// Reads the ICU data file `file`, which must be named icutzTAG.dat, or, for
// `file` empty, the one such file in the directory `from`: an icutz/
// directory, or a data set holding one. Only regular files are read, never
// through a link. Throws kav_failure in one line for a name of another form,
// for what is not a regular file, and for a directory that holds no such
// file or more than one.
kav_icu_file read_icu(const std::string& file, const std::string& from);

}  // namespace kav
