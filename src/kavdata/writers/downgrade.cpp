#include "kavdata/writers/downgrade.h"

#include <stdexcept>

#include "components/kav_zoneinfo.h"
#include "kavdata/device/device.h"
#include "kavdata/device/muted_warnings.h"
#include "kavdata/device/next_start.h"
#include "kavdata/walks/words.h"

namespace kav {

std::string downgrade_words(const std::string& version) {
  const kav_muted_warnings muted;
  const kav_device device = read_device();
  const kav_next_start next = predict_next_start(device);
  const std::optional<kav_dataset>& pending = device.download.dataset;
  // The next start switches to what tz_latest names only when it is staged,
  // whole and newer than the data in use, by the very rules of the start.
  if (!pending || next.exit_status != 0 || next.zoneinfo.type != kav_entry::link ||
      next.zoneinfo.target != pending->zoneinfo().directory() ||
      next.zoneinfo.target == device.current_link.content)
    return {};
  kav_version staged;
  try {
    staged.parse(version);
  } catch (const std::out_of_range&) {
  }
  if (!(pending->version() > staged)) return {};
  return escaped(version) + " is older than " + escaped(pending->version_string()) +
         ", which tz_latest names and the next start takes: stage it with --replace-newer to "
         "mean it";
}

}  // namespace kav
