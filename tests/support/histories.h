// SPDX-License-Identifier: MIT
// Property lists on disk, as earlier saves have left them.
#pragma once

#include "util/PropertyList.h"

#include <stdio.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

namespace support {

inline std::string long_text(int number) {
  return std::string(9000, static_cast<char>('a' + number));  // some writes' worth
}

inline util::PropertyList list_of(const std::string& file, int number) {
  util::PropertyList list(file);
  list["n"] = number;
  list["text"] = long_text(number);
  return list;
}

// The number of the list that a fresh load finds whole, -1 where there is none.
inline int loaded(const std::string& file) {
  util::PropertyList list(file);
  list.load();
  if (list.getProperties().empty()) return -1;
  const int number = list.intForKey("n");
  EXPECT_EQ(long_text(number), list.stringForKey("text"));
  EXPECT_EQ(2U, list.getProperties().size());
  return number;
}

inline void save_alone(const std::string& file, int number) {
  list_of(file, number).save();
  EXPECT_EQ(0, unlink((file + ".tmp").c_str()));
}

// What may be on disk before list 2 is saved.
struct History {
  const char* name;
  void (*make)(const std::string& file);
  int found;  // the number of the list that is loaded then
};

inline void nothing(const std::string& /*file*/) {}

inline void saved_once(const std::string& file) { list_of(file, 1).save(); }

// File, temporary and backup are one file.
inline void saved_twice(const std::string& file) {
  list_of(file, 1).save();
  list_of(file, 1).save();
}

// As durable saves leave it, without the time that their syncing takes.
inline void saved_durably(const std::string& file) {
  save_alone(file, 1);
  save_alone(file + "~", 3);
}

// As a save leaves it that stopped before its last step.
inline void only_backup(const std::string& file) {
  list_of(file, 1).save();
  EXPECT_EQ(0, rename(file.c_str(), (file + "~").c_str()));
}

// As a durable save leaves it that was killed before its last step.
inline void backup_of_the_same(const std::string& file) {
  save_alone(file, 1);
  EXPECT_EQ(0, link(file.c_str(), (file + "~").c_str()));
}

const History kHistories[] = {
    {"nothing",            nothing,            -1},
    {"saved once",         saved_once,         1 },
    {"saved twice",        saved_twice,        1 },
    {"saved durably",      saved_durably,      1 },
    {"only a backup",      only_backup,        1 },
    {"backup of the same", backup_of_the_same, 1 },
};

}  // namespace support
