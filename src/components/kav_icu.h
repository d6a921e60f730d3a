#pragma once

#include <string>

#include "components/kav_dataset_component.h"

namespace kav {

// The ICU time zone data of a data set: ROOT/icutz, or the system partition's
// /usr/share/icu for an empty root. Its format tag (such as 44l) decides
// compatibility: the system declares it in the first word of
// "icutzformat.txt", an update in the name of its data file "icutzTAG.dat".
class kav_icu : public kav_dataset_component {
 public:
  kav_icu() : kav_icu(std::string()) {}
  // Throws errno as an int, after a warning, when an update's directory walk
  // cannot be started; a directory that is missing or unreadable gives an
  // empty tag.
  explicit kav_icu(const std::string& root);

  // True for an ICU component with the same tag; false, with a warning, for a
  // component of another kind.
  bool compatible_schema(const kav_dataset_component& other) const override;
  // Removes /var/db/icutz and, for an update, re-makes it to `directory`.
  void install_link() const override;

  const std::string& format() const { return format_; }
  const std::string& directory() const { return directory_; }

 private:
  void initialize();
  void find_format_in_data_file_name();

  std::string format_;
  std::string directory_;
};

}  // namespace kav
