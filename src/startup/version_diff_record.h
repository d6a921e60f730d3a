#pragma once

#include <string>

#include "dataset/kav_dataset.h"
#include "fs/paths.h"

namespace kav {

// Replaces the record at `path` with the two version strings joined by "_",
// no line end: the data set that was in use, then the one switched to. A
// record that cannot be written is passed over silently.
void write_version_diff_record(const kav_dataset& in_use, const kav_dataset& update,
                               const std::string& path = paths::version_diff_record);

}  // namespace kav
