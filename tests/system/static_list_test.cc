// SPDX-License-Identifier: MIT
// A list saved and loaded before the library's own static objects are there and after they are
// gone: linked with the static library, this program's come first.
#include "util/PropertyList.h"

#include <unistd.h>

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

namespace {

// Saves a value of each kind that a file can hold, in both ways, and loads it.
std::string saved_and_loaded() try {
  char folder[] = "/tmp/static_list_XXXXXX";
  if (mkdtemp(folder) == nullptr) return "no folder";
  const std::string file = std::string(folder) + "/list";
  util::PropertyList list(file);
  list["array"] = util::value_array{1, 0.5, true, "text", util::utime_t{1000000}};
  list["struct"] = util::value_struct{
      {"data", util::byte_string(3, 'x')}
  };
  list.save();
  list.saveDurably();
  util::PropertyList again(file);
  again.load();
  const bool whole = again.vectorForKey("array", false).size() == 5 &&
                     again.mapForKey("struct", false).count("data") == 1;
  for (const char* suffix : {"", "~"}) unlink((file + suffix).c_str());
  rmdir(folder);
  return whole ? "whole" : "not whole";
} catch (const std::exception& e) {
  return e.what();
}

struct Settings {
  Settings() = default;
  // Fails the program if the list does not come back at its end.
  ~Settings() {
    if (saved_and_loaded() != "whole") _exit(1);
  }

  Settings(const Settings&) = delete;
  Settings& operator=(const Settings&) = delete;

  const std::string early = saved_and_loaded();
};

const Settings settings;

}  // namespace

TEST(StaticList, IsSavedAndLoadedBeforeMain) { EXPECT_EQ("whole", settings.early); }
