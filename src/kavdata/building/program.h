#pragma once

#include <string>
#include <vector>

// The build host's own tools (zic, gpgv), found and run.
namespace kav {

// The path of the program `name` in PATH, else in /usr/sbin or /sbin, where
// Debian installs zic; throws kav_failure saying which Debian package
// brings it when it is nowhere.
std::string find_program(const std::string& name, const std::string& package);

struct kav_program_run {
  int status = 0;   // the exit status, or 128 and the signal that ended it
  std::string out;  // what it wrote, each stream at most 1 MiB
  std::string err;
};

// Runs `path` with `arguments` (the first is its name) in `directory`, in the
// "C" locale, reading `input` (-1: nothing) as its standard input; waits for
// it. Throws kav_failure when it cannot be started.
kav_program_run run_program(const std::string& path, const std::vector<std::string>& arguments,
                            const std::string& directory, int input = -1);

}  // namespace kav
