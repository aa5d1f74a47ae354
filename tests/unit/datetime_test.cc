// SPDX-License-Identifier: MIT
#include "util/datetime.h"

#include "tests/support/clock.h"
#include "tests/support/faults.h"
#include "tests/support/locale.h"

#include <errno.h>
#include <time.h>

#include <string>

#include <gtest/gtest.h>

using support::Fault;
using support::TimeZone;
using util::parse_time;
using util::unparse_time;
using util::utime_t;

namespace {

constexpr const char* kZones[] = {"UTC", "IST-5:30", "CET-1CEST,M3.5.0,M10.5.0/3"};
constexpr const char* kCentralEurope = kZones[2];
constexpr const char* kFormat = "%Y-%m-%d %H:%M:%S";
constexpr utime_t kMinus1000 = 18446744073709550616U;

}  // namespace

TEST(ParseTime, TakesTheTextAsUtcThere) {
  EXPECT_EQ(1136171045000U, parse_time("2006-01-02 03:04:05", kFormat));
}

TEST(ParseTime, TakesTheTextAsLocalTime) {
  const TimeZone zone("IST-5:30");
  EXPECT_EQ(1136151245000U, parse_time("2006-01-02 03:04:05", kFormat));
}

TEST(ParseTime, RefusesATrailingBlank) {
  EXPECT_EQ(0U, parse_time("2006-01-02 03:04:05 ", kFormat));
}

TEST(ParseTime, RefusesTrailingText) { EXPECT_EQ(0U, parse_time("2006-01-02 03:04:05Z", kFormat)); }

TEST(ParseTime, RefusesATextThatDoesNotMatch) {
  for (const char* text : {"", "x", "2006", "2006-13-02 03:04:05", "2006-01-02 25:04:05"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(0U, parse_time(text, kFormat));
  }
}

TEST(ParseTime, MovesADayPastTheEndOfItsMonthOn) {
  EXPECT_EQ(parse_time("2006-03-02 03:04:05", kFormat), parse_time("2006-02-30 03:04:05", kFormat));
  EXPECT_EQ(0U, parse_time("2006-02-32 03:04:05", kFormat));
}

TEST(ParseTime, RefusesANulAndWhatFollowsIt) {
  EXPECT_EQ(0U, parse_time(std::string("1970-01-01 00:00:05\0x", 21), kFormat));
  EXPECT_EQ(0U, parse_time(std::string("1970-01-01 00:00:05\0", 20), kFormat));
}

TEST(ParseTime, GivesTheEpochLikeAFailure) {
  EXPECT_EQ(0U, parse_time("1970-01-01 00:00:00", kFormat));
}

TEST(ParseTime, WidensInstantsBeforeTheEpochWithTheirSign) {
  EXPECT_EQ(kMinus1000, parse_time("1969-12-31 23:59:59", kFormat));
  EXPECT_EQ(static_cast<utime_t>(-315619200000), parse_time("1960-01-01 00:00:00", kFormat));
}

TEST(ParseTime, PassesTheEndOf32BitSecondsWhereTheTypeAllows) {
  const utime_t expected = sizeof(time_t) > 4 ? 2209032000000U : kMinus1000;
  EXPECT_EQ(expected, parse_time("2040-01-01 12:00:00", kFormat));
}

TEST(ParseTime, GivesMinus1000WhereMktimeFails) {
  const Fault fault("mktime", EOVERFLOW);
  EXPECT_EQ(kMinus1000, parse_time("2006-01-02 03:04:05", kFormat));
}

TEST(ParseTime, ZeroesWhatTheFormatDoesNotSet) {  // The zeroth of January 1900.
  if (sizeof(time_t) > 4) {
    EXPECT_EQ(static_cast<utime_t>(-2209075195000), parse_time("05", "%S"));
  } else {
    EXPECT_EQ(kMinus1000, parse_time("05", "%S"));
  }
}

TEST(ParseTime, LetsTheCLibraryDecideDaylightSaving) {
  const TimeZone zone(kCentralEurope);
  EXPECT_EQ(1199185200000U, parse_time("2008-01-01 12:00:00", kFormat));
  EXPECT_EQ(1214906400000U, parse_time("2008-07-01 12:00:00", kFormat));
}

TEST(ParseTime, FollowsTheSwitchToDaylightSaving) {
  const TimeZone zone(kCentralEurope);
  EXPECT_EQ(1206838799000U, parse_time("2008-03-30 01:59:59", kFormat));
  EXPECT_EQ(1206838800000U, parse_time("2008-03-30 03:00:00", kFormat));
}

TEST(ParseTime, FollowsTheSwitchFromDaylightSaving) {
  const TimeZone zone(kCentralEurope);
  EXPECT_EQ(1224979199000U, parse_time("2008-10-26 01:59:59", kFormat));
  EXPECT_EQ(1224986400000U, parse_time("2008-10-26 03:00:00", kFormat));
}

TEST(ParseTime, LetsTheFormatSettleDaylightSaving) {  // %s fills in all of the broken-down time.
  const TimeZone zone(kCentralEurope);
  EXPECT_EQ(1224981000000U, parse_time("1224981000", "%s"));  // 02:30, the first time
  EXPECT_EQ(1224984600000U, parse_time("1224984600", "%s"));  // 02:30, the second time
}

TEST(UnparseTime, DropsMilliseconds) { EXPECT_EQ("01", unparse_time(1999, "%S")); }

TEST(UnparseTime, WritesLocalTime) {
  const TimeZone zone("IST-5:30");
  EXPECT_EQ("2006-01-02T03:04:05IST", unparse_time(1136151245000, "%FT%T%Z"));
}

TEST(UnparseTime, FollowsTheSwitchToDaylightSaving) {
  const TimeZone zone(kCentralEurope);
  EXPECT_EQ("2008-03-30 01:59:59 CET", unparse_time(1206838799999, "%F %T %Z"));
  EXPECT_EQ("2008-03-30 03:00:00 CEST", unparse_time(1206838800000, "%F %T %Z"));
}

TEST(UnparseTime, FollowsTheSwitchFromDaylightSaving) {
  const TimeZone zone(kCentralEurope);
  EXPECT_EQ("2008-10-26 02:30:00 CEST", unparse_time(1224981000000, "%F %T %Z"));
  EXPECT_EQ("2008-10-26 02:30:00 CET", unparse_time(1224984600000, "%F %T %Z"));
}

TEST(UnparseTime, PassesTheEndOf32BitSecondsWhereTheTypeAllows) {
  const char* const expected = sizeof(time_t) > 4 ? "2040-01-01 12:00:00" : "1903-11-26 05:31:44";
  EXPECT_EQ(expected, unparse_time(2209032000000, "%F %T"));
}

TEST(UnparseTime, ReadsNegativeInstantsAsUnsigned) {
  if (sizeof(time_t) > 4) {
    EXPECT_EQ("584556019", unparse_time(kMinus1000, "%Y"));
  } else {  // 18446744073709550 seconds, of which 32 bits remain
    EXPECT_EQ("2010-04-15 05:45:18", unparse_time(kMinus1000, "%F %T"));
  }
}

TEST(UnparseTime, Writes255Characters) {
  EXPECT_EQ(std::string(255, 'x'), unparse_time(0, std::string(255, 'x').c_str()));
}

TEST(UnparseTime, IsEmptyPast255Characters) {
  EXPECT_EQ("", unparse_time(0, std::string(256, 'x').c_str()));
}

TEST(UnparseTime, IsEmptyForAnEmptyFormat) { EXPECT_EQ("", unparse_time(0, "")); }

TEST(UnparseTime, IsEmptyWhereThereIsNoLocalTime) {
  const Fault fault("localtime_r", EOVERFLOW);
  EXPECT_EQ("", unparse_time(0, "%F"));
}

TEST(UnparseTime, GroupsNoDigits) {
  const support::CommaLocale locale;
  EXPECT_EQ("2006-01-02T03:04:05", unparse_time(1136171045000, "%FT%T"));
}

TEST(DateTime, ComesBackEqualAllYear) {
  for (const char* name : kZones) {
    SCOPED_TRACE(name);
    const TimeZone zone(name);
    for (utime_t t = 1199142000000; t < 1230768000000; t += 7 * 3600 * 1000) {
      if (t / 1000 >= 1224979200 && t / 1000 < 1224986400) continue;  // These hours come twice.
      ASSERT_EQ(t, parse_time(unparse_time(t, kFormat), kFormat));
    }
  }
}
