#pragma once

#include <cstdint>
#include <string>

#include "fs/unique_fd.h"
#include "kavdata/archives/archive.h"

// An archive held whole before any of it is parsed, so that its signature is
// judged first: then only bytes that a trusted key signed reach the parser,
// and a forged signature costs one hash of the input.
namespace kav {

struct kav_spool {
  unique_fd fd{-1};    // the bytes, read from the start
  kav_digest digest{};  // of every byte, those after the archive's end too
  // The bytes left free on the file system that holds them: what unpacking
  // beside them may count on (UINT64_MAX when they are in memory).
  std::uint64_t free_space = UINT64_MAX;
};

// Reads `input` to its end, never seeking it, at most archive_input_limit
// bytes, into a file without a name on the file system of the directory open
// at `near` (`near_path` in messages), where it counts against the free space
// and the margin kept there; into memory where that file system holds no
// such file. Throws kav_failure in one line.
kav_spool spool_archive(int input, int near, const std::string& near_path);

}  // namespace kav
