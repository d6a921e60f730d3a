#include "kavdata/building/authenticity.h"

#include <cerrno>
#include <fcntl.h>
#include <sodium.h>
#include <unistd.h>

#include "fs/unique_fd.h"
#include "kavdata/building/program.h"
#include "kavdata/building/files.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/source.h"
#include "kavdata/walks/words.h"

namespace kav {
namespace {

constexpr std::size_t signature_bound = std::size_t{64} << 10;
constexpr std::size_t keyring_bound = std::size_t{4} << 20;

std::string read_given(const std::string& path, std::size_t bound) {
  const unique_fd fd(open_source(path));
  return read_bounded(fd.get(), bound, escaped(path));
}

// The binary packets of every ASCII-armored block in `text`, which gpgv 2.2
// does not read itself; anything else as it is.
std::string dearmored(const std::string& text, const std::string& path) {
  if (text.compare(0, 15, "-----BEGIN PGP ") != 0) return text;
  std::string binary, body;
  enum { outside, headers, inside } state = outside;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    std::string line = text.substr(start, end - start);
    start = end + 1;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (state == outside) {
      if (line.compare(0, 15, "-----BEGIN PGP ") == 0) state = headers;
      continue;
    }
    if (state == headers && !line.empty() && line.find(':') != std::string::npos) continue;
    state = inside;
    if (line.compare(0, 5, "-----") != 0 && line.compare(0, 1, "=") != 0) {
      body += line;
      continue;
    }
    // The checksum line or the end: what came before is whole.
    std::string packets(body.size(), '\0');
    std::size_t length = 0;
    if (!body.empty() && sodium_base642bin(reinterpret_cast<unsigned char*>(packets.data()),
                                           packets.size(), body.data(), body.size(), " \t",
                                           &length, nullptr, sodium_base64_VARIANT_ORIGINAL) != 0)
      throw kav_failure(escaped(path) + " is not an OpenPGP key: its armor does not decode");
    binary.append(packets, 0, length);
    body.clear();
    if (line.compare(0, 5, "-----") == 0) state = outside;
  }
  return binary;
}

// The rest of gpgv's status line of `keyword`, or "" when it wrote none.
std::string status_of(const std::string& status, const std::string& keyword) {
  const std::string wanted = "[GNUPG:] " + keyword + " ";
  std::size_t at = status.find(wanted);
  if (at == std::string::npos) return "";
  at += wanted.size();
  return status.substr(at, status.find('\n', at) - at);
}

}  // namespace

std::string verify_signature(int data, const std::string& signature, const std::string& keyring,
                             const std::string& home) {
  const std::string gpgv = find_program("gpgv", "gpgv");
  if (::access(signature.c_str(), F_OK) != 0 && errno == ENOENT)
    throw kav_failure("the release is not signed: " + escaped(signature) +
                      " does not exist (give the release's signature with --signature)");
  write_file(home + "/signature", read_given(signature, signature_bound));
  write_file(home + "/keyring.gpg", dearmored(read_given(keyring, keyring_bound), keyring));
  const kav_program_run run =
      run_program(gpgv, {"gpgv", "--homedir", ".", "--status-fd", "1", "--keyring",
                         "./keyring.gpg", "./signature", "-"}, home, data);
  if (::lseek(data, 0, SEEK_SET) != 0) fail("cannot read the release again", errno);
  const std::string valid = status_of(run.out, "VALIDSIG");
  if (run.status == 0 && !valid.empty()) return valid.substr(0, valid.find(' '));
  const std::string key = status_of(run.out, "ERRSIG").substr(0, 16);
  if (!status_of(run.out, "NO_PUBKEY").empty())
    throw kav_failure("the release's signature is by key " + escaped(key) + ", which " +
                      escaped(keyring) + " does not hold");
  if (!status_of(run.out, "BADSIG").empty())
    throw kav_failure("the signature " + escaped(signature) + " does not match the release");
  if (!status_of(run.out, "NODATA").empty())
    throw kav_failure(escaped(signature) + " holds no OpenPGP signature");
  throw kav_failure("gpgv does not take the signature " + escaped(signature) + " (status " +
                    std::to_string(run.status) + ")");
}

}  // namespace kav
