// SPDX-License-Identifier: MIT
#include "files.h"

#include <filesystem>
#include <regex>
#include <stdexcept>
#include <system_error>

namespace appliance {

namespace fs = std::filesystem;

void refuse_special(const std::string& path) {
  std::error_code missing;
  const fs::file_status found = fs::status(path, missing);
  if (fs::exists(found) && !fs::is_regular_file(found)) {
    throw std::runtime_error(path + ": not a regular file");
  }
}

void load(util::PropertyList& list) {
  refuse_special(list.path());
  list.load();
}

// save() alone writes into the file that a reader may have open: its temporary is another name of
// it. Here each list is a new file.
void replace(const util::PropertyList& list) {
  util::PropertyList fresh(list.path() + ".new");
  fresh.getProperties() = list.getProperties();
  const auto remove_temporary = [&fresh] { fs::remove(fresh.path() + ".tmp"); };
  remove_temporary();
  fresh.save();
  remove_temporary();
  fs::rename(fresh.path(), list.path());
}

void remove_leftovers(const util::PropertyList& list) {
  const fs::path path = fs::absolute(list.path());
  const std::string name = path.filename().string();
  const std::regex leftover("\\.[0-9]+\\.[0-9]+");
  for (const fs::directory_entry& entry : fs::directory_iterator(path.parent_path())) {
    const std::string found = entry.path().filename().string();
    if (found.compare(0, name.size(), name) == 0 &&
        std::regex_match(found.substr(name.size()), leftover)) {
      fs::remove(entry.path());
    }
  }
}

}  // namespace appliance
