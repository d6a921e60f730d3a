#pragma once

namespace kav {

// Decides which data set the links name and points them there: refuses data
// in use that is incompatible with or older than the system's, switches to a
// newer compatible download (leaving the clean-up marker and the record), and
// answers any failure by resetting to the system partition. Throws only when
// that last reset fails too.
void select_dataset();

}  // namespace kav
