// SPDX-License-Identifier: MIT
#include "acknowledgements.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#include <util/PropertyList.h>
#include <util/system_exception.h>

#include <cerrno>

namespace appliance {
namespace {

constexpr const char* kKey = "acknowledged";

// Holds the lock that belongs to a file, which saving replaces and which thus cannot be locked
// itself.
class Lock {
 public:
  explicit Lock(const std::string& file)
      : descriptor_(open((file + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    if (descriptor_ < 0) throw util::system_exception();
    if (flock(descriptor_, LOCK_EX) < 0) {
      const int error = errno;
      close(descriptor_);
      throw util::system_exception(error);
    }
  }
  ~Lock() { close(descriptor_); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  int descriptor_;
};

}  // namespace

Ids acknowledged(const std::string& file) {
  util::PropertyList list(file);
  list.load();
  Ids ids;
  for (const std::string& id : list.vectorForKey(kKey, true)) ids.insert(id);
  return ids;
}

void acknowledge(const std::string& file, const std::string& id, const Ids& known) {
  const Lock lock(file);
  Ids ids = acknowledged(file);
  ids.insert(id);

  util::value_array kept;
  for (const std::string& each : ids) {
    if (known.count(each) > 0) kept.push_back(each);
  }
  util::PropertyList list(file);
  list.setValueForKey(kKey, kept);
  list.saveDurably();
}

}  // namespace appliance
