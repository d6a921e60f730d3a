#pragma once

#include <string>

namespace kav {

// Installs the data set `source`, an unpacked directory or an archive ("-":
// standard input), as /var/db/timezone/tz/VERSION (VERSION: `as`, or the
// directory's or the archive's top directory's name) and points tz_latest at
// it, so that the next start switches to it; refuses, changing nothing, what
// check refuses, and, while keys are trusted, what they did not sign
// (`signature`, else FILE.minisig), and, unless `replace_newer`, a data set
// older than the update that tz_latest names and the next start takes. A
// stage that fails either finished its job or leaves nothing of itself
// behind, and says which. Returns the exit status, having said what it did
// or why not.
int stage_data_set(const std::string& source, const std::string& as, const std::string& signature,
                   bool replace_newer);

}  // namespace kav
