#pragma once

#include <string>

namespace kav {

// Checks, with Debian's gpgv, the detached OpenPGP signature in the file
// `signature` over the bytes of `data` (a descriptor at its start, read to
// its end, then set back there) against the keys of the file `keyring`, a
// keyring or an ASCII-armored key, as IANA publishes its own. gpgv runs with
// `home`, a private directory, as its home: the user's own is never read
// or changed. Returns the signing key's fingerprint; throws kav_failure in
// one line when the signature is missing, bad, or by a key not in the
// keyring, or gpgv is missing.
std::string verify_signature(int data, const std::string& signature, const std::string& keyring,
                             const std::string& home);

}  // namespace kav
