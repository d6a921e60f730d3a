#pragma once

#include <string>
#include <vector>

namespace kav {

// What `kavdata diff` compares: two data sets, over a window, maybe only
// some of their zone names.
struct kav_diff_request {
  std::string old_side, new_side;
  std::string from, until;         // "YYYY-MM-DD" in UTC; empty: now, and ten years after `from`
  std::vector<std::string> zones;  // none: every name
};

// Each side is a data set directory, an archive ("-": standard input),
// judged and unpacked as check does, or on the device "system", "in-use",
// "latest" or a staged version. Prints one line per zone name that differs
// in the window, in name order, then how many of how many. Returns 0 when
// none differs, 1 when some do, 2 after one line on standard error for each
// bad input (a bad date, a missing side, a zone file that is none).
int diff_data_sets(const kav_diff_request& request);

}  // namespace kav
