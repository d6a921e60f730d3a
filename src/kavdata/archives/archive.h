#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "kavdata/walks/limits.h"

// Data sets as tar archives: what `stage` and `check` unpack.
namespace kav {

// The BLAKE2b-512 of a whole file, which its signature signs.
using kav_digest = std::array<unsigned char, 64>;

struct kav_unpacked {
  std::string top;              // the one top directory's name, a version string
  std::uint64_t bytes = 0;      // of its files
  std::uint64_t entries = 0;
  kav_digest digest{};          // of every byte read, those after the archive's end too
  std::int64_t newest = 0;      // the latest time of an entry
};

// How the archive's entries stand: a data set's one top directory, named by
// its version, is left out; a time zone release's files (also lzip'd) are
// unpacked as they stand, under one directory or none, for the caller to find.
enum class kav_layout { data_set, release };

// Unpacks the tar archive (POSIX, ustar, pax or GNU; plain, gzip, xz or zstd)
// read from `input`, which it never seeks and reads to its end, into the empty
// directory `target`, less its one top directory: files 0644, directories
// 0755, links as links, root's when run by root, everything made relative to
// `target` and never through a link. Refuses, throwing kav_failure in one line
// with names escaped, any entry a data set may not hold: not a file, directory
// or link (hard links, devices, FIFOs, sparse files), an absolute name, a
// "..", a link that leads out, a second top entry, a top that is not a version
// string; and an archive beyond the bounds above or the free space of
// `target`. What it made before is left for the caller to delete.
kav_unpacked unpack_archive(int input, int target, kav_layout layout = kav_layout::data_set);

}  // namespace kav
