#pragma once

#include <string>
#include <vector>

namespace kav {

// The verdict on an unpacked data set, a directory holding zoneinfo/ and
// icutz/: whether the next start would switch to it if tz_latest named it,
// staged as /var/db/timezone/tz/VERSION, with the device's local zone in it;
// and what makes a data set wrong in practice besides.
struct kav_check {
  std::string directory;       // the data set, as given
  std::string version_string;  // the name it would be staged as
  std::vector<std::string> reasons;  // why it must not be staged; none when it may
};

// Judges `directory`, reached as open_given reaches a source, as the version
// `as`, or as its own name when `as` is empty. Only reads.
kav_check check_data_set(const std::string& directory, const std::string& as);

// The data set alone, wherever it is to be staged: check_data_set's
// judgement but the next start on this device's data.
kav_check check_contents(const std::string& directory, const std::string& as);

// Why a link does not lead to an entry of the data set, from open_beneath's
// errno: the words between the link's name and its text (" leads out of the
// data set: ").
std::string astray_words(int error);

// Prints the reasons one a line, or that the next start would take it;
// returns the exit status, 1 when there are reasons.
int print_check(const kav_check& check);

}  // namespace kav
