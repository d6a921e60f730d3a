#include "dataset/kav_dataset.h"

#include <algorithm>
#include <err.h>
#include <stdexcept>
#include <utility>

#include "components/kav_icu.h"
#include "components/kav_zoneinfo.h"
#include "dataset/update_root.h"

namespace kav {

kav_dataset::kav_dataset() { create_components(); }

kav_dataset::kav_dataset(std::string root) : root_(std::move(root)) {
  create_components();
}

kav_dataset::kav_dataset(std::string root, std::string version_string)
    : version_string_(std::move(version_string)), root_(std::move(root)) {
  add_components(std::make_shared<kav_zoneinfo>(root_));
}

void kav_dataset::create_components() {
  // The zoneinfo component reads its "+VERSION" even for a root refused below.
  auto zoneinfo = std::make_shared<kav_zoneinfo>(root_);
  if (root_.empty()) {
    version_string_ = zoneinfo->version_text() + ".1.0";
  } else if (has_update_prefix(root_)) {
    version_string_ = root_.substr(update_prefix_length);
  } else {
    warn("kav_dataset::create_components: bad path %s", root_.c_str());
    throw std::invalid_argument("badpath");
  }
  add_components(std::move(zoneinfo));
}

void kav_dataset::add_components(std::shared_ptr<kav_zoneinfo> zoneinfo) {
  version_.parse(version_string_);
  components_.push_back(std::move(zoneinfo));
  components_.push_back(std::make_shared<kav_icu>(root_));
}

bool kav_dataset::compatible_with(const kav_dataset& other) const {
  const std::size_t common = std::min(components_.size(), other.components_.size());
  for (std::size_t i = 0; i < common; ++i)
    if (!components_[i]->compatible_schema(*other.components_[i])) return false;
  return components_.size() == other.components_.size();
}

bool kav_dataset::operator==(const kav_dataset& other) const {
  return root_ == other.root_;
}

bool kav_dataset::operator>(const kav_dataset& other) const {
  return version_ > other.version_;
}

void kav_dataset::install_links() const {
  for (const auto& component : components_) component->install_link();
}

// Both constructors put them in this order, zoneinfo first.
const kav_zoneinfo& kav_dataset::zoneinfo() const {
  return static_cast<const kav_zoneinfo&>(*components_[0]);
}

const kav_icu& kav_dataset::icu() const {
  return static_cast<const kav_icu&>(*components_[1]);
}

void reset_to_system() { kav_dataset().install_links(); }

}  // namespace kav
