#pragma once

namespace kav {

// Writes one warning through warn(3), which appends the text of the errno that
// the failed call left, then throws that errno as a plain int. Call it right
// after the failing call: nothing may change errno in between.
[[noreturn]] void warn_and_throw(const char* format, ...)
    __attribute__((format(printf, 1, 2)));

}  // namespace kav
