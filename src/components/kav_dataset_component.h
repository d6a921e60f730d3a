#pragma once

#include <string>

namespace kav {

// One kind of time zone data within a data set. Components are always owned
// through a shared pointer made from their concrete type, so the destructor
// need not be virtual; it is protected so that nothing deletes through here.
class kav_dataset_component {
 public:
  // Whether this component's data can stand beside `other`'s.
  virtual bool compatible_schema(const kav_dataset_component& other) const = 0;
  // Points this component's fixed system link at its directory. Throws the
  // errno of create_symlink when the link cannot be made.
  virtual void install_link() const = 0;

  // The owning data set's root; empty for the system partition's.
  const std::string& root() const { return root_; }

 protected:
  kav_dataset_component() = default;
  explicit kav_dataset_component(const std::string& root) : root_(root) {}
  ~kav_dataset_component() = default;

 private:
  std::string root_;
};

}  // namespace kav
