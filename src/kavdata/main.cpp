// kavdata: says what the next start of kavsetup will do with the time zone
// data sets and why, judges a data set before it is staged, stages it, and
// reclaims the data sets that went out of use.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <getopt.h>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "kavdata/building/build.h"
#include "kavdata/building/pack.h"
#include "kavdata/judgement/check.h"
#include "kavdata/judgement/check_archive.h"
#include "kavdata/reports/diff.h"
#include "kavdata/reports/report.h"
#include "kavdata/writers/clean.h"
#include "kavdata/writers/latest.h"
#include "kavdata/writers/stage.h"

namespace {

constexpr int usage_error = 2;

constexpr char usage_text[] =
    "Usage: kavdata [--help] [--version] COMMAND [ARGUMENTS]\n"
    "Says what the next start of kavsetup will do with the time zone data, and why.\n"
    "\n"
    "Commands:\n"
    "  status                  the data sets, the links and the next start, for a person\n"
    "  show                    the same as NAME=VALUE lines, for scripts\n"
    "  check [--as VERSION] [--signature SIG] DIR|FILE\n"
    "                          whether the next start would take the unpacked data set\n"
    "                          DIR, or the archive FILE (- for standard input), if it\n"
    "                          were staged as VERSION (default: its name), and who\n"
    "                          signed FILE (SIG, default FILE.minisig)\n"
    "  stage [--as VERSION] [--signature SIG] [--replace-newer] DIR|FILE\n"
    "                          as root: install DIR or FILE, if check takes it, and\n"
    "                          point tz_latest at it, even away from a newer update\n"
    "                          with --replace-newer\n"
    "  pack [--as VERSION] [-o FILE] DIR\n"
    "                          write the data set DIR as one archive, FILE (default:\n"
    "                          VERSION.tar.zst; - for standard output), to be signed\n"
    "  latest VERSION|none     as root: point tz_latest at the staged data set VERSION,\n"
    "                          or at nothing\n"
    "  latest --target TARGET  as root: make tz_latest exactly TARGET, as show writes it\n"
    "  clean                   as root: delete the data sets that no link names\n"
    "  diff [--from DATE] [--until DATE] [--zone NAME]... OLD NEW\n"
    "                          the zone names whose local time differs between the data\n"
    "                          sets OLD and NEW (directories, archives, or system,\n"
    "                          in-use, latest or a staged version) from DATE (default:\n"
    "                          now) to DATE (default: ten years later), in UTC\n"
    "\n"
    "status and show exit 1 when the next start will refuse or reset something or\n"
    "leave the device on UTC; diff exits 1 when a zone differs, 2 on bad input;\n"
    "the other commands exit 1 with one line per reason.\n"
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

// An option with an argument, which goes to `*argument` or is added to
// `*every` for an option that may come again, or a flag, which sets
// `*argument` empty.
struct kav_value_option {
  const char* name;
  char letter;  // its short form, or 0
  std::optional<std::string>* argument;
  std::vector<std::string>* every = nullptr;
  bool flag = false;
};

// Reads the options of argv: --help and --version, then `values`. Returns -1
// to go on with the arguments at optind, or the exit status.
int parse_options(int argc, char** argv, const std::vector<kav_value_option>& values = {}) {
  std::vector<option> options = {{"help", no_argument, nullptr, 'h'},
                                 {"version", no_argument, nullptr, 'V'}};
  // Options may follow the data set's name, but none may follow the command's.
  std::string letters = values.size() == 0 ? "+:h" : ":h";
  int code = 256;
  for (const kav_value_option& value : values) {
    options.push_back({value.name, value.flag ? no_argument : required_argument, nullptr,
                       value.letter ? value.letter : code++});
    if (value.letter) letters += std::string(1, value.letter) + (value.flag ? "" : ":");
  }
  options.push_back({});
  opterr = 0;
  optind = 0;  // glibc starts afresh, with this call's ordering rule
  for (int found; (found = getopt_long(argc, argv, letters.c_str(), options.data(), nullptr)) != -1;) {
    if (found == 'h') return usage();
    if (found == 'V') return std::puts("kavdata " KAVSETUP_VERSION) < 0;
    if (found == ':') return usage("option requires an argument:", argv[optind - 1]);
    if (found == '?' && optopt != 0 && std::strncmp(argv[optind - 1], "--", 2) == 0)
      return usage("option takes no argument:", argv[optind - 1]);
    if (found == '?' && optopt != 0) return usage("invalid option --", std::string(1, optopt));
    if (found == '?') return usage("unrecognized option", argv[optind - 1]);
    for (std::size_t i = 2; i + 1 < options.size(); ++i) {
      const kav_value_option& value = values.begin()[i - 2];
      if (options[i].val != found) continue;
      if (value.every) value.every->push_back(optarg);
      else *value.argument = optarg ? optarg : "";
    }
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

// Runs `command` on the one directory or file that argv names, with --as,
// --signature and, for `output`, -o, and the flags `more`.
int source_command(
    int argc, char** argv,
    const std::function<int(const std::string&, const std::string&, const std::string&)>& command,
    bool output = false, const std::vector<kav_value_option>& more = {}) {
  std::optional<std::string> as, other;
  std::vector<kav_value_option> options = {{"as", 0, &as}, output ? kav_value_option{
      "output", 'o', &other} : kav_value_option{"signature", 0, &other}};
  options.insert(options.end(), more.begin(), more.end());
  if (const int status = parse_options(argc, argv, options); status >= 0) return status;
  if (argc - optind != 1) return usage(output ? "give one directory" : "give one directory or file");
  if (as && as->empty()) return usage("an empty version given to", "--as");
  return command(argv[optind], as.value_or(""), other.value_or(""));
}

int check_command(int argc, char** argv) {
  return source_command(argc, argv, [](const std::string& source, const std::string& as,
                                       const std::string& signature) {
    struct stat status;
    if (source == "-" || (::stat(source.c_str(), &status) == 0 && !S_ISDIR(status.st_mode)))
      return kav::check_archive(source, as, signature);
    return kav::print_check(kav::check_data_set(source, as));
  });
}

int stage_command(int argc, char** argv) {
  std::optional<std::string> replace_newer;
  return source_command(
      argc, argv,
      [&](const std::string& source, const std::string& as, const std::string& signature) {
        return kav::stage_data_set(source, as, signature, replace_newer.has_value());
      },
      false, {{"replace-newer", 0, &replace_newer, nullptr, true}});
}

int pack_command(int argc, char** argv) {
  return source_command(argc, argv, kav::pack_data_set, true);
}

int diff_command(int argc, char** argv) {
  std::optional<std::string> from, until;
  kav::kav_diff_request request;
  if (const int status = parse_options(argc, argv, {{"from", 0, &from}, {"until", 0, &until},
                                                    {"zone", 0, nullptr, &request.zones}});
      status >= 0)
    return status;
  if (argc - optind != 2) return usage("give two data sets");
  request.old_side = argv[optind];
  request.new_side = argv[optind + 1];
  request.from = from.value_or("");
  request.until = until.value_or("");
  return kav::diff_data_sets(request);
}

int build_command(int argc, char** argv) {
  std::optional<std::string> as, signature, keyring, icu, icu_from, output, slim;
  if (const int status = parse_options(argc, argv, {{"as", 0, &as}, {"signature", 0, &signature},
                                                    {"keyring", 0, &keyring}, {"icu", 0, &icu},
                                                    {"icu-from", 0, &icu_from}, {"output", 'o', &output},
                                                    {"slim", 0, &slim, nullptr, true}});
      status >= 0)
    return status;
  if (argc - optind != 1) return usage("give one release: a tarball, a directory or a tzdata.zi");
  if (icu.has_value() == icu_from.has_value()) return usage("give --icu FILE or --icu-from DIR");
  if (signature && !keyring) return usage("--signature needs --keyring, the keys it must be by");
  for (const auto* given : {&as, &signature, &keyring, &icu, &icu_from, &output})
    if (*given && (*given)->empty()) return usage("an empty word given to an option");
  return kav::build_data_set({argv[optind], as.value_or(""), signature.value_or(""),
                              keyring.value_or(""), icu.value_or(""), icu_from.value_or(""),
                              output.value_or(""), slim.has_value()});
}

int latest_command(int argc, char** argv) {
  std::optional<std::string> target;
  if (const int status = parse_options(argc, argv, {{"target", 0, &target}}); status >= 0)
    return status;
  if (!target && argc - optind != 1) return usage("give one version, or none");
  if (target && optind != argc) return usage("unexpected argument", argv[optind]);
  if (target && target->empty()) return usage("an empty target given to", "--target");
  return target ? kav::put_back_latest(*target) : kav::point_latest(argv[optind]);
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
                                    {"pack", pack_command},     {"build", build_command},
                                    {"latest", latest_command}, {"clean", clean_command},
                                    {"diff", diff_command}};

}  // namespace

int main(int argc, char** argv) {
  if (const int status = parse_options(argc, argv); status >= 0) return status;
  if (optind == argc) return usage("no command given");
  for (const kav_command& command : commands)
    if (std::strcmp(argv[optind], command.name) == 0)
      return command.run(argc - optind, argv + optind);
  return usage("unknown command", argv[optind]);
}
