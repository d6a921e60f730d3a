// kavdata's walks by descriptor against a tree that changes under them: a
// test hook swaps entries between judging and opening them, every time.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <string>

#include "kavdata/archives/spool.h"
#include "kavdata/building/pack.h"
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
    for (const char* directory : {"source", "source/a", "source/b", "secret", "target", "spool",
                                  "trash", "trash/set", "trash/set/a", "trash/set/b"})
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

// Where a link leads is found on disk, by the kernel's walk and by the one
// made by hand alike, opened to read or as a path: a chain that stays inside
// by its words leads out.
TEST_F(kavdata_walks, links_lead_where_the_disk_says) {
  const struct {
    const char* link;
    const char* target;
    int error;
    const char* reached;  // below source/
  } cases[] = {{"a/u0", "..", 0, "."},           {"a/u1", "u0/../..", EXDEV, ""},
               {"a/via", "u0/b/zone", 0, "b/zone"}, {"a/abs", "/tmp", EXDEV, ""},
               {"a/loop", "loop", ELOOP, ""},     {"a/gone", "none", ENOENT, ""},
               {"a/in", "zone/x", ENOTDIR, ""},    {"a/up", "../a/../../source/b", EXDEV, ""}};
  for (const auto& c : cases) ::symlink(c.target, at(std::string("source/") + c.link).c_str());
  const unique_fd top = open("source");
  for (const int flags : {O_PATH | O_CLOEXEC, O_RDONLY | O_NONBLOCK | O_CLOEXEC})
  for (const bool by_hand : {false, true}) {
    openat2_missing = by_hand;
    for (const auto& c : cases) {
      errno = 0;
      const unique_fd led(open_beneath(top.get(), c.link, flags));
      struct stat got, wanted;
      EXPECT_EQ(led.valid() ? 0 : errno, c.error) << c.link << (by_hand ? " by hand" : "");
      if (led.valid()) {
        EXPECT_TRUE(::fstat(led.get(), &got) == 0 &&
                    ::stat(at(std::string("source/") + c.reached).c_str(), &wanted) == 0 &&
                    same_file(got, wanted)) << c.link;
      }
    }
  }
  openat2_missing = false;
}

// The remover holds a few descriptors whatever the depth, and pack reads
// what it judged, as the provider: a swap while it copies stops it.
TEST_F(kavdata_walks, deep_trees_go_and_pack_reads_what_it_judged) {
  unique_fd level = open("trash/set");
  for (int i = 0; i < 200 && level.valid(); ++i)
    level = unique_fd(::mkdirat(level.get(), "d", 0755) == 0 ? open_directory_at(level.get(), "d") : -1);
  struct rlimit old, low;
  ::getrlimit(RLIMIT_NOFILE, &old);
  low = {32, old.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &low);
  EXPECT_EQ(remove(), "");
  ::setrlimit(RLIMIT_NOFILE, &old);
  EXPECT_FALSE(exists("trash/set"));
#ifdef KAVDATA_TESTS_EMULATED
  return;  // the emulator given a library root reads "/" as that root
#endif

  ::rename(at("source/a").c_str(), at("source/zoneinfo").c_str());
  ::rename(at("source/b").c_str(), at("source/icutz").c_str());
  ::rename(at("source/icutz/zone").c_str(), at("source/icutz/icutz44l.dat").c_str());
  std::ofstream(at("source/zoneinfo/+VERSION")) << "2099a\n";
  between_judging_and_opening = swap_at_race_point;
  swap_wanted = {"zone", at("source/zoneinfo/zone"), at("secret/key")};
  testing::internal::CaptureStderr();
  EXPECT_EQ(pack_data_set(at("source"), "2099a.1.0", at("packed")), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "kavdata_unit_tests: pack: " + at("source/zoneinfo/zone") + " changed while it was read\n");
  EXPECT_FALSE(exists("packed"));
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

// Where spool_archive holds `megabytes` MiB beside the directory `near`:
// "in memory", or the MiB it leaves free there; or why not.
std::string spooled(const std::string& input, int megabytes, const char* near) {
  std::ofstream(input) << std::string(static_cast<std::size_t>(megabytes) << 20, 'x');
  const unique_fd in(::open(input.c_str(), O_RDONLY)), at(::open(near, O_RDONLY | O_DIRECTORY));
  try {
    const kav_spool spool = spool_archive(in.get(), at.get(), near);
    struct stat status;
    return ::fstat(spool.fd.get(), &status) == 0 && status.st_size == off_t{megabytes} << 20 &&
                   ::lseek(spool.fd.get(), 0, SEEK_CUR) == 0
               ? (spool.free_space == UINT64_MAX ? std::string("in memory")
                                                 : std::to_string(spool.free_space >> 20) + " MiB")
               : "not whole";
  } catch (const kav_failure& failure) {
    return failure.what();
  }
}

TEST_F(kavdata_walks, other_file_systems) {
#ifdef KAVDATA_TESTS_EMULATED
  GTEST_SKIP() << "under qemu's user-mode emulation, a forked child that makes a mount "
                  "namespace never ends";
#endif
  // Where no nameless file can be made (/proc), an archive is held in memory.
  EXPECT_EQ(spooled(at("input"), 1, "/proc"), "in memory");
  const std::string result = in_mount_namespace([this] {
    for (const char* point : {"trash/set/b", "source/b"})
      if (::mount(at("secret").c_str(), at(point).c_str(), nullptr, MS_BIND, nullptr) != 0) return false;
    // Beside the data set, the archive counts against the free space.
    struct statvfs space;
    if (::mount("tmpfs", at("spool").c_str(), "tmpfs", 0, "size=20m") != 0 ||
        ::statvfs(at("spool").c_str(), &space) != 0)
      return false;
    const std::uint64_t left = (std::uint64_t{space.f_bavail} * space.f_frsize - (1 << 20)) >> 20;
    return remove() == "trash/set/b is a mount point: it is left alone" &&
           copy() == "source/b is on another file system" && exists("secret/key") &&
           spooled(at("input"), 1, at("spool").c_str()) == std::to_string(left) + " MiB" &&
           spooled(at("input"), 5, at("spool").c_str()) ==
               "the archive does not fit: 20.0 MiB are free, and holding it leaves less than "
               "16.0 MiB";
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

}  // namespace
}  // namespace kav
