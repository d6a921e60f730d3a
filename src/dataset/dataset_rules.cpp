#include "dataset/dataset_rules.h"

namespace kav {

kav_in_use_verdict judge_in_use(const kav_dataset& in_use, const kav_dataset& system) {
  // The version is not asked about data that is incompatible anyway.
  if (!in_use.compatible_with(system)) return kav_in_use_verdict::incompatible;
  if (system > in_use) return kav_in_use_verdict::older_than_system;
  return kav_in_use_verdict::kept;
}

kav_download_verdict judge_download(const kav_dataset& download, const kav_dataset& system,
                                    const kav_dataset& named) {
  if (!download.compatible_with(system)) return kav_download_verdict::incompatible;
  if (!(download > named)) return kav_download_verdict::not_newer;
  return kav_download_verdict::taken;
}

}  // namespace kav
