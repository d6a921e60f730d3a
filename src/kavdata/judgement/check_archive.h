#pragma once

#include <string>

namespace kav {

// `check` of an archive: says whether its signature (`signature`, else
// FILE.minisig) lets stage take it, unpacks `file` ("-": standard input) into
// a private temporary directory (under $TMPDIR, else /tmp), judges it as
// check judges a directory, as the version `as` or its top directory's name,
// and deletes it. While keys are trusted, it unpacks nothing whose signature
// is not good. Returns the exit status, 1 when there is a reason.
int check_archive(const std::string& file, const std::string& as, const std::string& signature);

}  // namespace kav
