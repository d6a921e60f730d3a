#include "kavdata/building/compile.h"

#include <cstdlib>
#include <regex>
#include <vector>

#include "kavdata/building/program.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/words.h"

namespace kav {
namespace {

// One message of zic, about a line of its input or not.
struct kav_zic_message {
  bool warning = false;
  std::size_t line = 0;  // 0: about no line
  std::string text;      // the rest
};

kav_zic_message parsed(const std::string& line, const std::string& name) {
  static const std::regex about_a_line("(warning: )?\"(.*)\", line ([0-9]+): (.*)");
  std::smatch match;
  kav_zic_message message;
  message.text = line;
  message.warning = line.compare(0, 9, "warning: ") == 0;
  if (std::regex_match(line, match, about_a_line) && match[2] == name) {
    message.line = std::strtoul(match[3].str().c_str(), nullptr, 10);
    message.text = match[4];
  }
  return message;
}

// A message in words: where its line came from.
std::string words_of(const kav_zic_message& message, const kav_zic_input& input) {
  if (message.line == 0) return escaped(message.text);
  const kav_origin origin = input.origin(message.line);
  return (message.warning && message.text.compare(0, 9, "warning: ") != 0 ? "warning: " : "") +
         escaped(origin.file) + ", line " + std::to_string(origin.line) + ": " +
         escaped(message.text);
}

}  // namespace

void compile_zones(const kav_zic_input& input, const std::string& directory,
                   const std::string& name, const std::string& output, bool slim) {
  const std::string zic = find_program("zic", "libc-bin");
  const kav_program_run run =
      run_program(zic, {"zic", "-b", slim ? "slim" : "fat", "-d", output, name}, directory);
  std::vector<kav_zic_message> errors;
  for (std::size_t start = 0; start < run.err.size();) {
    const std::size_t end = std::min(run.err.find('\n', start), run.err.size());
    const kav_zic_message message = parsed(run.err.substr(start, end - start), name);
    start = end + 1;
    if (message.warning || run.status == 0)
      tell("build", "zic: " + words_of(message, input));
    else
      errors.push_back(message);
  }
  if (run.status == 0) return;
  if (errors.empty()) throw kav_failure("zic failed (status " + std::to_string(run.status) + ")");
  const kav_zic_message& first = errors.front();
  throw kav_failure(
      "zic: " + words_of(first, input) +
      (first.line == 0 ? "" : ": \"" + escaped(input.line(first.line)) + "\"") +
      (errors.size() > 1 ? " (and " + std::to_string(errors.size() - 1) + " more)" : ""));
}

}  // namespace kav
