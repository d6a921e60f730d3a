#include "kavdata/judgement/check_archive.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>

#include "fs/unique_fd.h"
#include "kavdata/archives/archive.h"
#include "kavdata/archives/trust.h"
#include "kavdata/judgement/check.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/source.h"
#include "kavdata/walks/tree_remove.h"
#include "kavdata/walks/words.h"

namespace kav {

kav_scratch::kav_scratch() {
  const char* const parent = std::getenv("TMPDIR");
  const std::string in = parent != nullptr && *parent != '\0' ? parent : "/tmp";
  path_ = in + "/kavdata-check-XXXXXX";
  if (::mkdtemp(path_.data()) == nullptr) {
    path_.clear();
    fail("cannot unpack it in " + escaped(in), errno);
  }
}

kav_scratch::~kav_scratch() {
  if (path_.empty()) return;
  const std::size_t slash = path_.rfind('/');
  const unique_fd parent(::open(path_.substr(0, slash).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  try {
    remove_tree_at(parent.get(), path_.substr(slash + 1), path_);
  } catch (const kav_failure& failure) {
    std::fprintf(stderr, "%s: check: %s\n", program_invocation_short_name, failure.what());
  }
}

void unpack_to_judge(const std::string& file, const std::string& signature,
                     kav_unpacked_archive& unpacked) {
  const kav_keys keys = trusted_keys();
  const std::optional<std::string> signed_by = signature_for(file, signature);
  const unique_fd input(open_source(file));
  const std::string& path = unpacked.scratch.emplace().path();
  const unique_fd target(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!target.valid()) fail("cannot write " + escaped(path), errno);
  const kav_unpacked archive = unpack_archive(input.get(), target.get());
  unpacked.top = archive.top;
  unpacked.verdict = judge_signature(signed_by, archive.digest, keys);
}

int check_archive(const std::string& file, const std::string& as, const std::string& signature) {
  try {
    kav_unpacked_archive unpacked;
    unpack_to_judge(file, signature, unpacked);
    std::printf("%s\n", unpacked.verdict.words.c_str());
    const int status =
        print_check(check_data_set(unpacked.scratch->path(), as.empty() ? unpacked.top : as));
    return unpacked.verdict.good ? status : 1;
  } catch (const kav_failure& failure) {
    std::printf("%s\n", failure.what());
    return 1;
  }
}

}  // namespace kav
