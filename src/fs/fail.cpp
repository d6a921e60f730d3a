#include "fs/fail.h"

#include <cerrno>
#include <cstdarg>
#include <err.h>

namespace kav {

void warn_and_throw(const char* format, ...) {
  const int error = errno;
  va_list arguments;
  va_start(arguments, format);
  errno = error;
  vwarn(format, arguments);
  va_end(arguments);
  throw error;
}

}  // namespace kav
