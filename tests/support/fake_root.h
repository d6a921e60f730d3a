#pragma once

#include <functional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace kav::test {

// One entry of a device tree, at an absolute path inside the image.
struct entry {
  enum class kind { directory, file, link };
  std::string path;
  kind type;
  std::string data;  // file content or link target
  mode_t mode;
};

entry dir(std::string path, mode_t mode = 0755);
entry file(std::string path, std::string content = "", mode_t mode = 0644);
entry link(std::string path, std::string target);

// What a path holds, as text: "-> TARGET", "file:CONTENT", "dir" or "absent".
using state = std::pair<std::string, std::string>;

struct run_result {
  int status;  // exit status, or 128 + signal number
  std::string out;
  std::vector<std::string> err;
};

// A throwaway device image in a temporary directory, removed on destruction.
class fake_root {
 public:
  fake_root();
  explicit fake_root(const std::vector<entry>& tree);
  fake_root(const fake_root&) = delete;
  fake_root& operator=(const fake_root&) = delete;
  ~fake_root();

  const std::string& path() const { return root_; }
  void add(const entry& item) const;
  std::string describe(const std::string& image_path) const;

  // Runs the built program in the image through the fake-root runner.
  run_result run() const;

  // Runs `body` in a child process chrooted to the image, so that code on
  // fixed paths sees the image; its result text lands in `out`.
  run_result run_in_process(const std::function<std::string()>& body) const;

 private:
  std::string root_;
};

// Checks every listed path's state, labelling failures with `label`.
void expect_states(const fake_root& root, const std::vector<state>& expected,
                   const std::string& label);

}  // namespace kav::test
