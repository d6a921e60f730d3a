#pragma once

// The names under /var/db/timezone that stage, latest and clean use besides
// the boot program's. None of them is a version string, so a start never
// takes one.
namespace kav::staging {

// Held with flock(2) for the whole of a stage, a latest or a clean. Empty:
// whoever holds it is found in /proc/locks.
inline constexpr char lock_file[] = "/var/db/timezone/kavdata.lock";
// A data set being copied in, "/var/db/timezone/tz/.staging-VERSION-XXXXXX",
// renamed to its version once whole; a leftover only of an interrupted stage.
inline constexpr char copy_prefix[] = ".staging-";
// A data set being deleted, renamed out of its version name first.
inline constexpr char deleting_prefix[] = ".deleting-";
// A data set that a stage replaces on a file system that cannot swap two
// names, moved aside under this prefix; put back by the next command that
// writes, or the boot's clean, when the replacement was interrupted before it
// took its place.
inline constexpr char replaced_prefix[] = ".replaced-";
// tz_latest's new link, made under this name and renamed over tz_latest.
inline constexpr char next_latest[] = "/var/db/timezone/.tz_latest.staging";
inline constexpr char next_latest_name[] = ".tz_latest.staging";
inline constexpr char latest_name[] = "tz_latest";
// Left by a latest that leaves a data set out of use, as the boot program's
// marker is left by a switch, and deleted with it by a clean that leaves
// nothing out of use. The boot program deletes its own marker at every
// start, before the boot's clean runs; it never touches this one, so the
// boot's clean still runs. Empty, 0644.
inline constexpr char clean_request[] = "/var/db/timezone/kavdata.needs_cleanup";
inline constexpr char clean_request_name[] = "kavdata.needs_cleanup";

}  // namespace kav::staging
