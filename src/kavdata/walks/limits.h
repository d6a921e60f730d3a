#pragma once

#include <cstddef>
#include <cstdint>

// How much a data set may hold, however it comes: as an archive or as a tree
// that is copied.
namespace kav {

// Bounds on an archive, far above a tz database with its ICU data (about
// 10 MB in some 1,300 entries): beyond them it is refused, before the disk
// fills, whatever its compression hides.
inline constexpr std::uint64_t archive_file_limit = std::uint64_t{64} << 20;    // one file
inline constexpr std::uint64_t archive_total_limit = std::uint64_t{256} << 20;  // all files
inline constexpr std::uint64_t archive_input_limit = std::uint64_t{512} << 20;  // bytes read
// Entries of every kind, directories too, also those that an archive's names
// only imply.
inline constexpr std::uint64_t archive_entry_limit = 20000;
// Levels of names below a data set's top: zoneinfo/America/Argentina/Salta is
// 4. Deeper trees are refused, so that no walk of a data set holds more than a
// few descriptors a level.
inline constexpr std::size_t depth_limit = 16;
// Left free on the file system that the archive is unpacked into.
inline constexpr std::uint64_t archive_free_margin = std::uint64_t{16} << 20;

}  // namespace kav
