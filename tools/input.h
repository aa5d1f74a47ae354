// SPDX-License-Identifier: MIT
// An input file of a tool that reads it by name.
#pragma once

#include "util/internal/owners.h"

#include <string>

namespace tools {

// Whether it names a descriptor that is open already, and not as a file: the shell hands one over
// for "<(command)".
bool is_open_stream(const std::string& path);

// Throws std::runtime_error for a FIFO, a device or a socket: reading it may block or never end.
void refuse_special_file(const std::string& path);

// How much of a stream is read, 64 MiB unless it is set. False if the text is not a number of MiB.
bool set_input_limit(const std::string& mebibytes);

// The file of that name. For a stream, which "-" and the shell's "<(command)" are, a copy of all it
// gives, which is gone with the object.
class Input {
 public:
  // Throws std::system_error where a stream cannot be read, std::runtime_error where it gives more
  // than the limit and where the name is that of a special file.
  explicit Input(const std::string& file);

  const std::string& path() const { return path_; }
  const std::string& name() const { return name_; }  // for messages

  // The library's message, which may be about path(), as one about name().
  std::string named(std::string message) const;

 private:
  std::string name_;
  std::string path_;
  util::Descriptor copy_;
};

}  // namespace tools
