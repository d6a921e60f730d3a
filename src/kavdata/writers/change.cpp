#include "kavdata/writers/change.h"

namespace kav {

kav_change begin_change() {
  kav_lock lock = lock_for_change();
  kav_places places = open_places();
  std::vector<kav_leftover> leftovers = settle_leftovers(places);
  return {std::move(lock), std::move(places), std::move(leftovers)};
}

}  // namespace kav
