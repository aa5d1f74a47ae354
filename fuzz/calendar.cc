// SPDX-License-Identifier: MIT
#include "fuzz/calendar.h"

#include <time.h>

#include <cstdio>

namespace fuzz {
namespace {

bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

bool is_leap(int64_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int64_t days_in(int64_t year, int64_t month) {
  constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return kDays[month - 1] + (month == 2 && is_leap(year) ? 1 : 0);
}

constexpr int64_t kDaysIn400Years = 146097;

// A number of at most `digits` digits from `from` to `to`; -1 for a mismatch. A further digit
// that would lead beyond `to` is left alone.
int64_t read_number(const std::string& text, size_t& at, int digits, int64_t from, int64_t to) {
  while (at < text.size() && is_space(text[at])) ++at;
  int64_t number = -1;
  for (; digits > 0 && at < text.size() && text[at] >= '0' && text[at] <= '9'; --digits) {
    if (number >= 0 && number * 10 > to) break;
    number = (number < 0 ? 0 : number * 10) + (text[at++] - '0');
  }
  return number < from || number > to ? -1 : number;
}

}  // namespace

Moment moment_of(int64_t seconds) {
  seconds += kDaysIn400Years * 86400;  // since 1570, so not negative
  int64_t days = seconds / 86400;
  const int64_t rest = seconds % 86400;
  Moment moment = {1570, 1, 1, rest / 3600, rest / 60 % 60, rest % 60};
  moment.year += days / kDaysIn400Years * 400;
  for (days %= kDaysIn400Years; days >= (is_leap(moment.year) ? 366 : 365); ++moment.year) {
    days -= is_leap(moment.year) ? 366 : 365;
  }
  for (; days >= days_in(moment.year, moment.month); ++moment.month) {
    days -= days_in(moment.year, moment.month);
  }
  moment.day += days;
  return moment;
}

int64_t seconds_of(const Moment& moment) {
  int64_t days = moment.day - 1;
  for (int64_t year = 1970; year < moment.year; ++year) days += is_leap(year) ? 366 : 365;
  for (int64_t year = 1969; year >= moment.year; --year) days -= is_leap(year) ? 366 : 365;
  for (int64_t month = 1; month < moment.month; ++month) days += days_in(moment.year, month);
  return ((days * 24 + moment.hour) * 60 + moment.minute) * 60 + moment.second;
}

std::string date_text(uint64_t milliseconds) {
  const Moment m = moment_of(static_cast<time_t>(milliseconds / 1000));
  char text[64];
  snprintf(text, sizeof(text), "%jd-%02jd-%02jdT%02jd:%02jd:%02jd", intmax_t{m.year},
           intmax_t{m.month}, intmax_t{m.day}, intmax_t{m.hour}, intmax_t{m.minute},
           intmax_t{m.second});
  return text;
}

size_t read_date(const std::string& text, int64_t& seconds) {
  struct Step {
    int64_t Moment::*field;
    int digits, from, to;
    char behind;
  };
  constexpr Step kSteps[] = {
      {&Moment::year,   4, 0, 9999, '-'},
      {&Moment::month,  2, 1, 12,   '-'},
      {&Moment::day,    2, 1, 31,   'T'},
      {&Moment::hour,   2, 0, 23,   ':'},
      {&Moment::minute, 2, 0, 59,   ':'},
      {&Moment::second, 2, 0, 61,   'Z'},
  };
  Moment moment = {};
  size_t at = 0;
  for (const Step& step : kSteps) {
    moment.*step.field = read_number(text, at, step.digits, step.from, step.to);
    if (moment.*step.field < 0 || at == text.size() || text[at] != step.behind) return 0;
    ++at;
  }
  seconds = seconds_of(moment);
  if (static_cast<time_t>(seconds) != seconds) seconds = -1;
  return at;
}

}  // namespace fuzz
