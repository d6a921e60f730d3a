#include "startup/version_diff_record.h"

#include <fstream>

namespace kav {

void write_version_diff_record(const kav_dataset& in_use, const kav_dataset& update,
                               const std::string& path) {
  std::ofstream record(path, std::ios::out | std::ios::trunc);
  record << in_use.version_string() << '_' << update.version_string();
}

}  // namespace kav
