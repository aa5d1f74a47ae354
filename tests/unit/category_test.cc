// SPDX-License-Identifier: MIT
#include "tests/support/child.h"
#include "util/logger.h"

#include <deque>
#include <exception>
#include <string>

#include <gtest/gtest.h>

using namespace util;
using support::in_child;

namespace {

// The registry keeps the address: a category of a test lives as long as the process.
template <class... Arguments>
category& lasting(Arguments... arguments) {
  static auto& all = *new std::deque<category>;
  return all.emplace_back(arguments...);
}

constexpr char kAssertion[] =
    "logger\\.h:[0-9]+: util::category::category\\(std::string\\): Assertion `id >= 0' failed";

}  // namespace

TEST(Category, LevelsAreCumulative) {
  EXPECT_EQ(0x1U, WARNING.mask());
  EXPECT_EQ(0x3U, INFO.mask());
  EXPECT_EQ(0x7U, DEBUG.mask());
}

TEST(Category, OfThisFileSharesTheIdentitiesOfTheFirstCopies) {
  EXPECT_EQ(0U, WARNING.id());
  EXPECT_EQ(1U, INFO.id());
  EXPECT_EQ(2U, DEBUG.id());
  EXPECT_EQ(3U, MEMORY.id());
  EXPECT_EQ(4U, TIMING.id());
  EXPECT_EQ("TIMING", TIMING.name());
}

TEST(Category, OfThisFileIsNotTheOneInTheRegistry) {
  EXPECT_NE(&MEMORY, category::forName("MEMORY"));
  EXPECT_TRUE(MEMORY.equal_to(*category::forName("MEMORY")));
}

TEST(Category, RegisteredAgainSharesTheFirstOnesIdentity) {
  in_child([] {
    const category* const first = category::forName("MEMORY");
    const category& again = lasting("MEMORY");
    EXPECT_EQ(3U, again.id());
    EXPECT_EQ(0x8U, again.mask());
    EXPECT_EQ(first, category::forName("MEMORY"));
    EXPECT_EQ(6U, lasting("NEXT").id());  // the counter did not move
  });
}

TEST(Category, RegisteredByTheNameOfALevelHasOnlyTheBitOfItsIdentity) {
  in_child([] {
    const category& info = lasting("INFO");
    EXPECT_EQ(1U, info.id());
    EXPECT_EQ(0x2U, info.mask());
  });
}

TEST(Category, TakesTheNextIdentityAndItsBit) {
  in_child([] {
    EXPECT_EQ(6U, lasting("NET").id());
    const category& disk = lasting("DISK");
    EXPECT_EQ(7U, disk.id());
    EXPECT_EQ(0x80U, disk.mask());
    EXPECT_EQ(&disk, category::forName("DISK"));
  });
}

TEST(Category, WithIdentity31HasTheSignExtendedMask) {
  in_child([] {
    lasting(0, 29, "TWENTY-NINE");
    EXPECT_EQ(0x40000000U, lasting("THIRTY").mask());
    const category& last = lasting("THIRTY-ONE");
    EXPECT_EQ(31U, last.id());
    EXPECT_EQ(0xFFFFFFFF80000000U, last.mask());
  });
}

TEST(Category, WithIdentity32AndUpHasNoMask) {
  in_child([] {
    unsigned int id = 0;
    for (int i = 6; i <= 70; ++i) {
      const category& next = lasting("NUMBER " + std::to_string(i));
      id = next.id();
      EXPECT_TRUE(id < 32 || next.mask() == 0) << id;
    }
    EXPECT_EQ(70U, id);
  });
}

TEST(Category, ClaimSetsTheCounterBackSoThatIdentitiesAreReused) {
  in_child([] {
    EXPECT_EQ(6U, lasting("SIX").id());
    EXPECT_EQ(2U, lasting(0x700, 2, "LATE LEVEL").id());
    const category& reused = lasting("REUSED");
    EXPECT_EQ(3U, reused.id());
    EXPECT_EQ(0x8U, reused.mask());
  });
}

TEST(Category, ClaimOfAKnownNameChangesNeitherRegistryNorCounter) {
  in_child([] {
    const category& mine = lasting(0xF0, 77, "WARNING");
    EXPECT_EQ(77U, mine.id());
    EXPECT_EQ(0xF0U, mine.mask());
    EXPECT_EQ(0U, category::forName("WARNING")->id());
    EXPECT_EQ(6U, lasting("NEXT").id());
  });
}

TEST(CategoryDeathTest, NegativeIdentityOfAKnownNameAborts) {
  lasting(0x1, 0xFFFFFFFE, "BELOW ZERO");
  EXPECT_DEATH(category("BELOW ZERO"), kAssertion);
}

TEST(CategoryDeathTest, NegativeCounterAborts) {
  EXPECT_DEATH((lasting(0x1, 0xFFFFFFFE, "CLAIM"), lasting("NEXT")), kAssertion);
}

TEST(CategoryDeathTest, ExhaustedCounterAborts) {
  EXPECT_DEATH((lasting(0x1, 0x7FFFFFFF, "CLAIM"), lasting("NEXT")), kAssertion);
}

TEST(Category, ForNameTakesBothKindsOfText) {
  EXPECT_EQ("EVENT LOOP", category::forName("EVENT LOOP")->name());
  EXPECT_EQ(category::forName("DEBUG"), category::forName(std::string("DEBUG")));
}

TEST(Category, ForNameOfAnUnknownNameIsNull) {
  EXPECT_EQ(nullptr, category::forName("warning"));
  EXPECT_EQ(nullptr, category::forName(std::string()));
}

TEST(Category, CombinedUnitesMasksAndNames) {
  category event_loop = *category::forName("EVENT LOOP");
  const category both = event_loop && DEBUG;
  EXPECT_EQ(0U, both.id());
  EXPECT_EQ(0x27U, both.mask());
  EXPECT_EQ("EVENT LOOP|DEBUG", both.name());
}

TEST(Category, CombinedIsNotRegistered) {
  const size_t before = category::categories().size();
  const category both = MEMORY && TIMING;
  EXPECT_EQ(nullptr, category::forName(both.name()));
  EXPECT_EQ(before, category::categories().size());
}

TEST(Category, CombinesMoreThanTwo) {
  EXPECT_EQ("WARNING|MEMORY|TIMING", (WARNING && MEMORY && TIMING).name());
  EXPECT_EQ("WARNING|MEMORY|TIMING", (WARNING && (MEMORY && TIMING)).name());
  EXPECT_EQ(0x19U, (WARNING && (MEMORY && TIMING)).mask());
}

TEST(Category, NameIsACopy) {
  std::string name = MEMORY.name();
  name += " leak";
  EXPECT_EQ("MEMORY", MEMORY.name());
}

TEST(Category, CopiesMemberByMember) {
  const size_t before = category::categories().size();
  const category copy(TIMING);
  category assigned = WARNING;
  assigned = copy;
  EXPECT_EQ(4U, assigned.id());
  EXPECT_EQ(0x10U, assigned.mask());
  EXPECT_EQ("TIMING", assigned.name());
  EXPECT_EQ(before, category::categories().size());
}

TEST(Category, EqualMeansSameIdentityAndMask) {
  in_child([] {
    EXPECT_TRUE(INFO.equal_to(*category::forName("INFO")));
    EXPECT_FALSE(INFO.equal_to(DEBUG));
    EXPECT_FALSE(INFO.equal_to(lasting("INFO")));              // same identity, mask 0x2
    EXPECT_FALSE(WARNING.equal_to(lasting(0x1, 9, "OTHER")));  // same mask
  });
}

TEST(DuplicateCategory, IsAStandardException) {
  const duplicate_category clash;
  const std::exception& base = clash;
  EXPECT_STREQ("duplicate category", base.what());
}
