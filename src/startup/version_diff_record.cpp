#include "startup/version_diff_record.h"

#include <fstream>

#include "fs/paths.h"

namespace kav {

void write_version_diff_record(const kav_dataset& in_use, const kav_dataset& update) {
  std::ofstream record(paths::version_diff_record, std::ios::out | std::ios::trunc);
  record << in_use.version_string() << '_' << update.version_string();
}

}  // namespace kav
