#pragma once

#include "dataset/kav_dataset.h"

// The rules by which a start chooses its data set. The boot program acts on
// them and kavdata explains them, so both call these and nothing else decides.
namespace kav {

// Whether the start keeps the data set that the links name, or why not.
enum class kav_in_use_verdict { kept, incompatible, older_than_system };

// The data set in use is kept when its ICU data can stand beside the
// system's and the system's version is not newer; equal versions are kept.
kav_in_use_verdict judge_in_use(const kav_dataset& in_use, const kav_dataset& system);

// Whether the start switches to the newest download, or why not.
enum class kav_download_verdict { taken, incompatible, not_newer };

// The download is taken when its ICU data can stand beside the system's and
// its version is newer than that of `named`, the data set that the links
// named at start (also when that one was refused).
kav_download_verdict judge_download(const kav_dataset& download, const kav_dataset& system,
                                    const kav_dataset& named);

}  // namespace kav
