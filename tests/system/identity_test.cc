// SPDX-License-Identifier: MIT
// Identities in a program whose own categories are constructed before the library's: linked with
// the static library, this file's initialisers run first.
#include "util/logger.h"

#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

using util::category;

namespace {

struct Sight {
  bool taken;
  bool found;
  size_t count;
};

Sight before_any;

// Runs before every initialiser, the library's included.
void look(int, char**, char**) {
  before_any = {true, category::forName("WARNING") != nullptr, category::categories().size()};
}

using Entry = void (*)(int, char**, char**);
__attribute__((section(".preinit_array"), used)) Entry entry = look;

category early("EARLY");
category claimed_early(0x3, 1, "INFO");

}  // namespace

TEST(Identity, IsUnknownBeforeAnyCategoryExists) {
  EXPECT_TRUE(before_any.taken);
  EXPECT_FALSE(before_any.found);
  EXPECT_EQ(0U, before_any.count);
}

TEST(Identity, OfTheLibrarysCategoriesIsTheSameWhateverRunsFirst) {
  const std::tuple<const char*, unsigned int, uint64_t> rows[] = {
      {"WARNING",    0, 0x1 },
      {"INFO",       1, 0x3 },
      {"DEBUG",      2, 0x7 },
      {"MEMORY",     3, 0x8 },
      {"TIMING",     4, 0x10},
      {"EVENT LOOP", 5, 0x20},
  };
  for (const auto& [name, id, mask] : rows) {
    SCOPED_TRACE(name);
    const category* const found = category::forName(name);
    ASSERT_NE(nullptr, found);
    EXPECT_EQ(id, found->id());
    EXPECT_EQ(mask, found->mask());
  }
}

TEST(Identity, OfTheFirstClientCategoryFollowsTheLibrarys) {
  EXPECT_EQ(6U, early.id());
  EXPECT_EQ(0x40U, early.mask());
}

TEST(Identity, ListsCategoriesByName) {
  std::vector<std::string> names;
  for (const category* one : category::categories()) names.push_back(one->name());
  EXPECT_EQ((std::vector<std::string>{"DEBUG", "EARLY", "EVENT LOOP", "INFO", "MEMORY", "TIMING",
                                      "WARNING"}),
            names);
}

TEST(Identity, KeepsTheFirstObjectOfAName) {
  EXPECT_NE(&claimed_early, category::forName("INFO"));
  EXPECT_NE(&util::INFO, category::forName("INFO"));
  EXPECT_EQ(&early, category::forName("EARLY"));
}
