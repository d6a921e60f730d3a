#pragma once

#include "dataset/kav_dataset.h"

namespace kav {

// Replaces the record of the last switch with the two version strings joined
// by "_", no line end: the data set that was in use, then the one switched to.
// A record that cannot be written is passed over silently.
void write_version_diff_record(const kav_dataset& in_use, const kav_dataset& update);

}  // namespace kav
