#pragma once

#include <memory>
#include <string>
#include <vector>

#include "components/kav_dataset_component.h"
#include "version/kav_version.h"

namespace kav {

class kav_icu;
class kav_zoneinfo;

// One complete set of time zone data: the system partition's (empty root) or
// a download at /var/db/timezone/tz/VERSION, whose directory name is its
// version string. Holds its zoneinfo and ICU components, in that order, and
// never changes after construction.
class kav_dataset {
 public:
  // The system partition's data set; its version string is the first word of
  // its "+VERSION" followed by ".1.0".
  kav_dataset();
  // The data set at `root`. Throws std::invalid_argument("badpath"), after a
  // warning, for a root that is not an update root; lets through the
  // out_of_range of a version number too large and the errno of an ICU
  // directory that cannot be walked. A name that is not a version string
  // gives the unset version.
  explicit kav_dataset(std::string root);
  // The data set unpacked at `root`, anywhere, judged as if it were staged
  // as the download `version_string`. Throws as the constructor above does,
  // but for the root's place.
  kav_dataset(std::string root, std::string version_string);

  // Whether every component accepts `other`'s component at the same place.
  bool compatible_with(const kav_dataset& other) const;
  // Same root: the same data set.
  bool operator==(const kav_dataset& other) const;
  // Newer version.
  bool operator>(const kav_dataset& other) const;
  // Points the system's links at this data set, zoneinfo first. The first
  // failure stops it; links already made stay.
  void install_links() const;

  std::string version_string() const { return version_string_; }
  const kav_version& version() const { return version_; }
  const std::string& root() const { return root_; }
  const kav_zoneinfo& zoneinfo() const;
  const kav_icu& icu() const;

 private:
  void create_components();
  void add_components(std::shared_ptr<kav_zoneinfo> zoneinfo);

  kav_version version_;
  std::string version_string_;
  std::string root_;
  std::vector<std::shared_ptr<kav_dataset_component>> components_;
};

// Points the links back at the system partition's data.
void reset_to_system();

}  // namespace kav
