#include "kavdata/zones/calendar.h"

#include <cstdio>

namespace kav {
namespace {

std::int64_t floor_div(std::int64_t a, std::int64_t b) {
  return a / b - ((a % b != 0) && ((a < 0) != (b < 0)));
}

struct kav_civil {
  std::int64_t year;
  int month;
  int day;
};

// Days are counted in 400-year eras that begin on 1 March, so that the leap
// day falls last in its year and every era has the same 146,097 days.
kav_civil civil_from_days(std::int64_t days) {
  days += 719468;
  const std::int64_t era = floor_div(days, 146097);
  const std::int64_t day_of_era = days - era * 146097;
  const std::int64_t year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  const std::int64_t day_of_year =
      day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const std::int64_t shifted_month = (5 * day_of_year + 2) / 153;  // 0 is March
  const int day = static_cast<int>(day_of_year - (153 * shifted_month + 2) / 5 + 1);
  const int month = static_cast<int>(shifted_month < 10 ? shifted_month + 3 : shifted_month - 9);
  return {year_of_era + era * 400 + (month <= 2), month, day};
}

}  // namespace

std::int64_t days_from_civil(std::int64_t year, int month, int day) {
  year -= month <= 2;
  const std::int64_t era = floor_div(year, 400);
  const std::int64_t year_of_era = year - era * 400;
  const std::int64_t day_of_year = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  const std::int64_t day_of_era =
      year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
  return era * 146097 + day_of_era - 719468;
}

std::int64_t year_of(std::int64_t instant) {
  return civil_from_days(floor_div(instant, seconds_per_day)).year;
}

std::int64_t start_of_year(std::int64_t year) {
  return days_from_civil(year, 1, 1) * seconds_per_day;
}

bool leap_year(std::int64_t year) {
  return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

std::optional<std::int64_t> parse_date(std::string_view text) {
  if (text.size() != 10 || text[4] != '-' || text[7] != '-') return std::nullopt;
  int fields[3] = {0, 0, 0};
  const std::size_t starts[3] = {0, 5, 8}, lengths[3] = {4, 2, 2};
  for (int field = 0; field < 3; ++field)
    for (std::size_t i = starts[field]; i < starts[field] + lengths[field]; ++i) {
      if (text[i] < '0' || text[i] > '9') return std::nullopt;
      fields[field] = fields[field] * 10 + (text[i] - '0');
    }
  const int month = fields[1], day = fields[2];
  static const int month_days[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month < 1 || month > 12 || day < 1 || day > month_days[month - 1] ||
      (month == 2 && day == 29 && !leap_year(fields[0])))
    return std::nullopt;
  return days_from_civil(fields[0], month, day) * seconds_per_day;
}

std::int64_t years_later(std::int64_t instant, int years) {
  const std::int64_t days = floor_div(instant, seconds_per_day);
  const kav_civil civil = civil_from_days(days);
  const std::int64_t year = civil.year + years;
  const int day = civil.month == 2 && civil.day == 29 && !leap_year(year) ? 28 : civil.day;
  return days_from_civil(year, civil.month, day) * seconds_per_day + (instant - days * seconds_per_day);
}

std::string instant_words(std::int64_t instant) {
  const std::int64_t days = floor_div(instant, seconds_per_day);
  const std::int64_t seconds = instant - days * seconds_per_day;
  char text[64];
  std::snprintf(text, sizeof text, "%s %02d:%02d:%02d UTC", date_words(instant).c_str(),
                static_cast<int>(seconds / 3600), static_cast<int>(seconds / 60 % 60),
                static_cast<int>(seconds % 60));
  return text;
}

std::string date_words(std::int64_t instant) {
  const kav_civil civil = civil_from_days(floor_div(instant, seconds_per_day));
  char text[48];
  std::snprintf(text, sizeof text, "%04lld-%02d-%02d", static_cast<long long>(civil.year),
                civil.month, civil.day);
  return text;
}

}  // namespace kav
