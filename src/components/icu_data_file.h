#pragma once

#include <fts.h>
#include <string>
#include <string_view>

// Which entry of an update's ICU directory is its data file "icutzTAG.dat".
// The ICU component reads its format tag this way, and kavdata names the
// entries that come close.
namespace kav {

// Whether a walk entry may be the data file: a regular file directly inside
// the walked directory, readable by everyone.
bool may_be_icu_data_file(const FTSENT& entry);

// The ICU format tag that a data file named `name` declares, such as 44l for
// icutz44l.dat (digits, then l, b or e); empty for a name of any other form.
std::string icu_format_of_file_name(std::string_view name);

}  // namespace kav
