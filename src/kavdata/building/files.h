#pragma once

#include <cstdint>
#include <string>

// Whole small files read and written by a build, by descriptor.
namespace kav {

// The bytes of the regular file `name` in the directory open at `directory`,
// read never through a link nor waiting on a FIFO, at most 64 MiB; raises
// `newest` to its time. Throws kav_failure naming it `shown`: "SHOWN is
// missing" when it does not exist.
std::string read_file_at(int directory, const std::string& name, const std::string& shown,
                         std::int64_t& newest);

// Writes `bytes` as the new file `name` in the directory open at `directory`,
// 0644; never through a link, never over an existing entry. Throws
// kav_failure naming it `shown`.
void write_file_at(int directory, const std::string& name, const std::string& bytes,
                   const std::string& shown);

// The same for a path.
void write_file(const std::string& path, const std::string& bytes);

}  // namespace kav
