// SPDX-License-Identifier: MIT
// An input is the number of a zone, an instant in eight bytes, and the text of a date.
#include "util/datetime.h"

#include "fuzz/calendar.h"
#include "fuzz/fuzz.h"

#include <time.h>

#include <cstdlib>
#include <iterator>

namespace {

constexpr char kFormat[] = "%Y-%m-%dT%TZ";

// Rules in full, so that no zone need be installed.
constexpr const char* kZones[] = {
    "UTC",
    "CET-1CEST,M3.5.0,M10.5.0/3",
    "EST5EDT,M3.2.0,M11.1.0",
    "NZST-12NZDT,M9.5.0,M4.1.0/3",
    "<+0545>-5:45",
    "LHST-10:30LHDT-11,M10.1.0,M4.1.0",  // half an hour of summer time
};

void set_zone(const char* zone) {
  setenv("TZ", zone, 1);
  tzset();
}

void check_in_utc(uint64_t instant, const std::string& text) {
  set_zone("UTC");
  fuzz::require_equal(fuzz::date_text(instant) + "Z", util::unparse_time(instant, "%FT%TZ"),
                      "the text of an instant");
  int64_t seconds = 0;
  const size_t read = fuzz::read_date(text, seconds);
  const bool whole = read > 0 && read == text.size();
  fuzz::require_equal(std::to_string(whole ? static_cast<uint64_t>(seconds) * 1000 : 0),
                      std::to_string(util::parse_time(text, kFormat)), "the instant of a text");
}

// Local times come twice where clocks are set back, but none is lost unless time_t is too narrow.
void check_in_zone(const char* zone, uint64_t instant, const std::string& text) {
  set_zone(zone);
  const std::string local = util::unparse_time(instant, kFormat);
  const auto seconds = static_cast<int64_t>(instant / 1000);
  const bool wraps = static_cast<time_t>(seconds) != seconds;
  if (local.size() == sizeof("2008-05-01T14:03:59Z") - 1 && !wraps) {
    const util::utime_t back = util::parse_time(local, kFormat);
    fuzz::require_equal(local, util::unparse_time(back, kFormat), "a local time read back");
    fuzz::require(util::parse_time(local + " ", kFormat) == 0, "a blank behind is refused");
  }
  util::parse_time(text, "%Y-%m-%d %H:%M:%S");
  fuzz::require(util::parse_time(text + '\0', kFormat) == 0, "a NUL behind is refused");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const char* const zone = kZones[input.byte() % std::size(kZones)];
  const auto instant = input.number<uint64_t>();
  const std::string text = input.rest();
  check_in_utc(instant, text);
  check_in_zone(zone, instant, text);
  return 0;
}
