#pragma once

#include <string>

#include "components/kav_dataset_component.h"

namespace kav {

// The compiled tz database of a data set: ROOT/zoneinfo, or the system
// partition's /usr/share/zoneinfo.default for an empty root. Its "+VERSION"
// file names the data version in its first word.
class kav_zoneinfo : public kav_dataset_component {
 public:
  kav_zoneinfo() : kav_zoneinfo(std::string()) {}
  explicit kav_zoneinfo(const std::string& root);

  // Any two tz databases can stand beside each other.
  bool compatible_schema(const kav_dataset_component& other) const override;
  // Replaces /var/db/timezone/zoneinfo with a link to `directory`. A link
  // that cannot be removed is warned about; one that cannot be made throws.
  void install_link() const override;

  const std::string& directory() const { return directory_; }
  // First word of "+VERSION"; empty when the file is missing or blank.
  const std::string& version_text() const { return version_text_; }

 private:
  void initialize();

  std::string directory_;
  std::string version_text_;
};

}  // namespace kav
