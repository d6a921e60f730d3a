#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "kavdata/walks/limits.h"

// Data sets as tar archives: what `stage` and `check` unpack.
namespace kav {

// The BLAKE2b-512 of a whole file, which its signature signs.
using kav_digest = std::array<unsigned char, 64>;

struct kav_unpacked {
  std::string top;              // the one top directory's name, a version string
  std::uint64_t bytes = 0;      // of its files
  std::uint64_t entries = 0;    // directories that names imply too
  std::int64_t newest = 0;      // the latest time of an entry
  // Every link made, by its path below the target, and its text: where each
  // leads is the caller's to judge.
  std::vector<std::pair<std::string, std::string>> links;
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
// with names escaped, any entry a data set may not hold, from its header
// before any of its data is read: not a file, directory or link (hard links,
// devices, FIFOs, sparse files, a directory that holds data), an absolute
// name, a "..", a name more than depth_limit levels below the top, a second
// top entry, a top that is not a version string; and an archive beyond the
// bounds above or the free space of `target`, of which it counts at most
// `free_space` bytes. Where its links lead is for the caller to judge, once
// it is whole. What it made before is left for the caller to delete.
kav_unpacked unpack_archive(int input, int target, std::uint64_t free_space = UINT64_MAX,
                            kav_layout layout = kav_layout::data_set);

}  // namespace kav
