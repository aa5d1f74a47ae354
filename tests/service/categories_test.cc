// SPDX-License-Identifier: MIT
#include "service/categories.h"

#include "util/SuperLoop.h"
#include "util/logger.h"

#include <string>
#include <tuple>

#include <gtest/gtest.h>

namespace {

using service::apply_categories;
using service::list_categories;

util::category NET("NET");
util::category DISK_IO("DISK IO");

// A logger with this enabled and nothing else.
util::logger& logger_with(const std::string& list) {
  util::logger* const log = util::logger::getLogger("categories_test");
  log->clear_components();
  EXPECT_TRUE(apply_categories(*log, list));
  return *log;
}

std::string enabled(const util::logger& log) {
  std::string names;
  for (const util::category* const one : util::category::categories()) {
    if (log.isLoggable(*one)) names += (names.empty() ? "" : ",") + one->name();
  }
  return names;
}

}  // namespace

TEST(Categories, AreEnabledAndDisabledByName) {
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"",        "",                      ""                           },
      {"",        "NET",                   "NET"                        },
      {"",        "INFO,NET,EVENT LOOP",   "EVENT LOOP,INFO,NET,WARNING"},
      {"MEMORY",  "INFO,NET,-MEMORY",      "INFO,NET,WARNING"           },
      {"",        " INFO , DISK IO\t,,\n", "DISK IO,INFO,WARNING"       },
      {"NET",     "- NET",                 ""                           },
      {"",        "NET,-NET",              ""                           },
      {"",        "-NET,NET",              "NET"                        },
      {"DEBUG",   "-DEBUG",                "INFO,WARNING"               },
      {"DEBUG",   "-INFO",                 "WARNING"                    },
      {"DEBUG",   "-WARNING",              ""                           },
      {"WARNING", "-DEBUG",                "WARNING"                    },
      {"NET",     "-INFO",                 "NET"                        },
  };
  for (const auto& [before, list, after] : rows) {
    SCOPED_TRACE(list);
    util::logger& log = logger_with(before);
    std::string unknown;
    EXPECT_TRUE(apply_categories(log, list, &unknown));
    EXPECT_EQ(after, enabled(log));
    EXPECT_EQ("", unknown);
  }
}

TEST(Categories, StayAsTheyAreWhereANameIsUnknown) {
  util::logger& log = logger_with("INFO");
  std::string unknown = "before";
  EXPECT_FALSE(apply_categories(log, "NET,-INFO,net,-EVENT  LOOP,-", &unknown));
  EXPECT_EQ("before, net, EVENT  LOOP, ", unknown);
  EXPECT_EQ("INFO,WARNING", enabled(log));
  EXPECT_FALSE(apply_categories(log, "-"));
}

TEST(Categories, AreListedWithTheirState) {
  EXPECT_EQ(
      "off DEBUG\n"
      "on  DISK IO\n"
      "off EVENT LOOP\n"
      "on  INFO\n"
      "off MEMORY\n"
      "off NET\n"
      "off TIMING\n"
      "on  WARNING\n",
      list_categories(logger_with("INFO,DISK IO")));
}
