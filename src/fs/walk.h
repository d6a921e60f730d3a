#pragma once

#include <dirent.h>
#include <fts.h>
#include <memory>
#include <string>

namespace kav {

// An fts(3) walk, closed when the handle goes out of scope.
using walk_handle = std::unique_ptr<FTS, decltype(&fts_close)>;

// Opens a walk over the single path `top` with fts_open's `options`, in the
// order the directories list their entries. A null handle, with errno set,
// when fts_open fails.
inline walk_handle open_walk(const std::string& top, int options) {
  char* const paths[] = {const_cast<char*>(top.c_str()), nullptr};
  return walk_handle(fts_open(paths, options, nullptr), &fts_close);
}

// A directory listing, closed when the handle goes out of scope.
struct directory_closer {
  void operator()(DIR* directory) const { closedir(directory); }
};
using directory_handle = std::unique_ptr<DIR, directory_closer>;

}  // namespace kav
