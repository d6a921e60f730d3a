#pragma once

#include <string>

namespace kav {

// Writes the data set `directory`, once check finds nothing wrong with it
// wherever it is to be staged, as one archive for a build host to sign:
// VERSION/zoneinfo/... and VERSION/icutz/... (VERSION: `as`, or the
// directory's name), a POSIX tar compressed with zstd, to `output` ("": the
// file VERSION.tar.zst here; "-": standard output). The bytes depend on the
// data alone: entries in byte order of their names, owner and group 0, modes
// 0644 and 0755, one time (SOURCE_DATE_EPOCH, else 0). Returns the exit
// status, having said what it wrote or why not.
int pack_data_set(const std::string& directory, const std::string& as, const std::string& output);

}  // namespace kav
