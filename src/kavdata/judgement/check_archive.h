#pragma once

#include <optional>
#include <string>

#include "kavdata/archives/signature.h"

namespace kav {

// A private directory under $TMPDIR (else /tmp), deleted with what it holds.
// Throws kav_failure when it cannot be made.
class kav_scratch {
 public:
  kav_scratch();
  kav_scratch(const kav_scratch&) = delete;
  kav_scratch& operator=(const kav_scratch&) = delete;
  ~kav_scratch();
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// An archive unpacked as check unpacks one: the data set in `scratch`, less
// its top directory, and the verdict on its signature.
struct kav_unpacked_archive {
  std::optional<kav_scratch> scratch;  // made once the archive is open
  std::string top;  // the top directory's name
  kav_signature_verdict verdict;
};

// Unpacks `file` ("-": standard input) with its signature (`signature`,
// else FILE.minisig) into `unpacked`. Throws kav_failure in one line.
void unpack_to_judge(const std::string& file, const std::string& signature,
                     kav_unpacked_archive& unpacked);

// `check` of an archive: unpacks `file` ("-": standard input) into a private
// temporary directory (under $TMPDIR, else /tmp), judges it as check judges a
// directory, as the version `as` or its top directory's name, deletes it, and
// says whether its signature (`signature`, else FILE.minisig) lets stage take
// it. Returns the exit status, 1 when there is a reason.
int check_archive(const std::string& file, const std::string& as, const std::string& signature);

}  // namespace kav
