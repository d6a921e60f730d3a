#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "dataset/kav_dataset.h"

// How kavdata puts bytes, sizes, errors and data sets into words.
namespace kav {

// Printable ASCII as it stands but "\" as "\\", every other byte as \xHH:
// names and contents are bytes, and a line of output must stay one line.
std::string escaped(std::string_view bytes);

// A size in bytes, in the largest binary unit that keeps it at 1 or more:
// "512 B", "1.5 KiB", "12.3 MiB".
std::string size_words(std::uint64_t bytes);

// The text of an errno.
std::string error_words(int error);

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
