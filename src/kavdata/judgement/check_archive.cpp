#include "kavdata/judgement/check_archive.h"

#include <cstdio>

#include "fs/unique_fd.h"
#include "kavdata/archives/archive.h"
#include "kavdata/archives/spool.h"
#include "kavdata/archives/trust.h"
#include "kavdata/judgement/check.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/scratch.h"
#include "kavdata/walks/source.h"

namespace kav {

int check_archive(const std::string& file, const std::string& as, const std::string& signature) {
  try {
    const kav_keys keys = trusted_keys();
    const std::optional<std::string> signed_by = signature_for(file, signature);
    const unique_fd input(open_source(file));
    const kav_scratch scratch("check");
    kav_unpacked unpacked;
    kav_signature_verdict verdict;
    if (keys.required()) {
      // Nothing is parsed before the signature is found good.
      const kav_spool spool = spool_archive(input.get(), scratch.fd(), scratch.path());
      verdict = judge_signature(signed_by, spool.digest, keys);
      std::printf("%s\n", verdict.words.c_str());
      if (!verdict.good) return 1;
      unpacked = unpack_archive(spool.fd.get(), scratch.fd(), spool.free_space);
    } else {
      unpacked = unpack_archive(input.get(), scratch.fd());
      verdict = judge_signature(signed_by, {}, keys);
      std::printf("%s\n", verdict.words.c_str());
    }
    return print_check(check_data_set(scratch.path(), as.empty() ? unpacked.top : as));
  } catch (const kav_failure& failure) {
    std::printf("%s\n", failure.what());
    return 1;
  }
}

}  // namespace kav
