#include "kavdata/judgement/check_archive.h"

#include <cstdio>

#include "fs/unique_fd.h"
#include "kavdata/archives/archive.h"
#include "kavdata/archives/spool.h"
#include "kavdata/archives/trust.h"
#include "kavdata/judgement/check.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/source.h"

namespace kav {

void unpack_to_judge(const std::string& file, const std::string& signature,
                     kav_unpacked_archive& unpacked) {
  const kav_keys keys = trusted_keys();
  const std::optional<std::string> signed_by = signature_for(file, signature);
  const unique_fd input(open_source(file));
  const kav_scratch& scratch = unpacked.scratch.emplace("check");
  if (!keys.required()) {
    unpacked.top = unpack_archive(input.get(), scratch.fd()).top;
    unpacked.verdict = judge_signature(signed_by, {}, keys);
    return;
  }
  // Nothing is parsed before the signature is found good.
  const kav_spool spool = spool_archive(input.get(), scratch.fd(), scratch.path());
  unpacked.verdict = judge_signature(signed_by, spool.digest, keys);
  if (unpacked.verdict.good)
    unpacked.top = unpack_archive(spool.fd.get(), scratch.fd(), spool.free_space).top;
}

int check_archive(const std::string& file, const std::string& as, const std::string& signature) {
  try {
    kav_unpacked_archive unpacked;
    unpack_to_judge(file, signature, unpacked);
    std::printf("%s\n", unpacked.verdict.words.c_str());
    if (!unpacked.verdict.good) return 1;
    return print_check(check_data_set(unpacked.scratch->path(), as.empty() ? unpacked.top : as));
  } catch (const kav_failure& failure) {
    std::printf("%s\n", failure.what());
    return 1;
  }
}

}  // namespace kav
