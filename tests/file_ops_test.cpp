#include "fs/file_ops.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/capture.h"
#include "support/fake_root.h"

namespace kav::test {
namespace {

// The line warn(3) writes for `text` and error number `error`.
std::string warning(const std::string& text, int error) {
  return std::string(program_invocation_short_name) + ": " + text + ": " +
         std::strerror(error);
}

// Runs `action`, expecting the single warning `text` and errno `error` thrown
// as an int; error 0 expects silence and a normal return.
template <class Action>
void expect_outcome(Action action, const std::string& text, int error) {
  int thrown = 0;
  const auto lines = stderr_of([&] {
    try {
      action();
    } catch (int value) {
      thrown = value;
    }
  });
  EXPECT_EQ(thrown, error) << text;
  if (error == 0)
    EXPECT_TRUE(lines.empty()) << text;
  else
    EXPECT_EQ(lines, std::vector<std::string>{warning(text, error)});
}

TEST(RemoveTest, AbsentIsRemovedAndOnlyRealFailuresThrow) {
  const fake_root root({file("/file"), link("/dangling", "/nowhere"), dir("/dir")});
  const struct {
    std::string name;
    int error;
  } cases[] = {{"/missing", 0}, {"/file", 0}, {"/dangling", 0}, {"/dir", EISDIR}};
  for (const auto& c : cases) {
    const std::string path = root.path() + c.name;
    expect_outcome([&] { remove(path); },
                   "remove: could not remove " + path, c.error);
    EXPECT_EQ(root.describe(c.name), c.error ? "dir" : "absent") << c.name;
  }
}

TEST(ReadSymlinkTest, ContentAbsenceAndNonLinks) {
  const std::string exact(1024, 'a'), longer(1500, 'b');
  const fake_root root({link("/exact", exact), link("/longer", longer),
                        file("/file"), dir("/dir")});
  const struct {
    std::string name, content;
    int error;
  } cases[] = {{"/missing", "", 0},
               {"/exact", exact, 0},
               {"/longer", longer.substr(0, 1024), 0},
               {"/file", "", EINVAL},
               {"/dir", "", EINVAL}};
  for (const auto& c : cases) {
    const std::string path = root.path() + c.name;
    std::string content;
    expect_outcome([&] { content = read_symlink(path); }, "read_symlink: " + path,
                   c.error);
    EXPECT_EQ(content, c.content) << c.name;
  }
}

TEST(CreateSymlinkTest, NamesLinkPathFirstAndLeavesExistingEntry) {
  const fake_root root({file("/taken", "keep"), link("/linked", "/old")});
  const struct {
    std::string name, after;
    int error;
  } cases[] = {{"/new", "-> /no/such/target", 0},
               {"/taken", "file:keep", EEXIST},
               {"/linked", "-> /old", EEXIST}};
  for (const auto& c : cases) {
    const std::string path = root.path() + c.name;
    expect_outcome([&] { create_symlink("/no/such/target", path); },
                   "create_symlink: from " + path + " to /no/such/target", c.error);
    EXPECT_EQ(root.describe(c.name), c.after) << c.name;
  }
}

TEST(TouchFileTest, CreatesWithUmaskKeepsContentAndOnlyWarns) {
  const fake_root root({file("/kept", "old marker")});
  const mode_t old_mask = ::umask(022);
  expect_outcome([&] { touch_file(root.path() + "/new"); }, "", 0);
  ::umask(old_mask);
  struct stat status;
  ASSERT_EQ(::stat((root.path() + "/new").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0644u);

  expect_outcome([&] { touch_file(root.path() + "/kept"); }, "", 0);
  EXPECT_EQ(root.describe("/kept"), "file:old marker");

  const std::string orphan = root.path() + "/missing/needs_cleanup";
  const auto lines = stderr_of([&] { touch_file(orphan); });
  EXPECT_EQ(lines, std::vector<std::string>{warning("Cannot touch file " + orphan, ENOENT)});
}

}  // namespace
}  // namespace kav::test
