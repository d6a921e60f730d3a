#pragma once

namespace kav {

// Deletes every directory under /var/db/timezone/tz/ that neither the
// zoneinfo link, /var/db/icutz nor tz_latest names, and the leftovers of
// interrupted commands, then the clean-up marker and request; deletes nothing
// when one of those links cannot be read or names something unexpected.
// Returns the exit status, having said what it freed or why not.
int clean_data_sets();

}  // namespace kav
