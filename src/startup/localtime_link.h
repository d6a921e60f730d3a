#pragma once

#include <string>

namespace kav {

// The zone a local time link is reset to, and the reset link's content.
inline constexpr char default_zone[] = "America/Los_Angeles";
inline constexpr char default_localtime_target[] =
    "/var/db/timezone/zoneinfo/America/Los_Angeles";

// What a start does with the local time link.
struct kav_localtime_plan {
  enum kind { keep, correct, reset };
  kind action;
  // For `correct`: the same zone under the zoneinfo link. The start makes
  // the link only if this path exists once the data set links are settled,
  // and resets it otherwise.
  std::string target;
};

// The plan for a local time link holding `content` (empty when there is no
// link): keep a link under the zoneinfo link, whether or not its zone
// exists; correct one into the older /usr/share/zoneinfo; reset anything else.
kav_localtime_plan plan_localtime_link(const std::string& content);

// Keeps the local time link when it points under the zoneinfo link, rewrites a
// link into the older /usr/share/zoneinfo location when the zone exists in the
// data now in use, and otherwise resets it to America/Los_Angeles. Throws the
// errno of create_symlink only when even the reset link cannot be made.
void check_localtime_link();

}  // namespace kav
