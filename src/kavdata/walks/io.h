#pragma once

#include <cstddef>
#include <string>

// Whole reads and writes of a descriptor, retried where a call was
// interrupted or did part of the job.
namespace kav {

// Appends what `fd` holds to `bytes`, to its end, but stops once more than
// `limit` bytes are read. Returns 0, or the errno of a read that failed.
int read_at_most(int fd, std::size_t limit, std::string& bytes);

// Writes all `size` bytes to `fd`; throws kav_failure, "cannot write " and
// `what`, when it cannot.
void write_all(int fd, const char* bytes, std::size_t size, const std::string& what);

}  // namespace kav
