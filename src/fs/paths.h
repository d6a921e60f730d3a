#pragma once

// Every fixed path the program reads or writes. Other parts of the system rely
// on these exact names, so they are spelled out once, here.
namespace kav::paths {

// Working directories; given a data-protection class at start, never created.
inline constexpr char timezone_dir[] = "/var/db/timezone/";
inline constexpr char update_parent[] = "/var/db/timezone/tz/";

// Marker left for the clean-up job when a downloaded data set goes out of use.
inline constexpr char needs_cleanup[] = "/var/db/timezone/needs_cleanup";
// Link read by the whole system to find the tz database in use.
inline constexpr char zoneinfo_link[] = "/var/db/timezone/zoneinfo";
// Link to the root of the newest download; written by the downloader only.
inline constexpr char latest_link[] = "/var/db/timezone/tz_latest";
// Link to an update's ICU data; absent while the system's ICU data is in use.
inline constexpr char icutz_link[] = "/var/db/icutz";
// Former ICU location, deleted at every start.
inline constexpr char old_icu[] = "/var/db/icu";
// The device's local time zone: a link to one zone file.
inline constexpr char localtime_link[] = "/var/db/timezone/localtime";
// Record of the last switch: "<old version>_<new version>", no line end.
inline constexpr char version_diff_record[] = "/var/db/timezone/TZVersionDiffRecord";

// The read-only system partition's data set.
inline constexpr char system_zoneinfo[] = "/usr/share/zoneinfo.default";
inline constexpr char system_icu[] = "/usr/share/icu";
// Where local time links pointed before the zoneinfo link existed.
inline constexpr char legacy_zoneinfo[] = "/usr/share/zoneinfo";

}  // namespace kav::paths
