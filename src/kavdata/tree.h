#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Whole directory trees: data sets as stage copies them and clean deletes
// them. Links are never followed.
namespace kav {

// The bytes of the files under `path`; `error` is the first errno met.
std::uint64_t tree_size(const std::string& path, int& error);

// Copies the tree at `source` into the empty directory `target`, as a staged
// data set: directories 0755, files 0644, links as links, all owned by root,
// each file and directory flushed to disk; then reads both again to make sure
// that the copy is whole, as a directory that fails to be read part-way looks
// to fts(3) like one that ends there. Returns the bytes of the files copied.
// Throws kav_failure naming the path that could not be read or written.
std::uint64_t copy_staged(const std::string& source, const std::string& target);

// Whether `staged` is what copy_staged makes of `source`.
bool same_staged(const std::string& source, const std::string& staged);

// Deletes the tree at `path`; returns the bytes of the files deleted. Throws
// kav_failure naming what remains.
std::uint64_t remove_tree(const std::string& path);

// The names in the directory at `path`, sorted. Throws kav_failure.
std::vector<std::string> directory_names(const std::string& path);

// Flushes a directory's entries to disk. Throws kav_failure.
void sync_directory(const std::string& path);

}  // namespace kav
