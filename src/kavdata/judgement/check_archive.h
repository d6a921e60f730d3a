#pragma once

#include <optional>
#include <string>

#include "kavdata/archives/signature.h"
#include "kavdata/walks/scratch.h"

namespace kav {

// An archive unpacked as check unpacks one: the data set in `scratch`, less
// its top directory, and the verdict on its signature.
struct kav_unpacked_archive {
  std::optional<kav_scratch> scratch;  // made once the archive is open
  std::string top;  // the top directory's name; empty while nothing is unpacked
  kav_signature_verdict verdict;
};

// Judges the signature of `file` ("-": standard input), `signature` or else
// FILE.minisig, and unpacks it into a private temporary directory (under
// $TMPDIR, else /tmp). While keys are trusted, it unpacks nothing whose
// signature is not good: `top` then stays empty. Throws kav_failure in one
// line.
void unpack_to_judge(const std::string& file, const std::string& signature,
                     kav_unpacked_archive& unpacked);

// `check` of an archive: says whether its signature lets stage take it,
// unpacks it, judges it as check judges a directory, as the version `as` or
// its top directory's name, and deletes it. Returns the exit status, 1 when
// there is a reason.
int check_archive(const std::string& file, const std::string& as, const std::string& signature);

}  // namespace kav
