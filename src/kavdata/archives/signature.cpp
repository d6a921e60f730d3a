#include "kavdata/archives/signature.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sodium.h>
#include <sys/stat.h>

#include "fs/unique_fd.h"
#include "fs/walk.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/source.h"
#include "kavdata/walks/words.h"

namespace kav {
namespace {

constexpr char untrusted_prefix[] = "untrusted comment:";
constexpr char trusted_prefix[] = "trusted comment: ";

// The lines of a text, without their ends.
std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t start = 0; start < text.size();) {
    std::size_t end = std::min(text.find('\n', start), text.size());
    lines.push_back(text.substr(start, end - start));
    if (!lines.back().empty() && lines.back().back() == '\r') lines.back().pop_back();
    start = end + 1;
  }
  return lines;
}

// Decodes base64 of exactly `size` bytes into `out`.
bool decoded(const std::string& text, unsigned char* out, std::size_t size) {
  std::size_t length = 0;
  return sodium_base642bin(out, size, text.data(), text.size(), nullptr, &length, nullptr,
                           sodium_base64_VARIANT_ORIGINAL) == 0 &&
         length == size;
}

bool begins(const std::string& line, const char* prefix) {
  return line.compare(0, std::char_traits<char>::length(prefix), prefix) == 0;
}

// minisign prints a key id as a little-endian 64-bit number in hex.
std::string id_words(const unsigned char* number) {
  char text[17];
  for (int i = 0; i < 8; ++i) std::snprintf(text + 2 * i, 3, "%02X", number[7 - i]);
  return text;
}

bool parse_key(const std::string& text, kav_public_key& key) {
  const std::vector<std::string> lines = lines_of(text);
  unsigned char bytes[2 + 8 + 32];
  if (lines.size() < 2 || !begins(lines[0], untrusted_prefix) ||
      !decoded(lines[1], bytes, sizeof bytes) || bytes[0] != 'E' || bytes[1] != 'd')
    return false;
  std::copy(bytes + 2, bytes + 10, key.number.begin());
  std::copy(bytes + 10, bytes + 42, key.key.begin());
  key.id = id_words(bytes + 2);
  return true;
}

bool verified(const unsigned char* signature, const unsigned char* message, std::size_t size,
              const kav_public_key& key) {
  return crypto_sign_verify_detached(signature, message, size, key.key.data()) == 0;
}

}  // namespace

std::string kav_keys::ids() const {
  std::string text;
  for (const kav_public_key& key : keys) text += (text.empty() ? "" : " ") + key.id;
  return text;
}

kav_keys trusted_keys(const char* directory) {
  kav_keys found;
  const unique_fd at(::open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!at.valid()) {
    if (errno != ENOENT) found.unusable.push_back(escaped(directory) + " cannot be read");
    return found;
  }
  const directory_handle listing(::fdopendir(::dup(at.get())));
  std::vector<std::string> names;
  while (const dirent* entry = listing ? ::readdir(listing.get()) : nullptr) {
    const std::string name = entry->d_name;
    if (name.size() > 4 && name.compare(name.size() - 4, 4, ".pub") == 0) names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  if (sodium_init() < 0) throw kav_failure("cannot start the signature library");
  for (const std::string& name : names) {
    const std::string path = std::string(directory) + "/" + name;
    kav_public_key key;
    try {
      const unique_fd fd(::openat(at.get(), name.c_str(),
                                  O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
      struct stat status;
      if (fd.valid() && ::fstat(fd.get(), &status) == 0 && S_ISREG(status.st_mode) &&
          parse_key(read_bounded(fd.get(), signature_limit, path), key)) {
        found.keys.push_back(key);
        continue;
      }
    } catch (const kav_failure&) {
    }
    found.unusable.push_back(escaped(path) + " is not a minisign public key");
  }
  return found;
}

kav_signature_verdict verify_signature(const std::string& signature, const kav_digest& digest,
                                       const kav_keys& keys) {
  const std::vector<std::string> lines = lines_of(signature);
  unsigned char first[2 + 8 + 64], global[64];
  if (lines.size() < 4 || !begins(lines[0], untrusted_prefix) ||
      !decoded(lines[1], first, sizeof first) || !begins(lines[2], trusted_prefix) ||
      !decoded(lines[3], global, sizeof global))
    return {false, "its signature is not in minisign's format"};
  if (first[0] == 'E' && first[1] == 'd')
    return {false, "its signature is of the legacy kind, over the file itself: sign it again "
                   "with minisign 0.11 or later, which signs the file's BLAKE2b-512"};
  if (first[0] != 'E' || first[1] != 'D')
    return {false, "its signature is by an unknown algorithm " + escaped(std::string(
                       reinterpret_cast<const char*>(first), 2))};
  const std::string id = id_words(first + 2);
  const auto key = std::find_if(keys.keys.begin(), keys.keys.end(), [&](const kav_public_key& k) {
    return std::equal(k.number.begin(), k.number.end(), first + 2);
  });
  if (key == keys.keys.end())
    return {false, "its signature is by key " + id + ", which is not trusted here"};
  if (!verified(first + 10, digest.data(), digest.size(), *key))
    return {false, "its signature by key " + id + " does not match it"};
  std::string signed_comment(reinterpret_cast<const char*>(first + 10), 64);
  signed_comment += lines[2].substr(std::char_traits<char>::length(trusted_prefix));
  if (!verified(global, reinterpret_cast<const unsigned char*>(signed_comment.data()),
                signed_comment.size(), *key))
    return {false, "the trusted comment of its signature by key " + id + " does not match"};
  return {true, "signed by key " + id};
}

}  // namespace kav
