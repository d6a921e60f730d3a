#include "kavdata/building/program.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "fs/unique_fd.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/words.h"

namespace kav {
namespace {

constexpr std::size_t output_bound = std::size_t{1} << 20;

// This process's environment, but the locale: the tools' messages are read.
std::vector<std::string> plain_environment() {
  std::vector<std::string> found = {"LC_ALL=C"};
  for (char** entry = environ; *entry != nullptr; ++entry)
    if (std::strncmp(*entry, "LC_", 3) != 0 && std::strncmp(*entry, "LANG", 4) != 0)
      found.emplace_back(*entry);
  return found;
}

std::vector<char*> pointers(std::vector<std::string>& words) {
  std::vector<char*> found;
  for (std::string& word : words) found.push_back(word.data());
  found.push_back(nullptr);
  return found;
}

// Reads both pipes to their ends, keeping the first bytes of each.
void drain(int out, int err, kav_program_run& run) {
  pollfd wanted[2] = {{out, POLLIN, 0}, {err, POLLIN, 0}};
  std::string* into[2] = {&run.out, &run.err};
  for (int open = 2; open > 0;) {
    if (::poll(wanted, 2, -1) < 0) {
      if (errno == EINTR) continue;
      fail("cannot read what a program says", errno);
    }
    for (int i = 0; i < 2; ++i) {
      if (wanted[i].fd < 0 || wanted[i].revents == 0) continue;
      char buffer[65536];
      const ssize_t length = ::read(wanted[i].fd, buffer, sizeof buffer);
      if (length < 0 && errno == EINTR) continue;
      if (length <= 0) {
        wanted[i].fd = -1;
        --open;
      } else if (into[i]->size() < output_bound) {
        into[i]->append(buffer, std::min<std::size_t>(length, output_bound - into[i]->size()));
      }
    }
  }
}

class kav_spawn_actions {
 public:
  kav_spawn_actions() { ::posix_spawn_file_actions_init(&actions_); }
  ~kav_spawn_actions() { ::posix_spawn_file_actions_destroy(&actions_); }
  posix_spawn_file_actions_t* get() { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

}  // namespace

std::string find_program(const std::string& name, const std::string& package) {
  const char* const path = std::getenv("PATH");
  std::string places = std::string(path == nullptr ? "" : path) + ":/usr/sbin:/sbin";
  for (std::size_t start = 0; start <= places.size();) {
    const std::size_t end = std::min(places.find(':', start), places.size());
    const std::string candidate = places.substr(start, end - start) + "/" + name;
    if (end > start && ::access(candidate.c_str(), X_OK) == 0) return candidate;
    start = end + 1;
  }
  throw kav_failure(name + " is missing: install Debian's package " + package);
}

kav_program_run run_program(const std::string& path, const std::vector<std::string>& arguments,
                            const std::string& directory, int input) {
  int out[2], err[2];
  if (::pipe2(out, O_CLOEXEC) != 0) fail("cannot start " + escaped(path), errno);
  unique_fd out_read(out[0]), out_write(out[1]);
  if (::pipe2(err, O_CLOEXEC) != 0) fail("cannot start " + escaped(path), errno);
  unique_fd err_read(err[0]), err_write(err[1]);
  kav_spawn_actions actions;
  if (input >= 0)
    ::posix_spawn_file_actions_adddup2(actions.get(), input, 0);
  else
    ::posix_spawn_file_actions_addopen(actions.get(), 0, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_adddup2(actions.get(), out[1], 1);
  ::posix_spawn_file_actions_adddup2(actions.get(), err[1], 2);
  ::posix_spawn_file_actions_addchdir_np(actions.get(), directory.c_str());
  std::vector<std::string> words = arguments, environment = plain_environment();
  pid_t child;
  const int error = ::posix_spawn(&child, path.c_str(), actions.get(), nullptr,
                                  pointers(words).data(), pointers(environment).data());
  if (error != 0) fail("cannot start " + escaped(path), error);
  out_write.close();
  err_write.close();
  kav_program_run run;
  drain(out_read.get(), err_read.get(), run);
  int status;
  while (::waitpid(child, &status, 0) < 0)
    if (errno != EINTR) fail("cannot wait for " + escaped(path), errno);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return run;
}

}  // namespace kav
