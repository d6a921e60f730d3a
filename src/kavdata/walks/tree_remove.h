#pragma once

#include <cstdint>
#include <string>

// Trees deleted by descriptor, as `rm -rf --one-file-system` deletes them.
namespace kav {

// Deletes `name` in the directory open at `parent` (`path` in messages) and
// everything under it; returns the bytes of the files deleted. Never follows
// a link: a link is deleted as a link, also one swapped in for a directory
// while the tree is deleted. Never enters another file system or a mount
// point. Gives a directory of this process's own user the owner's rights it
// needs to be emptied. Throws kav_failure naming, escaped, what remains; what
// was deleted before stays deleted.
std::uint64_t remove_tree_at(int parent, const std::string& name, const std::string& path);

}  // namespace kav
