#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kavdata/zones/local_time.h"
#include "kavdata/zones/tz_rule.h"

// Compiled zone files (TZif, versions 1 to 4), read as the C library reads
// them: a file of version 2 or later by its 64-bit data and its footer, one of
// version 1 by its 32-bit data.
namespace kav {

struct kav_zone {
  std::vector<std::int64_t> transitions;       // strictly ascending
  std::vector<std::uint8_t> transition_types;  // one per transition, indexes `types`
  std::vector<kav_local_time> types;           // at least one
  std::size_t initial_type = 0;  // before the first transition: the first standard type, else 0
  bool has_footer = false;       // a non-empty footer, which rules from the last transition on
  kav_tz_rule footer;
};

// A zone file read from its bytes, or in `problem` why it is not one, in a
// few words ("truncated: ...", "its transitions are not sorted").
struct kav_zone_read {
  kav_zone zone;
  std::string problem;  // empty when the bytes are a zone file
};
kav_zone_read read_zone(std::string_view bytes);

// What `read_zone` says of bytes that do not begin with "TZif".
extern const char* const not_a_zone_file;

}  // namespace kav
