// SPDX-License-Identifier: MIT
#include "service/share_path.h"

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

namespace {

std::string path(const std::string& name, util::NASShareLocation location = util::InternalShare) {
  util::NASShare share;
  share.name = name;
  share.location = location;
  return service::share_path(share);
}

}  // namespace

TEST(SharePath, IsBelowTheBaseOfTheLocation) {
  EXPECT_EQ("/shares/internal/music", path("music"));
  EXPECT_EQ("/shares/external/music", path("music", util::ExternalShare));
  EXPECT_THROW(path("music", util::NoLocation), util::bad_location);
}

TEST(SharePath, EscapesTheNameAsItsFolderIs) {
  EXPECT_EQ("/shares/internal/what%3F%2E", path("what?."));
}

TEST(SharePath, NeverLeavesTheBase) {
  EXPECT_EQ("/shares/internal/.%2E", path(".."));
  EXPECT_EQ("/shares/internal/%2E", path("."));
  for (const std::string& name : {std::string(), std::string("/"), std::string("../etc"),
                                  std::string("a/b"), std::string("a\0b", 3)}) {
    SCOPED_TRACE(name);
    EXPECT_THROW(path(name), std::invalid_argument);
  }
}
