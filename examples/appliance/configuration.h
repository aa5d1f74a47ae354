// SPDX-License-Identifier: MIT
#pragma once

#include <util/NASConfDB.h>

#include <string>

namespace appliance {

// The configuration document, which the administrator may replace while the daemon runs.
class Configuration {
 public:
  // Logs a summary of it. Throws what reading the document throws.
  explicit Configuration(std::string path);

  // Reads the document again, and logs what became of it. Where that fails, the configuration stays
  // as it is and fault() says why until a document can be read.
  void reload();

  const util::NASConfDB& now() const { return database_; }
  const std::string& fault() const { return fault_; }  // "" for none

 private:
  void log_summary() const;

  std::string path_;
  util::NASConfDB database_;
  std::string fault_;
};

}  // namespace appliance
