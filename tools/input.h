// SPDX-License-Identifier: MIT
// A file that a tool reads by name.
#pragma once

#include "util/internal/owners.h"

#include <string>

namespace tools {

// Whether the path names an open descriptor that is not a file, as the shell passes it for
// "<(command)".
bool is_open_stream(const std::string& path);

// Throws std::runtime_error for a FIFO, a device or a socket, which might block or never end.
void refuse_special_file(const std::string& path);

// Sets how much of a stream is read; the default is 64 MiB. False if the text is not a number.
bool set_input_limit(const std::string& mebibytes);

// The file of that name or, for a stream such as "-" and the shell's "<(command)", a copy of its
// content, which is removed with the object.
class Input {
 public:
  // Throws std::system_error if a stream cannot be read, std::runtime_error if it exceeds the limit
  // or if the name is that of a special file.
  explicit Input(const std::string& file);

  const std::string& path() const { return path_; }
  const std::string& name() const { return name_; }  // for messages

  // A message of the library with name() in place of path().
  std::string named(std::string message) const;

 private:
  std::string name_;
  std::string path_;
  util::Descriptor copy_;
};

}  // namespace tools
