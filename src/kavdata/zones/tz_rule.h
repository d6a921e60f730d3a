#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kavdata/zones/local_time.h"

// The POSIX TZ string at the end of a compiled zone file ("CET-1CEST,M3.5.0,
// M10.5.0/3"), which rules local time after the file's last transition, with
// the extensions compiled zone files use: quoted names ("<+03>"), and rule
// times of -167 to 167 hours.
namespace kav {

// The day of the year on which a rule changes local time, and the local time
// of day, in the time then in force, at which it does.
struct kav_rule_day {
  enum kav_kind { julian, zero_based, month_week_day };
  kav_kind kind = month_week_day;
  int day = 0;    // Jn: 1 to 365, never 29 February; n: 0 to 365; Mm.w.d: weekday 0 (Sunday) to 6
  int month = 0;  // Mm.w.d: 1 to 12
  int week = 0;   // Mm.w.d: 1 to 5, 5 being the last
  std::int32_t time = 2 * 3600;  // seconds after local midnight
};

struct kav_tz_rule {
  kav_local_time standard;
  bool has_dst = false;
  kav_local_time daylight;  // with has_dst only
  kav_rule_day start;       // when daylight saving time begins
  kav_rule_day end;         // and when it ends
};

// `text` read as a TZ string, or in `problem` why it is not one.
struct kav_tz_rule_parse {
  kav_tz_rule rule;
  std::string problem;  // empty when `text` parses
};
kav_tz_rule_parse parse_tz_rule(std::string_view text);

// Local time under `rule` at `instant`, as the C library computes it: from
// the changes of the instant's UTC year, each at its local time in the
// standard (start) or daylight (end) offset. Before 1971 it counts a year's
// days from 1970-01-01, as the C library does.
kav_local_time rule_local_time(const kav_tz_rule& rule, std::int64_t instant);

// Every instant of `year` (UTC) at which local time under `rule` may change,
// the year's start included; unsorted, some perhaps outside the year.
void rule_change_candidates(const kav_tz_rule& rule, std::int64_t year,
                            std::vector<std::int64_t>& candidates);

}  // namespace kav
