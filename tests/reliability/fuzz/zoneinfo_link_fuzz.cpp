// A root taken from a zoneinfo link target is empty only for the system
// directory; otherwise it is an update root that the target extends by one
// last path component.
#include <string>

#include "dataset/dataset_links.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  silence_warnings();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string target(reinterpret_cast<const char*>(data), size);
  const std::string prefix = "/var/db/timezone/tz/";
  std::string root;
  try {
    root = kav::root_from_zoneinfo_link(target);
  } catch (int thrown) {
    CHECK(thrown == -1);
    return 0;
  }
  if (root.empty()) {
    CHECK(target == "/usr/share/zoneinfo.default");
    return 0;
  }
  CHECK(root.size() > prefix.size() && root.compare(0, prefix.size(), prefix) == 0);
  CHECK(root.size() < target.size() && target.compare(0, root.size(), root) == 0);
  CHECK(target[root.size()] == '/');
  CHECK(target.find('/', root.size() + 1) == std::string::npos);
  return 0;
}
