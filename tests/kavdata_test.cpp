// kavdata's walks by descriptor against a tree that changes under them: a
// test hook swaps entries between judging and opening them, every time.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <string>

#include "kavdata/walks/beneath.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/handles.h"
#include "kavdata/walks/identity.h"
#include "kavdata/walks/tree_copy.h"
#include "kavdata/walks/tree_remove.h"

namespace kav {
namespace {

class kavdata_walks : public testing::Test {
 protected:
  void SetUp() override {
    char path[] = "/tmp/kavdata-test-XXXXXX";
    top_ = ::mkdtemp(path);
    ::chmod(top_.c_str(), 0755);
    for (const char* directory : {"source", "source/a", "source/b", "secret", "target", "trash",
                                  "trash/set", "trash/set/a", "trash/set/b"})
      ::mkdir(at(directory).c_str(), 0755);
    for (const char* file : {"source/a/zone", "source/b/zone", "secret/key", "trash/set/a/zone",
                             "trash/set/b/zone"})
      std::ofstream(at(file)) << "TZif";
  }
  void TearDown() override {
    between_judging_and_opening = nullptr;
    std::system(("rm -rf " + top_).c_str());
  }

  std::string at(const std::string& path) const { return top_ + "/" + path; }
  unique_fd open(const std::string& path) const {
    return unique_fd(::open(at(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  bool exists(const std::string& path) const {
    struct stat status;
    return ::lstat(at(path).c_str(), &status) == 0;
  }

  // What copy_tree says of source/ copied into target/: "" when it copies.
  std::string copy() const {
    std::system(("rm -rf " + at("target") + " && mkdir " + at("target")).c_str());
    const unique_fd source = open("source"), target = open("target");
    struct stat status;
    ::fstat(source.get(), &status);
    try {
      const kav_provider provider(status, "source");
      copy_tree(provider, source.get(), "source", target.get(), "target", {});
      return {};
    } catch (const kav_failure& failure) {
      return failure.what();
    }
  }

  // What remove_tree_at says of trash/set: "" when it deletes it whole.
  std::string remove() const {
    const unique_fd trash = open("trash");
    try {
      remove_tree_at(trash.get(), "set", "trash/set");
      return {};
    } catch (const kav_failure& failure) {
      return failure.what();
    }
  }

  std::string top_;
};

// The swap a test wants at the race point: at the entry `when`, the path
// `swapped` becomes a link to `target`.
struct kav_swap {
  std::string when, swapped, target;
} swap_wanted;

void swap_at_race_point(int, const char* name) {
  if (swap_wanted.when != name) return;
  std::system(("rm -rf " + swap_wanted.swapped).c_str());
  ::symlink(swap_wanted.target.c_str(), swap_wanted.swapped.c_str());
  swap_wanted.when.clear();
}

TEST_F(kavdata_walks, entries_swapped_for_links_lead_nowhere) {
  between_judging_and_opening = swap_at_race_point;
  // Judged a directory, then a link to the secret: the copy stops there.
  swap_wanted = {"b", at("source/b"), at("secret")};
  EXPECT_EQ(copy(), "source/b changed while it was read");
  EXPECT_FALSE(exists("target/b/key"));
  // Judged a file, then a link to the secret file.
  swap_wanted = {"zone", at("source/a/zone"), at("secret/key")};
  EXPECT_EQ(copy(), "source/a/zone changed while it was read");
  // A directory not yet deleted, swapped for a link: only the link goes.
  swap_wanted = {"a", at("trash/set/b"), at("secret")};
  EXPECT_EQ(remove(), "");
  // Judged a directory, then a link, while it is deleted: the same.
  swap_wanted = {"set", at("trash/set"), at("secret")};
  std::system(("mkdir -p " + at("trash/set")).c_str());
  EXPECT_EQ(remove(), "");
  EXPECT_TRUE(exists("secret/key"));
  EXPECT_FALSE(exists("trash/set"));
}

// Runs `test` in a child with a mount namespace of its own: "" or why not.
std::string in_mount_namespace(const std::function<bool()>& test) {
  const pid_t child = ::fork();
  if (child == 0) {
    const uid_t uid = ::geteuid();
    if (uid != 0 && ::unshare(CLONE_NEWUSER) == 0) {
      std::ofstream("/proc/self/uid_map") << "0 " << uid << " 1";
    }
    if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
      ::_exit(2);
    ::_exit(test() ? 0 : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WEXITSTATUS(status) == 2 ? "no mount namespace here" : WEXITSTATUS(status) == 0 ? "" : "failed";
}

TEST_F(kavdata_walks, mount_points_are_left_alone) {
#ifdef KAVDATA_TESTS_EMULATED
  GTEST_SKIP() << "under qemu's user-mode emulation, a forked child that makes a mount "
                  "namespace never ends";
#endif
  const std::string result = in_mount_namespace([this] {
    for (const char* point : {"trash/set/b", "source/b"})
      if (::mount(at("secret").c_str(), at(point).c_str(), nullptr, MS_BIND, nullptr) != 0) return false;
    return remove() == "trash/set/b is a mount point: it is left alone" &&
           copy() == "source/b is on another file system" && exists("secret/key");
  });
  if (result == "no mount namespace here") GTEST_SKIP() << result;
  EXPECT_EQ(result, "");
}

// Root reads another user's tree as that user, and its own only where no
// one else can change it.
TEST_F(kavdata_walks, root_reads_as_the_provider) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root changes identity";
  ::chmod(at("secret/key").c_str(), 0600);
  std::system(("chown -R 65534:65534 " + at("source")).c_str());
  ::link(at("secret/key").c_str(), at("source/b/key").c_str());
  EXPECT_EQ(copy(), "cannot read source/b/key: Permission denied");
  ::unlink(at("source/b/key").c_str());
  std::system(("chown -R 0:0 " + at("source") + " && chmod 0777 " + at("source/b")).c_str());
  EXPECT_EQ(copy(), "source/b may be written by others in a tree that root provides");
}

// A link is followed only while it stays beneath the directory it is
// resolved from: the walk one name at a time must say what the kernel's own
// resolution says, where the kernel has one.
TEST_F(kavdata_walks, LinksResolveBeneathAsTheKernelResolvesThem) {
  for (const auto& [link, target] : {std::pair("source/a/up", "../b/zone"), {"source/a/self", "."},
                                     {"source/out", "../secret/key"}, {"source/abs", "/etc/passwd"},
                                     {"source/loop", "loop"}, {"source/a/via", "../a/up"},
                                     {"source/dir", "a"}, {"source/a/far", "../../source/b/zone"}})
    ::symlink(target, at(link).c_str());
  const unique_fd source = open("source");
  struct stat zone;
  ::stat(at("source/b/zone").c_str(), &zone);
  // What opening `path` gives: the zone b/zone, another file, or an errno.
  const auto outcome = [&](int fd) {
    struct stat status;
    const std::string what = fd < 0 ? std::string("errno ") + std::to_string(errno)
                             : ::fstat(fd, &status) == 0 && same_file(status, zone) ? "b/zone"
                                                                                    : "other";
    if (fd >= 0) ::close(fd);
    return what;
  };
  const char* const cases[][2] = {
      {"a/up", "b/zone"},     {"a/via", "b/zone"},    {"a/self/../b/zone", "b/zone"},
      {"dir/up", "b/zone"},   {"a/zone", "other"},    {"out", "errno 18"},
      {"abs", "errno 18"},    {"a/far", "errno 18"},  {"loop", "errno 40"},
      {"../source/b/zone", "errno 18"}, {"a/nothing", "errno 2"}};
  for (const auto& [path, wanted] : cases) {
    EXPECT_EQ(outcome(open_beneath_by_names(source.get(), path)), wanted) << path;
    EXPECT_EQ(outcome(open_beneath(source.get(), path)), wanted) << path;
  }
}

}  // namespace
}  // namespace kav
