#pragma once

#include <optional>
#include <string>

#include "kavdata/archives/signature.h"

// Whether a source is trusted enough to stage: the rule that check and stage
// share.
namespace kav {

// The signature of the archive `file`: the file `given` (--signature), else
// FILE.minisig beside it when there is one; none for standard input ("-")
// without --signature. Throws kav_failure when it cannot be read.
std::optional<std::string> signature_for(const std::string& file, const std::string& given);

// Whether stage may take the archive whose digest is `digest`: with trusted
// keys, only with a good signature from one of them; without, whatever its
// signature. `words` says which key signed it, or why not.
kav_signature_verdict judge_signature(const std::optional<std::string>& signature,
                                      const kav_digest& digest, const kav_keys& keys);

// Why stage refuses a directory while keys are trusted.
std::string unsigned_directory_words(const std::string& directory);

// What stage says, on standard error, when no key is trusted.
inline constexpr char no_keys_words[] =
    "no key is trusted in /usr/share/kavdata/keys: staged without a signature check";

}  // namespace kav
