// SPDX-License-Identifier: MIT
#include "util/PropertyList.h"
#include "util/internal/owners.h"
#include "util/system_exception.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include <ticpp.h>

namespace util {
namespace {

// A failed system call: throws with the errno of the moment.
void check(int result) {
  if (result < 0) throw system_exception();
}

// A name beside the file that `make` could create; what still bears it goes in the end.
class OwnName {
 public:
  template <class Make>
  OwnName(const std::string& file, Make make) {
    constexpr int kAttempts = 1000;  // a killed process leaves one or two behind
    int result = -1;
    for (int i = 0; result < 0 && i < kAttempts; ++i) {
      name_ = file + "." + std::to_string(getpid()) + "." + std::to_string(i);
      result = make(name_.c_str());
      if (result < 0 && errno != EEXIST) break;
    }
    check(result);
    made_ = result;
  }
  ~OwnName() { unlink(name_.c_str()); }
  OwnName(const OwnName&) = delete;
  OwnName& operator=(const OwnName&) = delete;

  const char* get() const { return name_.c_str(); }
  int made() const { return made_; }  // what `make` returned

 private:
  std::string name_;
  int made_ = -1;
};

std::string folder_of(const std::string& file) {
  const size_t slash = file.rfind('/');
  if (slash == std::string::npos) return ".";
  return file.substr(0, slash == 0 ? 1 : slash);
}

// Whatever stat() cannot tell is an error: mode and owner of the old file are needed.
bool find(const std::string& file, struct stat& status) {
  const int result = stat(file.c_str(), &status);
  if (result < 0 && errno != ENOENT) throw system_exception();
  return result == 0;
}

void take_over(const struct stat& old, int descriptor) {
  check(fchown(descriptor, old.st_uid, old.st_gid));
  check(fchmod(descriptor, old.st_mode & 07777));  // last: a new owner clears the set-id bits
}

// errno tells failed calls from documents that the library refuses to write.
void write(const ticpp::Document& document, const char* file) {
  errno = 0;
  try {
    document.SaveFile(file);
  } catch (const ticpp::Exception&) {
    if (errno == 0) throw;
    throw system_exception();
  }
}

// A second name renamed over the backup: at no time is there none.
void make_backup(const std::string& file, const std::string& backup) {
  const OwnName second(file, [&file](const char* name) { return link(file.c_str(), name); });
  check(rename(second.get(), backup.c_str()));  // does nothing where both are one file already
}

}  // namespace

void PropertyList::saveDurably() try {
  ticpp::Document document;
  encode(document);

  const Descriptor folder(open(folder_of(file).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat old = {};
  const bool existed = find(file, old);
  const bool has_owner = existed || find(backup(), old);
  const mode_t mode = has_owner ? 0600 : 0666;  // nobody else reads it before it has its owner
  const OwnName fresh(file, [mode](const char* name) {
    return open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  });
  Descriptor written(fresh.made());
  write(document, fresh.get());
  if (has_owner) take_over(old, written.number());
  check(fsync(written.number()));
  written.close();

  if (unlink(temporary().c_str()) < 0 && errno != ENOENT) throw system_exception();
  if (existed) make_backup(file, backup());
  check(rename(fresh.get(), file.c_str()));
  check(fsync(folder.number()));
} catch (const system_exception& e) {
  throw save_failed(file, e.what());
}

}  // namespace util
