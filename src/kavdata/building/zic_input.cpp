#include "kavdata/building/zic_input.h"

#include <cctype>
#include <optional>
#include <string_view>

namespace kav {
namespace {

bool blank(char c) { return c == ' ' || c == '\t' || c == '\f' || c == '\r' || c == '\v'; }

// A line without its comment ("#" outside quotes) and trailing blanks.
std::string_view data_part(std::string_view line) {
  bool quoted = false;
  std::size_t end = 0;
  for (; end < line.size() && (quoted || line[end] != '#'); ++end)
    if (line[end] == '"') quoted = !quoted;
  while (end > 0 && blank(line[end - 1])) --end;
  return line.substr(0, end);
}

// The fields of a data line, quotes taken away.
std::vector<std::string> fields_of(std::string_view line) {
  std::vector<std::string> fields;
  for (std::size_t at = 0; at < line.size();) {
    if (blank(line[at])) {
      ++at;
      continue;
    }
    std::string field;
    for (bool quoted = false; at < line.size() && (quoted || !blank(line[at])); ++at)
      if (line[at] == '"')
        quoted = !quoted;
      else
        field += line[at];
    fields.push_back(field);
  }
  return fields;
}

// Calls `take(line)` for each line of `text`.
template <typename T>
void each_line(std::string_view text, T take) {
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    take(text.substr(start, end - start));
    start = end + 1;
  }
}

// The link a line states, if it is one.
std::optional<kav_link> link_of(std::string_view line, std::size_t number) {
  std::vector<std::string> fields = fields_of(data_part(line));
  if (fields.size() != 3 || fields[0].size() > 4) return std::nullopt;
  for (char& c : fields[0]) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (std::string_view("link").substr(0, fields[0].size()) != fields[0]) return std::nullopt;
  return kav_link{fields[1], fields[2], number};
}

}  // namespace

kav_origin kav_zic_input::origin(std::size_t number) const {
  if (!file.empty() || number == 0 || number > origins.size()) return {file, number};
  return origins[number - 1];
}

std::string kav_zic_input::line(std::size_t number) const {
  std::string found;
  std::size_t at = 0;
  each_line(text, [&](std::string_view line) {
    if (++at == number) found = line;
  });
  return found;
}

kav_zic_input joined_input(const std::string& version,
                           const std::vector<std::pair<std::string, std::string>>& files) {
  kav_zic_input input;
  input.text = "# version " + version + "\n";
  input.origins.push_back({"version", 1});
  for (const auto& [name, bytes] : files) {
    std::size_t number = 0;
    each_line(bytes, [&, name = name](std::string_view line) {
      ++number;
      const std::string_view data = data_part(line);
      if (data.find_first_not_of(" \t\f\r\v") == std::string_view::npos) return;
      input.text.append(data).push_back('\n');
      input.origins.push_back({name, number});
    });
  }
  return input;
}

std::vector<kav_link> links_of(const std::string& text) {
  std::vector<kav_link> links;
  std::size_t number = 0;
  each_line(text, [&](std::string_view line) {
    if (const std::optional<kav_link> link = link_of(line, ++number)) links.push_back(*link);
  });
  return links;
}

std::string without_links(const std::string& text) {
  std::string kept;
  each_line(text, [&](std::string_view line) {
    if (!link_of(line, 0)) kept.append(line);
    kept.push_back('\n');
  });
  return kept;
}

}  // namespace kav
