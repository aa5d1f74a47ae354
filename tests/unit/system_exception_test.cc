// SPDX-License-Identifier: MIT
#include "util/system_exception.h"

#include <errno.h>
#include <string.h>

#include <exception>
#include <type_traits>

#include <gtest/gtest.h>

using util::system_exception;

TEST(SystemException, TakesTheCurrentErrorNumber) {
  errno = ENOENT;
  const system_exception exception;
  errno = EACCES;
  EXPECT_EQ(ENOENT, exception.error_number());
  EXPECT_STREQ("No such file or directory", exception.what());
}

TEST(SystemException, TakesAGivenErrorNumber) {
  errno = ENOENT;
  const system_exception exception(EACCES);
  EXPECT_EQ(EACCES, exception.error_number());
  EXPECT_STREQ("Permission denied", exception.what());
}

TEST(SystemException, IsMadeFromANumberImplicitly) {
  const auto fail = []() -> system_exception { return EACCES; };
  EXPECT_EQ(EACCES, fail().error_number());
}

TEST(SystemException, HandsOutTheSystemsOwnText) {
  EXPECT_EQ(strerror(EACCES), system_exception(EACCES).what());  // the same place, no copy
}

TEST(SystemException, TakesAnyNumber) {
  EXPECT_STREQ("Success", system_exception(0).what());
  EXPECT_STREQ("Unknown error 54321", system_exception(54321).what());
}

TEST(SystemException, KeepsErrnoWhenThrown) {
  errno = EMFILE;
  try {
    throw system_exception();
  } catch (const std::exception& e) {
    EXPECT_EQ(EMFILE, errno);
    EXPECT_STREQ("Too many open files", e.what());
  }
}

TEST(SystemException, IsCopiedWithItsNumber) {
  const system_exception one(EACCES);
  system_exception other(ENOENT);
  other = one;
  EXPECT_EQ(EACCES, other.error_number());
  EXPECT_EQ(EACCES, system_exception(one).error_number());
}

TEST(SystemException, IsAStandardException) {
  EXPECT_TRUE((std::is_base_of<std::exception, system_exception>::value));
  EXPECT_TRUE(std::has_virtual_destructor<system_exception>::value);
}
