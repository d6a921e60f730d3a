#pragma once

#include <string>

#include "fs/paths.h"

// Single-call wrappers for the links and marker files. Failures that are
// reported write one warning and throw errno as a plain int.
namespace kav {

// Data-protection class of the marker file and the working directories.
inline constexpr int protection_class = 4;

// Unlinks a file or link. An absent path counts as removed; any other failure
// (a directory, a read-only file system) warns and throws.
void remove(const std::string& path);

// True when the path, links followed, exists. Never warns or throws.
bool exists(const std::string& path);

// The content of the link at `path`, at most 1024 bytes of it. An absent link
// reads as the empty string; any other failure (not a link) warns and throws.
std::string read_symlink(const std::string& path);

// Makes a link at `link_path` holding `target`, as symlink(2) does; the target
// need not exist. Fails, warning and throwing, when anything is at `link_path`.
void create_symlink(const std::string& target, const std::string& link_path);

// Creates the marker file, or opens an existing one without changing it.
// Failure only warns.
void touch_file(const std::string& path = paths::needs_cleanup);

// Gives an existing directory the protection class; silent on any failure.
void set_protection_class(const std::string& directory);

// Gives both working directories their protection class; silent on failure.
void prepare_directories();

}  // namespace kav
