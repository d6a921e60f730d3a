#pragma once

#include <cstdint>
#include <string>

namespace kav {

// Gives every entry below the directory open at `top`, and `top` itself,
// what the same release gives it anywhere: files 0644, directories 0755,
// and the time `time`, whatever the umask and the clock. Throws kav_failure
// for a file with a second name (a hard link, which a data set may not
// hold), naming it below `shown`.
void settle_tree(int top, const std::string& shown, std::int64_t time);

}  // namespace kav
