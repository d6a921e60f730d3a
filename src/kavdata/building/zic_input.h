#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

// zic's input, as one text: what a data set keeps as zoneinfo/tzdata.zi.
namespace kav {

// Where a line of the input came from: its file and line there.
struct kav_origin {
  std::string file;
  std::size_t line;
};

struct kav_zic_input {
  std::string text;                 // what zic compiles
  std::string file;                 // where it came from whole, or ""
  std::vector<kav_origin> origins;  // else where each line came from

  // Where line `line` (from 1) came from.
  kav_origin origin(std::size_t line) const;
  // The text of line `line` (from 1), "" past the end.
  std::string line(std::size_t line) const;
};

// A release's data files (name, bytes) in order, as one input: a first line
// "# version VERSION", then every line that holds data, without its comment.
kav_zic_input joined_input(const std::string& version,
                           const std::vector<std::pair<std::string, std::string>>& files);

// One link of the input: `name` stands for `target`.
struct kav_link {
  std::string target;
  std::string name;
  std::size_t line;  // from 1
};

// The Link lines of `text`, in order, as zic reads them: any case, the
// keyword abbreviated, fields quoted, three of them.
std::vector<kav_link> links_of(const std::string& text);

// `text` with each of those lines left empty, for zic to compile the zones
// and rules alone, its lines numbered as before.
std::string without_links(const std::string& text);

}  // namespace kav
