#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "dataset/kav_dataset.h"

// What a start of the boot program would find on this device, read with the
// boot program's own code and without changing anything.
namespace kav {

// What stands at a path that a start writes, and whether the start may
// replace it. The start runs as root without capabilities, so the owner,
// group and mode bits decide, as they apply to root.
struct kav_entry {
  enum kind { absent, link, file, empty_directory, directory, other, unknown };
  kind type = absent;
  std::string target;   // a link's whole content
  std::string content;  // a regular file's content, when asked for
  int error = 0;        // why an unknown entry or a file's content could not be
                        // read; EFBIG for a content beyond read_bound
  bool writable = false;         // a regular file the start may open for writing
  bool parent_writable = false;  // the start may make and delete entries beside it
};

// Examines `path`, not following a final link.
kav_entry examine(const std::string& path, bool with_content = false);

// A link as the start reads it: at most its first 1024 bytes, empty when it
// does not exist, or the errno of a failed read.
struct kav_link_read {
  std::string content;
  int error = 0;
};

// How far kavdata reads a file that the boot program reads whole: past the
// longest word a version file may hold (1 MiB).
constexpr std::size_t read_bound = std::size_t{4} << 20;

// A first word as kavdata reads it: like the boot program, but only from a
// regular file, never blocking, never past `bound` bytes and, unless
// `follow`, never through a final link.
struct kav_word_read {
  std::string word;     // the boot program's word, or its first bytes
  int error = 0;        // the errno that ended the read early, or of the open
  std::string problem;  // why the boot program's read would not end as this
                        // one does; empty when it would
  bool hangs = false;   // the problem: not a regular file, which the boot
                        // program's read may wait on, or read without end
};
kav_word_read read_word(const std::string& path, std::size_t bound, bool follow);

// A data set as the start builds it, or why it cannot be built.
struct kav_built {
  std::optional<kav_dataset> dataset;
  std::string failure;   // in words, when it cannot be built
  // A file the start reads that stops kavdata from telling what the start
  // makes of it: one that may hang the start, or whose first word runs past
  // `read_bound`; and what is wrong with it, in words that follow its path.
  std::string obstacle, obstacle_words;
  // Why the system's "+VERSION", or what declares the ICU format, gave
  // nothing: the errno of reading it, 0 when it was read.
  int version_error = 0;
  int format_error = 0;
};

// Builds the system's data set (empty root), the download at `root`, or the
// unpacked data set `root` judged as if staged as `version_string`, whose
// files are read never through a final link. Every first word is read by
// read_word within `read_bound`.
kav_built build_data_set(const std::string& root);
kav_built build_data_set(const std::string& root, const std::string& version_string);

struct kav_device {
  kav_built system;
  kav_link_read latest;        // tz_latest
  kav_link_read current_link;  // the zoneinfo link
  bool current_link_usable = false;  // it names the system's data or a root
  std::string current_root;          // the root it names; empty for the system's
  kav_built current;   // the data set the start builds for it (the system's
                       // when the link is not usable)
  kav_built download;  // the data set tz_latest names, when it names one
  kav_link_read localtime_link;
  // The paths a start writes, as they stand.
  kav_entry zoneinfo, icutz, localtime, marker, record, old_icu;
};

// The whole content of the link at `path`; empty when it is not a link.
std::string link_content(const std::string& path);

// Reads the device; the data set tz_latest names only `with_download`. The
// boot program's code warns as it reads; the caller mutes that
// (kav_muted_warnings).
kav_device read_device(bool with_download = true);

// The directory directly under /var/db/timezone/tz/ that `target` leads
// into, such as 2015a.1.0 for /var/db/timezone/tz/2015a.1.0/icutz; empty
// for a target outside it.
std::string data_set_name(const std::string& target);

}  // namespace kav
