#include "kavdata/zones/zone_file.h"

#include <algorithm>

#include "kavdata/zones/byte_cursor.h"

namespace kav {

const char* const not_a_zone_file = "it does not begin with TZif";

namespace {

constexpr std::size_t header_size = 44;

struct kav_counts {
  std::uint64_t ut_flags, standard_flags, leaps, transitions, types, characters;
};

// The bytes of a data block with these counts, its times `width` bytes wide;
// no product of 32-bit counts can overflow.
std::uint64_t data_size(const kav_counts& counts, std::uint64_t width) {
  return counts.transitions * (width + 1) + counts.types * 6 + counts.characters +
         counts.leaps * (width + 4) + counts.standard_flags + counts.ut_flags;
}

// A header; the first begins the file, the second follows the first data.
std::string read_header(kav_byte_cursor& cursor, bool first, char& version, kav_counts& counts) {
  // Some bytes of "TZif" are a truncated header, as is a missing second one.
  const std::string_view magic = cursor.take(std::min<std::size_t>(4, cursor.remaining()));
  if ((first && magic.empty()) || std::string_view("TZif").substr(0, magic.size()) != magic)
    return first ? not_a_zone_file : "its second header does not begin with TZif";
  if (magic.size() < 4 || cursor.remaining() < header_size - 4)
    return "truncated: it ends within its header";
  version = cursor.take(1)[0];
  cursor.take(15);
  counts = {cursor.be32(), cursor.be32(), cursor.be32(),
            cursor.be32(), cursor.be32(), cursor.be32()};
  return {};
}

// Checks the data block's size before reading any of it.
std::string check_size(const kav_byte_cursor& cursor, const kav_counts& counts,
                       std::uint64_t width) {
  const std::uint64_t size = data_size(counts, width);
  if (size <= cursor.remaining()) return {};
  return "truncated: its header counts " + std::to_string(size) + " bytes of data, " +
         std::to_string(cursor.remaining()) + " remain";
}

std::string read_types(kav_byte_cursor& cursor, const kav_counts& counts, kav_zone& zone) {
  struct kav_raw_type {
    std::int32_t offset;
    std::uint8_t dst, abbreviation;
  };
  std::vector<kav_raw_type> raw(counts.types);
  for (kav_raw_type& type : raw)
    type = {static_cast<std::int32_t>(cursor.be32()), cursor.byte(), cursor.byte()};
  const std::string_view characters = cursor.take(counts.characters);
  for (const kav_raw_type& type : raw) {
    if (type.dst > 1) return "a DST flag is neither 0 nor 1";
    const std::size_t end = characters.find('\0', type.abbreviation);
    if (type.abbreviation >= characters.size() || end == std::string_view::npos)
      return "an abbreviation index is out of its table";
    zone.types.push_back({type.offset, type.dst == 1,
                          std::string(characters.substr(type.abbreviation, end - type.abbreviation))});
  }
  return {};
}

// A data block: transitions, their types, the types and their
// abbreviations; leap seconds and the types' flags are passed over, as they
// change no local time.
std::string read_data(kav_byte_cursor& cursor, const kav_counts& counts, std::size_t width,
                      kav_zone& zone) {
  if (counts.types == 0 || counts.standard_flags > counts.types || counts.ut_flags > counts.types)
    return "its counts are impossible";
  std::string problem = check_size(cursor, counts, width);
  if (!problem.empty()) return problem;
  zone.transitions.resize(counts.transitions);
  for (std::size_t i = 0; i < zone.transitions.size(); ++i) {
    const std::uint64_t bits = cursor.number(width);
    zone.transitions[i] =
        width == 4 ? static_cast<std::int32_t>(bits) : static_cast<std::int64_t>(bits);
    if (i > 0 && zone.transitions[i] <= zone.transitions[i - 1])
      return "its transitions are not sorted";
  }
  for (const unsigned char index : cursor.take(counts.transitions)) {
    if (index >= counts.types) return "a type index is out of range";
    zone.transition_types.push_back(index);
  }
  problem = read_types(cursor, counts, zone);
  if (!problem.empty()) return problem;
  cursor.take(counts.leaps * (width + 4) + counts.standard_flags + counts.ut_flags);
  while (zone.initial_type < zone.types.size() && zone.types[zone.initial_type].dst)
    ++zone.initial_type;
  if (zone.initial_type == zone.types.size()) zone.initial_type = 0;
  return {};
}

// The footer: a TZ string between two newlines that end the file; an empty
// one leaves the last transition's type in force.
std::string read_footer(kav_byte_cursor& cursor, kav_zone& zone) {
  const std::string_view rest = cursor.take(cursor.remaining());
  if (rest.empty()) return "truncated: it ends before its footer";
  const std::size_t end = rest.find('\n', 1);
  if (rest[0] != '\n') return "its footer does not parse: it does not begin with a newline";
  if (end == std::string_view::npos) return "truncated: its footer has no end";
  if (end + 1 != rest.size())
    return "its footer does not parse: bytes follow it";
  if (end == 1) return {};
  const kav_tz_rule_parse parse = parse_tz_rule(rest.substr(1, end - 1));
  if (!parse.problem.empty()) return "its footer does not parse: " + parse.problem;
  zone.has_footer = true;
  zone.footer = parse.rule;
  return {};
}

std::string read_into(std::string_view bytes, kav_zone& zone) {
  kav_byte_cursor cursor(bytes);
  char version = 0;
  kav_counts counts{};
  std::string problem = read_header(cursor, true, version, counts);
  if (!problem.empty()) return problem;
  if (version == '\0') return read_data(cursor, counts, 4, zone);
  // Later versions repeat the data with 64-bit times after the first,
  // which is there for readers of version 1 alone.
  problem = check_size(cursor, counts, 4);
  if (!problem.empty()) return problem;
  cursor.take(data_size(counts, 4));
  problem = read_header(cursor, false, version, counts);
  if (problem.empty()) problem = read_data(cursor, counts, 8, zone);
  return problem.empty() ? read_footer(cursor, zone) : problem;
}

}  // namespace

kav_zone_read read_zone(std::string_view bytes) {
  kav_zone_read read;
  read.problem = read_into(bytes, read.zone);
  if (!read.problem.empty()) read.zone = {};
  return read;
}

}  // namespace kav
