#include "kavdata/zones/tz_rule.h"

#include "kavdata/zones/calendar.h"

namespace kav {
namespace {

// Reads a TZ string from left to right; every step either takes what it
// expects or leaves the position as it was.
class kav_tz_text {
 public:
  explicit kav_tz_text(std::string_view text) : text_(text) {}

  bool done() const { return at_ == text_.size(); }
  bool take(char c) {
    if (done() || text_[at_] != c) return false;
    ++at_;
    return true;
  }
  bool next_is_digit() const { return !done() && text_[at_] >= '0' && text_[at_] <= '9'; }

  // A number of at most `digits` digits.
  bool number(std::size_t digits, int& value) {
    std::size_t count = 0;
    value = 0;
    for (; count < digits && next_is_digit(); ++count) value = value * 10 + (text_[at_++] - '0');
    return count > 0;
  }

  // A zone abbreviation: three or more letters, or "<" three or more
  // letters, digits, "+" or "-", ">".
  bool name(std::string& out) {
    std::size_t end = at_;
    while (end < text_.size() && letter(text_[end])) ++end;
    if (end - at_ >= 3) {
      out = text_.substr(at_, end - at_);
      at_ = end;
      return true;
    }
    if (!take('<')) return false;
    end = at_;
    while (end < text_.size() && (letter(text_[end]) || (text_[end] >= '0' && text_[end] <= '9') ||
                                  text_[end] == '+' || text_[end] == '-'))
      ++end;
    if (end - at_ < 3 || end == text_.size() || text_[end] != '>') return false;
    out = text_.substr(at_, end - at_);
    at_ = end + 1;
    return true;
  }

  // [+-]hh[:mm[:ss]], hh at most `max_hours`; seconds, signed as written.
  bool clock(int max_hours, std::int32_t& seconds) {
    const bool negative = take('-');
    if (!negative) take('+');
    int hours = 0, minutes = 0, secs = 0;
    if (!number(3, hours) || hours > max_hours) return false;
    if (take(':') && (!number(2, minutes) || minutes > 59 ||
                      (take(':') && (!number(2, secs) || secs > 59))))
      return false;
    seconds = (hours * 3600 + minutes * 60 + secs) * (negative ? -1 : 1);
    return true;
  }

 private:
  static bool letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

  std::string_view text_;
  std::size_t at_ = 0;
};

// Offsets count hours west of UTC, as POSIX has them, up to 24.
bool parse_offset(kav_tz_text& text, std::int32_t& east) {
  std::int32_t west = 0;
  if (!text.clock(24, west)) return false;
  east = -west;
  return true;
}

bool parse_day(kav_tz_text& text, kav_rule_day& day) {
  if (text.take('J')) {
    day.kind = kav_rule_day::julian;
    if (!text.number(3, day.day) || day.day < 1 || day.day > 365) return false;
  } else if (text.take('M')) {
    day.kind = kav_rule_day::month_week_day;
    if (!text.number(2, day.month) || day.month < 1 || day.month > 12 || !text.take('.') ||
        !text.number(1, day.week) || day.week < 1 || day.week > 5 || !text.take('.') ||
        !text.number(1, day.day) || day.day > 6)
      return false;
  } else {
    day.kind = kav_rule_day::zero_based;
    if (!text.number(3, day.day) || day.day > 365) return false;
  }
  return !text.take('/') || text.clock(167, day.time);
}

// Cumulative days before each month, in common and leap years.
constexpr int days_before_month[2][13] = {
    {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366}};

// The instant at which `day` falls in `year` when `offset` is in force.
std::int64_t change_instant(const kav_rule_day& day, std::int64_t year, std::int32_t offset) {
  const std::int64_t first = year > 1970 ? start_of_year(year) : 0;
  const bool leap = leap_year(year);
  std::int64_t days = 0;
  switch (day.kind) {
    case kav_rule_day::julian:
      days = day.day - 1 + (leap && day.day >= 60);
      break;
    case kav_rule_day::zero_based:
      days = day.day;
      break;
    case kav_rule_day::month_week_day: {
      const int before = days_before_month[leap][day.month - 1];
      const int length = days_before_month[leap][day.month] - before;
      // The weekday of the month's first day, by Zeller's congruence as the
      // C library writes it, truncating years before the common era alike.
      const std::int64_t shifted_year = day.month <= 2 ? year - 1 : year;
      const std::int64_t century = shifted_year / 100, in_century = shifted_year % 100;
      std::int64_t weekday = ((26 * ((day.month + 9) % 12 + 1) - 2) / 10 + 1 + in_century +
                              in_century / 4 + century / 4 - 2 * century) % 7;
      if (weekday < 0) weekday += 7;
      std::int64_t in_month = day.day - weekday;
      if (in_month < 0) in_month += 7;
      for (int week = 1; week < day.week && in_month + 7 < length; ++week) in_month += 7;
      days = before + in_month;
      break;
    }
  }
  return first + days * seconds_per_day + day.time - offset;
}

// Why `source` is not a TZ string, or empty when `rule` now holds it.
std::string parse_into(std::string_view source, kav_tz_rule& rule) {
  kav_tz_text text(source);
  if (!text.name(rule.standard.abbreviation))
    return "standard time has no name of three or more characters";
  if (!parse_offset(text, rule.standard.offset))
    return "standard time has no offset of at most 24 hours";
  if (text.done()) return {};
  if (!text.name(rule.daylight.abbreviation))
    return "daylight saving time has no name of three or more characters";
  rule.has_dst = true;
  rule.daylight.dst = true;
  rule.daylight.offset = rule.standard.offset + 3600;  // unless it says otherwise
  if (text.done()) return "daylight saving time has no rule";
  if (!text.take(',') && !(parse_offset(text, rule.daylight.offset) && text.take(',')))
    return "daylight saving time has no offset of at most 24 hours, or no rule";
  if (!parse_day(text, rule.start))
    return "its rule's start is not Jn, n or Mm.w.d, with a time of at most 167 hours";
  if (!text.take(',') || !parse_day(text, rule.end))
    return "its rule's end is not Jn, n or Mm.w.d, with a time of at most 167 hours";
  if (!text.done()) return "it goes on after its rule";
  return {};
}

}  // namespace

kav_tz_rule_parse parse_tz_rule(std::string_view source) {
  kav_tz_rule_parse parse;
  parse.problem = parse_into(source, parse.rule);
  return parse;
}

kav_local_time rule_local_time(const kav_tz_rule& rule, std::int64_t instant) {
  if (!rule.has_dst) return rule.standard;
  const std::int64_t year = year_of(instant);
  const std::int64_t start = change_instant(rule.start, year, rule.standard.offset);
  const std::int64_t end = change_instant(rule.end, year, rule.daylight.offset);
  // Where daylight saving time spans the new year, it is in force outside
  // [end, start) rather than inside [start, end).
  const bool dst = start > end ? instant < end || instant >= start
                               : instant >= start && instant < end;
  return dst ? rule.daylight : rule.standard;
}

void rule_change_candidates(const kav_tz_rule& rule, std::int64_t year,
                            std::vector<std::int64_t>& candidates) {
  candidates.push_back(start_of_year(year));
  if (!rule.has_dst) return;
  candidates.push_back(change_instant(rule.start, year, rule.standard.offset));
  candidates.push_back(change_instant(rule.end, year, rule.daylight.offset));
}

}  // namespace kav
