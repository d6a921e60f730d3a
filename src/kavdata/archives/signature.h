#pragma once

#include <array>
#include <string>
#include <vector>

#include "kavdata/archives/archive.h"

// Who may make the data sets that a device takes: minisign's keys and
// signatures, checked with libsodium.
namespace kav {

// The trusted public keys, one per file NAME.pub in minisign's public key
// format ("untrusted comment: ..." then the base64 of "Ed", the 8-byte key
// id and the 32-byte Ed25519 key). On the read-only system partition: only
// an image build installs them.
inline constexpr char keys_directory[] = "/usr/share/kavdata/keys";

struct kav_public_key {
  std::string id;  // as minisign prints it: 16 upper-case hex digits
  std::array<unsigned char, 8> number;
  std::array<unsigned char, 32> key;
};

struct kav_keys {
  std::vector<kav_public_key> keys;   // in the order of their file names
  std::vector<std::string> unusable;  // a line for each *.pub file that holds no key
  // Whether stage takes only signed archives: any *.pub file makes it so.
  bool required() const { return !keys.empty() || !unusable.empty(); }
  std::string ids() const;  // the keys' ids, parted by spaces
};

// Reads the keys in `directory`; an absent one holds none.
kav_keys trusted_keys(const char* directory = keys_directory);

// A signature file in minisign's format ("untrusted comment: ...", the base64
// of "ED", the key id and the Ed25519 signature of the file's BLAKE2b-512, a
// "trusted comment: " line, the base64 of the signature of the first signature
// followed by that comment) judged against `digest` and `keys`.
struct kav_signature_verdict {
  bool good = false;
  std::string words;  // "signed by key ID", or why it is not good
};
kav_signature_verdict verify_signature(const std::string& signature, const kav_digest& digest,
                                       const kav_keys& keys);

// A signature file's size at most.
inline constexpr std::size_t signature_limit = 8192;

}  // namespace kav
