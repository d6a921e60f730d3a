#pragma once

namespace kav {

// Runs a step that nothing else guards. Returns true when it finished; when
// it threw, warns `failure` (the last word of a run that could not leave the
// device with working time zone links) and returns false.
bool completes(void (*step)(), const char* failure);

}  // namespace kav
