#pragma once

#include <fcntl.h>
#include <string>

// Where a link in a data set leads, found on disk from the set's top, never
// from the link's words alone: a chain of links that each stay inside by
// their words may still lead out (u0 -> .., u1 -> u0/../..).
namespace kav {

// Opens, with `flags` (O_PATH unless the caller reads it), the entry that
// the path `below` (relative to the data set's top, open at `top`) leads
// to, following every link on the way through the set's own entries only,
// by descriptor. Returns a descriptor for
// the caller to own, or -1 with errno: EXDEV for a step out of the set at
// any point of the chain (an absolute target, a ".." above the top, another
// file system), ELOOP for a loop or a chain of more than 40 links, ENOENT or
// ENOTDIR when it leads to nothing, another errno when an entry on the way
// cannot be read. Uses openat2(2) with RESOLVE_BENEATH, or, where the kernel
// lacks it, walks the chain itself with the same bound.
// Readers pass O_NONBLOCK so that a FIFO never blocks them.
int open_beneath(int top, const std::string& below, int flags = O_PATH | O_CLOEXEC);

// Tests set it to walk the chain by hand, as where openat2(2) is missing.
extern bool openat2_missing;

}  // namespace kav
