#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>

#include "kavdata/walks/identity.h"
#include "kavdata/walks/limits.h"

// Data set trees copied and compared by descriptor: a source that its
// provider may change while it is read, into a copy that only root can reach.
namespace kav {

// What a copy may take: each file and the whole, as an archive may, and the
// space it may fill.
struct kav_copy_limits {
  std::uint64_t file = archive_file_limit;
  std::uint64_t whole = archive_total_limit;
  std::uint64_t free_space = UINT64_MAX;
};

// The bytes the file system under `directory` can take, less the margin kept
// for everything else on it.
std::uint64_t usable_space(int directory);

// Copies the tree in the directory open at `source` (the source's top, at
// `source_path`) into the empty directory open at `target` (at
// `target_path`): regular files, directories and links, nothing else;
// directories 0755, files 0644, links as links. Every entry is read with the
// provider's rights, looked up by descriptor and opened without following a
// link or blocking; where root provides the tree, every directory in it must
// be root's and writable by no one else. At most archive_entry_limit entries,
// depth_limit levels deep. Returns the bytes of the files.
// Throws kav_failure, in one escaped line naming the entry.
std::uint64_t copy_tree(const kav_provider& provider, int source, const std::string& source_path,
                        int target, const std::string& target_path, const kav_copy_limits& limits);

// Whether the trees in the directories open at `a` and `b`, both root's, hold
// the same names, types, modes, contents and link targets.
bool same_tree(int a, int b);

}  // namespace kav
