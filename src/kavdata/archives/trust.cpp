#include "kavdata/archives/trust.h"

#include <cerrno>
#include <sys/stat.h>

#include "fs/unique_fd.h"
#include "kavdata/walks/source.h"
#include "kavdata/walks/words.h"

namespace kav {

std::optional<std::string> signature_for(const std::string& file, const std::string& given) {
  std::string path = given;
  struct stat status;
  if (path.empty() && file != "-" && ::lstat((file + ".minisig").c_str(), &status) == 0)
    path = file + ".minisig";
  if (path.empty()) return std::nullopt;
  const unique_fd fd(open_source(path));
  return read_bounded(fd.get(), signature_limit, escaped(path));
}

kav_signature_verdict judge_signature(const std::optional<std::string>& signature,
                                      const kav_digest& digest, const kav_keys& keys) {
  if (!keys.required())
    return {true, signature ? "its signature cannot be checked: no key is trusted here"
                            : "it is not signed, and no key is trusted here"};
  if (!signature)
    return {false, "it is not signed (FILE.minisig, or --signature), and stage takes only "
                   "signed data while keys are trusted in " + std::string(keys_directory)};
  return verify_signature(*signature, digest, keys);
}

std::string unsigned_directory_words(const std::string& directory) {
  return escaped(directory) + " is a directory, which carries no signature: stage takes only "
                              "signed archives while keys are trusted in " + keys_directory;
}

}  // namespace kav
