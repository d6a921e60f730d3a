#pragma once

#include <string>

#include "kavdata/building/zic_input.h"

namespace kav {

// Compiles `input`, written as the file `name` in `directory`, into the
// directory `output` with the build host's zic: fat zone files, or slim, and
// no leap seconds. zic's warnings go on to standard error, prefixed, naming
// the lines they are about. Throws kav_failure in one line when zic fails,
// quoting, escaped, the first line it refuses; or when zic is missing.
void compile_zones(const kav_zic_input& input, const std::string& directory,
                   const std::string& name, const std::string& output, bool slim);

}  // namespace kav
