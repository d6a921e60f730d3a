#pragma once

#include <string>

namespace kav {

// Opens `relative` beneath the directory open at `root` to read it, following
// links only while they stay beneath: by the kernel's own resolution
// (openat2 with RESOLVE_BENEATH) where it has one, else one name at a time,
// each opened without following, links expanded by hand. Never blocks on a
// FIFO. Returns a descriptor for the caller to own, or -1 with errno: EXDEV
// for a path or link that leads out (an absolute link, ".." above `root`),
// ELOOP for more than 40 links.
int open_beneath(int root, const std::string& relative);

// The walk one name at a time alone, which the kernel's resolution checks
// in the tests.
int open_beneath_by_names(int root, const std::string& relative);

}  // namespace kav
