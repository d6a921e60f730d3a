// kavdata: says what the next start of kavsetup will do with the time zone
// data sets and why, judges a data set before it is staged, stages it, and
// reclaims the data sets that went out of use.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <getopt.h>
#include <optional>
#include <string>

#include "kavdata/check.h"
#include "kavdata/clean.h"
#include "kavdata/report.h"
#include "kavdata/stage.h"

namespace {

constexpr int usage_error = 2;

constexpr char usage_text[] =
    "Usage: kavdata [--help] [--version] COMMAND [ARGUMENTS]\n"
    "Says what the next start of kavsetup will do with the time zone data, and why.\n"
    "\n"
    "Commands:\n"
    "  status                  the data sets, the links and the next start, for a person\n"
    "  show                    the same as NAME=VALUE lines, for scripts\n"
    "  check [--as VERSION] DIR\n"
    "                          whether the next start would take the unpacked data set\n"
    "                          DIR if it were staged as VERSION (default: DIR's name)\n"
    "  stage [--as VERSION] DIR\n"
    "                          as root: install DIR, if check takes it, and point\n"
    "                          tz_latest at it\n"
    "  latest VERSION|none     as root: point tz_latest at the staged data set VERSION,\n"
    "                          or at nothing\n"
    "  clean                   as root: delete the data sets that no link names\n"
    "\n"
    "status and show exit 1 when the next start will refuse or reset something or\n"
    "leave the device on UTC; the other commands exit 1 with one line per reason.\n"
    "See kavdata(1).\n";

int usage(const char* problem = nullptr, const std::string& argument = "") {
  if (problem != nullptr) {
    std::fprintf(stderr, "%s: %s%s; try 'kavdata --help'\n",
                 program_invocation_short_name, problem,
                 argument.empty() ? "" : (" '" + argument + "'").c_str());
    return usage_error;
  }
  std::fputs(usage_text, stdout);
  return 0;
}

// Reads the options of argv: --help and --version, then `value`'s, whose
// argument goes to `*value`. Returns -1 to go on with the arguments at
// optind, or the exit status.
int parse_options(int argc, char** argv, const option& value = {},
                  std::optional<std::string>* argument = nullptr) {
  const option options[] = {{"help", no_argument, nullptr, 'h'},
                            {"version", no_argument, nullptr, 'V'}, value, {}};
  opterr = 0;
  optind = 1;
  for (int found; (found = getopt_long(argc, argv, "+:h", options, nullptr)) != -1;) {
    if (found == 'h') return usage();
    if (found == 'V') return std::puts("kavdata " KAVSETUP_VERSION) < 0;
    if (found == ':') return usage("option requires an argument:", argv[optind - 1]);
    if (found == '?' && optopt != 0) return usage("invalid option --", std::string(1, optopt));
    if (found == '?') return usage("unrecognized option", argv[optind - 1]);
    *argument = optarg;
  }
  return -1;
}

int report_command(int argc, char** argv, void (*print)(const kav::kav_report&)) {
  if (const int status = parse_options(argc, argv); status >= 0) return status;
  if (optind != argc) return usage("unexpected argument", argv[optind]);
  const kav::kav_report report = kav::gather_report();
  print(report);
  return report.next.troubled() ? 1 : 0;
}

int status_command(int argc, char** argv) {
  return report_command(argc, argv, kav::print_status);
}

int show_command(int argc, char** argv) {
  return report_command(argc, argv, kav::print_properties);
}

// Runs `command` on the one directory that argv names, with --as.
int directory_command(int argc, char** argv, int (*command)(const std::string&, const std::string&)) {
  std::optional<std::string> as;
  if (const int status = parse_options(argc, argv, {"as", required_argument, nullptr, 'a'}, &as);
      status >= 0)
    return status;
  if (argc - optind != 1) return usage("give one directory");
  if (as && as->empty()) return usage("an empty version given to", "--as");
  return command(argv[optind], as.value_or(""));
}

int check_command(int argc, char** argv) {
  return directory_command(argc, argv, [](const std::string& directory, const std::string& as) {
    return kav::print_check(kav::check_data_set(directory, as));
  });
}

int stage_command(int argc, char** argv) {
  return directory_command(argc, argv, kav::stage_data_set);
}

int latest_command(int argc, char** argv) {
  if (const int status = parse_options(argc, argv); status >= 0) return status;
  if (argc - optind != 1) return usage("give one version, or none");
  return kav::point_latest(argv[optind]);
}

int clean_command(int argc, char** argv) {
  if (const int status = parse_options(argc, argv); status >= 0) return status;
  if (optind != argc) return usage("unexpected argument", argv[optind]);
  return kav::clean_data_sets();
}

struct kav_command {
  const char* name;
  int (*run)(int argc, char** argv);
};

constexpr kav_command commands[] = {{"status", status_command}, {"show", show_command},
                                    {"check", check_command},   {"stage", stage_command},
                                    {"latest", latest_command}, {"clean", clean_command}};

}  // namespace

int main(int argc, char** argv) {
  if (const int status = parse_options(argc, argv); status >= 0) return status;
  if (optind == argc) return usage("no command given");
  for (const kav_command& command : commands)
    if (std::strcmp(argv[optind], command.name) == 0)
      return command.run(argc - optind, argv + optind);
  return usage("unknown command", argv[optind]);
}
