#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The proleptic Gregorian calendar in UTC, for instants in seconds since
// 1970-01-01 00:00:00 UTC.
namespace kav {

constexpr std::int64_t seconds_per_day = 86400;

// Days since 1970-01-01 of the given civil date; the month is 1 to 12.
std::int64_t days_from_civil(std::int64_t year, int month, int day);

// The UTC year in which `instant` falls.
std::int64_t year_of(std::int64_t instant);

// The instant at which `year` begins in UTC.
std::int64_t start_of_year(std::int64_t year);

// Whether `year` has a 29 February.
bool leap_year(std::int64_t year);

// The instant at which a day given as "YYYY-MM-DD" begins in UTC; none when
// the text is not such a date, or the day does not exist.
std::optional<std::int64_t> parse_date(std::string_view text);

// The same date and time `years` later; 29 February becomes the 28th in a
// common year.
std::int64_t years_later(std::int64_t instant, int years);

// `instant` as "YYYY-MM-DD HH:MM:SS UTC" (a year beyond four digits is
// written in full).
std::string instant_words(std::int64_t instant);

// The date of `instant` as "YYYY-MM-DD".
std::string date_words(std::int64_t instant);

}  // namespace kav
