#include "support/fake_root.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <ftw.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/capture.h"

namespace kav::test {
namespace {

std::string read_all(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void write_all(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

void make_parents(const std::string& path) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1))
    ::mkdir(path.substr(0, slash).c_str(), 0755);
}

int remove_entry(const char* path, const struct stat*, int, struct FTW*) {
  ::chmod(path, 0700);  // so that private directories can be emptied
  return ::remove(path);
}

void write_id_map(const char* file, unsigned id) {
  write_all(file, "0 " + std::to_string(id) + " 1\n");
}

// Enters a new user namespace as its root and makes `root` the file system
// root, as the fake-root runner does for the program.
void enter_image(const std::string& root) {
  const uid_t uid = ::getuid();
  const gid_t gid = ::getgid();
  if (::unshare(CLONE_NEWUSER) != 0) _exit(120);
  write_all("/proc/self/setgroups", "deny");
  write_id_map("/proc/self/uid_map", uid);
  write_id_map("/proc/self/gid_map", gid);
  if (::chroot(root.c_str()) != 0 || ::chdir("/") != 0) _exit(121);
}

int exit_status_of(int wait_status) {
  return WIFEXITED(wait_status) ? WEXITSTATUS(wait_status)
                                : 128 + WTERMSIG(wait_status);
}

// Forks, sends the child's standard streams to files, runs `child` there and
// collects what it wrote.
run_result run_child(const std::string& scratch,
                     const std::function<void()>& child) {
  const std::string out = scratch + ".out", err = scratch + ".err";
  std::fflush(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    const int out_fd = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err_fd = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(out_fd, 1);
    ::dup2(err_fd, 2);
    child();
    _exit(127);
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  run_result result{exit_status_of(status), read_all(out), lines_of(read_all(err))};
  std::remove(out.c_str());
  std::remove(err.c_str());
  return result;
}

}  // namespace

entry dir(std::string path, mode_t mode) {
  return {std::move(path), entry::kind::directory, "", mode};
}
entry file(std::string path, std::string content, mode_t mode) {
  return {std::move(path), entry::kind::file, std::move(content), mode};
}
entry link(std::string path, std::string target) {
  return {std::move(path), entry::kind::link, std::move(target), 0};
}

fake_root::fake_root() {
  char pattern[] = "/tmp/kavsetup-root-XXXXXX";
  if (::mkdtemp(pattern) == nullptr) throw std::runtime_error("mkdtemp failed");
  root_ = pattern;
}

fake_root::fake_root(const std::vector<entry>& tree) : fake_root() {
  for (const entry& item : tree) add(item);
}

fake_root::~fake_root() {
  ::nftw(root_.c_str(), remove_entry, 16, FTW_DEPTH | FTW_PHYS);
}

void fake_root::add(const entry& item) const {
  const std::string target = root_ + item.path;
  make_parents(target);
  switch (item.type) {
    case entry::kind::directory:
      ::mkdir(target.c_str(), 0755);
      break;
    case entry::kind::file:
      write_all(target, item.data);
      break;
    case entry::kind::link:
      if (::symlink(item.data.c_str(), target.c_str()) != 0)
        throw std::runtime_error("cannot make link " + target);
      return;
  }
  ::chmod(target.c_str(), item.mode);
}

std::string fake_root::describe(const std::string& image_path) const {
  const std::string target = root_ + image_path;
  struct stat status;
  if (::lstat(target.c_str(), &status) != 0) return "absent";
  if (S_ISDIR(status.st_mode)) return "dir";
  if (S_ISREG(status.st_mode)) return "file:" + read_all(target);
  std::string content(4096, '\0');
  const ssize_t length = ::readlink(target.c_str(), content.data(), content.size());
  return "-> " + content.substr(0, length < 0 ? 0 : length);
}

run_result fake_root::run() const {
  return run_child(root_, [this] {
    ::execl(RUN_IN_ROOT, RUN_IN_ROOT, root_.c_str(), KAVSETUP_BINARY, nullptr);
  });
}

run_result fake_root::run_in_process(const std::function<std::string()>& body) const {
  return run_child(root_, [this, &body] {
    enter_image(root_);
    std::string text;
    try {
      text = body();
    } catch (...) {
      _exit(123);
    }
    std::fflush(stderr);
    if (::write(1, text.data(), text.size()) < 0) _exit(122);
    _exit(0);
  });
}

void expect_states(const fake_root& root, const std::vector<state>& expected,
                   const std::string& label) {
  for (const auto& [path, description] : expected)
    EXPECT_EQ(root.describe(path), description) << label << ": " << path;
}

}  // namespace kav::test
