#pragma once

#include <dirent.h>
#include <cstring>
#include <fts.h>
#include <memory>
#include <string>

namespace kav {

// An fts(3) walk, closed when the handle goes out of scope.
using walk_handle = std::unique_ptr<FTS, decltype(&fts_close)>;

using walk_order = int (*)(const FTSENT**, const FTSENT**);

// Opens a walk over the single path `top` with fts_open's `options`, in the
// order the directories list their entries unless `order` is given. A null
// handle, with errno set, when fts_open fails.
inline walk_handle open_walk(const std::string& top, int options, walk_order order = nullptr) {
  char* const paths[] = {const_cast<char*>(top.c_str()), nullptr};
  return walk_handle(fts_open(paths, options, order), &fts_close);
}

// Entries by name, byte for byte: an order that is the same everywhere.
inline int by_name(const FTSENT** a, const FTSENT** b) {
  return std::strcmp((*a)->fts_name, (*b)->fts_name);
}

// A directory listing, closed when the handle goes out of scope.
struct directory_closer {
  void operator()(DIR* directory) const { closedir(directory); }
};
using directory_handle = std::unique_ptr<DIR, directory_closer>;

}  // namespace kav
