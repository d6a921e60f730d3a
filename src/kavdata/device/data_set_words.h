#pragma once

#include <string>
#include <string_view>

#include "dataset/kav_dataset.h"

// How kavdata puts data sets, and the rules that compare them, into words.
namespace kav {

// A data set by its version string, or "the system's data".
std::string data_set_words(const kav_dataset& data_set);

// Why a data set's ICU data cannot stand beside the system's.
std::string format_mismatch(const kav_dataset& data_set, const kav_dataset& system);

// "newer than 2014f.1.0, in use", "older than the system's 2014b.1.0".
std::string than(std::string_view relation, const kav_dataset& other, std::string_view role);

// How a data set's version compares with `other`'s ("2014f.1.0 is not newer
// than 2015a.1.0, in use"), or that it is not a version string.
std::string version_comparison(const kav_dataset& data_set, std::string_view relation,
                               const kav_dataset& other, std::string_view role);

}  // namespace kav
