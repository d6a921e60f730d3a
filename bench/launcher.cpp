// Boot-cost launcher, run by tools/bench inside a user and mount namespace.
//
//   launcher time ROOT RUNS STATE... -- PROGRAM...
//     Chroots to ROOT, then runs every PROGRAM (a path inside ROOT) RUNS
//     times, taking the programs in turn and starting each round with the
//     next one. Before every run, untimed, the device state is put back as
//     the STATE arguments say. Each run is one fork, exec and wait4, timed
//     with CLOCK_MONOTONIC around the three. A first, untimed round shows
//     each program's messages. Prints one line per program:
//       PROGRAM median_us=M min_us=A max_us=B maxrss_kb=K
//   launcher once ROOT STATE... -- COMMAND ARG...
//     Chroots to ROOT, puts the state back and runs COMMAND once, its output
//     passed through; for the tracers.
//
// STATE is link:PATH=TARGET (PATH is made a link to TARGET) or absent:PATH
// (PATH is unlinked).
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

[[noreturn]] void die(const char* what, const std::string& detail) {
  std::fprintf(stderr, "launcher: %s %s: %s\n", what, detail.c_str(),
               std::strerror(errno));
  std::exit(2);
}

struct state {
  bool link;
  std::string path;
  std::string target;
};

void restore(const std::vector<state>& states) {
  for (const state& s : states) {
    if (::unlink(s.path.c_str()) != 0 && errno != ENOENT) die("unlink", s.path);
    if (s.link && ::symlink(s.target.c_str(), s.path.c_str()) != 0)
      die("symlink", s.path);
  }
}

// Splits "STATE... -- WORD..." starting at argv[first].
void parse(int argc, char** argv, int first, std::vector<state>& states,
           std::vector<char*>& words) {
  int i = first;
  for (; i < argc && std::strcmp(argv[i], "--") != 0; ++i) {
    const std::string arg = argv[i];
    if (arg.rfind("link:", 0) == 0) {
      const std::size_t equals = arg.find('=');
      if (equals == std::string::npos) die("bad state", arg);
      states.push_back({true, arg.substr(5, equals - 5), arg.substr(equals + 1)});
    } else if (arg.rfind("absent:", 0) == 0) {
      states.push_back({false, arg.substr(7), {}});
    } else {
      errno = EINVAL;
      die("bad state", arg);
    }
  }
  for (++i; i < argc; ++i) words.push_back(argv[i]);
  if (words.empty()) {
    errno = EINVAL;
    die("nothing to run", "");
  }
}

void enter(const char* root) {
  if (::chroot(root) != 0) die("chroot", root);
  if (::chdir("/") != 0) die("chdir", "/");
}

std::int64_t now_ns() {
  timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return std::int64_t{t.tv_sec} * 1000000000 + t.tv_nsec;
}

struct outcome {
  std::int64_t ns;
  long maxrss_kb;
};

// One fork, exec and wait. `quiet_fd` (or -1) replaces standard output and
// error in the child.
outcome run(char* const* argv, int quiet_fd) {
  const std::int64_t start = now_ns();
  const pid_t child = ::fork();
  if (child < 0) die("fork", argv[0]);
  if (child == 0) {
    if (quiet_fd >= 0) {
      ::dup2(quiet_fd, 1);
      ::dup2(quiet_fd, 2);
    }
    ::execv(argv[0], argv);
    _exit(127);
  }
  int status;
  rusage usage;
  if (::wait4(child, &status, 0, &usage) != child) die("wait4", argv[0]);
  const std::int64_t end = now_ns();
  if (!WIFEXITED(status) || WEXITSTATUS(status) == 127) {
    errno = ECHILD;
    die("child failed", argv[0]);
  }
  return {end - start, usage.ru_maxrss};
}

int time_programs(int argc, char** argv) {
  if (argc < 6) return 2;
  const char* root = argv[2];
  const int runs = std::atoi(argv[3]);
  std::vector<state> states;
  std::vector<char*> programs;
  parse(argc, argv, 4, states, programs);

  const int quiet = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (quiet < 0) die("open", "/dev/null");
  enter(root);

  const std::size_t count = programs.size();
  for (char* program : programs) {
    std::fprintf(stderr, "-- messages of %s:\n", program);
    restore(states);
    char* const one[] = {program, nullptr};
    run(one, -1);
  }
  std::vector<std::vector<outcome>> results(count);
  for (int round = 0; round < runs; ++round) {
    for (std::size_t k = 0; k < count; ++k) {
      const std::size_t p = (round + k) % count;
      restore(states);
      char* const one[] = {programs[p], nullptr};
      results[p].push_back(run(one, quiet));
    }
  }
  restore(states);

  for (std::size_t p = 0; p < count; ++p) {
    std::vector<std::int64_t> times;
    long maxrss = 0;
    for (const outcome& o : results[p]) {
      times.push_back(o.ns);
      maxrss = std::max(maxrss, o.maxrss_kb);
    }
    std::sort(times.begin(), times.end());
    const std::size_t n = times.size();
    const double median =
        n % 2 ? times[n / 2] : (times[n / 2 - 1] + times[n / 2]) / 2.0;
    std::printf("%s median_us=%.1f min_us=%.1f max_us=%.1f maxrss_kb=%ld\n",
                programs[p], median / 1e3, times.front() / 1e3,
                times.back() / 1e3, maxrss);
  }
  return 0;
}

int once(int argc, char** argv) {
  if (argc < 5) return 2;
  std::vector<state> states;
  std::vector<char*> command;
  parse(argc, argv, 3, states, command);
  enter(argv[2]);
  restore(states);
  command.push_back(nullptr);
  const outcome o = run(command.data(), -1);
  std::fprintf(stderr, "-- maxrss_kb=%ld\n", o.maxrss_kb);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  int status = 2;
  if (mode == "time") status = time_programs(argc, argv);
  if (mode == "once") status = once(argc, argv);
  if (status == 2) std::fprintf(stderr, "launcher: bad arguments\n");
  return status;
}
