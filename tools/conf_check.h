// SPDX-License-Identifier: MIT
// What is wrong with a configuration document, all of it in one pass.
#pragma once

#include <string>
#include <vector>

namespace tools {

struct Finding {
  bool fault;       // util::NASConfDB refuses the document; else it silently ignores something
  int row, column;  // counted from 1; 0 for the document as a whole
  std::string text;
};

// In the order of the document. Throws ticpp::Exception where the file cannot be read or parsed.
std::vector<Finding> check_configuration(const std::string& path);

}  // namespace tools
