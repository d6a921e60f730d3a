#pragma once

#include <string>

namespace kav {

// What `kavdata build` is asked to make.
struct kav_build_request {
  std::string source;     // a release tarball, its directory, or a tzdata.zi
  std::string as;         // the data set's version string; "": VERSION.1.0
  std::string signature;  // the tarball's detached signature; "": SOURCE.asc
  std::string keyring;    // the keys it must be by; "": not checked
  std::string icu;        // the ICU data file icutzTAG.dat, or
  std::string icu_from;   // the directory that holds it
  std::string output;     // the data set's directory; "": ./VERSION
  bool slim = false;      // slim zone files rather than fat
};

// Compiles a time zone release with the build host's zic into a new data
// set, a directory holding zoneinfo/ (the zones, each Link a relative link,
// with +VERSION, tzdata.zi, the tables and leapseconds) and icutz/ (the ICU
// data file as given), which check finds nothing wrong with wherever it is
// staged. It appears whole or not at all; its bytes depend on the release
// alone, its times on SOURCE_DATE_EPOCH, else the release's newest file.
// Checks the tarball's signature with gpgv before it is read when a keyring
// is given. Returns the exit status, having said what it made or, in one
// line, why not.
int build_data_set(const kav_build_request& request);

}  // namespace kav
