// SPDX-License-Identifier: MIT
// An input file of a tool that reads it by name.
#pragma once

#include <string>

namespace tools {

// The file of that name; for "-" a copy of standard input, which is gone with the object.
class Input {
 public:
  // Throws std::system_error where standard input cannot be read.
  explicit Input(const std::string& file);
  ~Input();
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  const std::string& path() const { return path_; }
  const std::string& name() const { return name_; }  // for messages

  // The library's message, which may be about path(), as one about name().
  std::string named(std::string message) const;

 private:
  std::string name_;
  std::string path_;
  int copy_ = -1;
};

}  // namespace tools
