// SPDX-License-Identifier: MIT
// Programs that are run as children.
#pragma once

#include "tests/support/files.h"

#include <sys/types.h>

#include <iosfwd>
#include <string>
#include <vector>

namespace support {

// What became of a child: its exit status, or 128 and the number of the signal that ended it.
struct Outcome {
  int status;
  std::string out;
  std::string err;
  long peak;  // KiB of memory it held at most; at least as much as its parent when it was started
};

// What to expect of a child. Outcomes are compared and printed without their memory.
Outcome ended(int status, const std::string& out = "", const std::string& err = "");
bool operator==(const Outcome& a, const Outcome& b);
std::ostream& operator<<(std::ostream& os, const Outcome& outcome);

// A running program; its outputs go into files. Killed on destruction if it still runs.
class Child {
 public:
  // The program's path and its arguments. `output` takes the place of the file for standard output.
  explicit Child(const std::vector<std::string>& command, const std::string& input = "",
                 const std::string& output = "");
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  void signal(int number) const;
  void pause() const;                                   // returns when the child has stopped
  void resume() const;                                  // lets it go on
  std::string out() const { return dir_.read("out"); }  // so far
  std::string err() const { return dir_.read("err"); }
  // Waits until standard output ends with `text`; false after 20 seconds.
  bool out_ends_with(const std::string& text) const;
  Outcome wait();
  Outcome end();  // asks it to end, and waits

 private:
  TempDir dir_;
  pid_t pid_;
};

Outcome run(const std::vector<std::string>& command, const std::string& input = "",
            const std::string& output = "");

// What a program whose standard streams are a terminal writes; its lines end with "\r\n".
Outcome run_on_terminal(const std::vector<std::string>& command);

}  // namespace support
