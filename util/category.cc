// SPDX-License-Identifier: MIT
#include "util/logger.h"

#include <cassert>
#include <map>
#include <utility>

namespace util {
namespace {

using Registry = std::map<std::string, category*>;

Registry* gcategories = nullptr;  // never destroyed
int max_id = 0;                   // the last identity handed out or claimed

// Created with the library's own categories, so that their identities are the same in every
// program, whichever source file's categories are constructed first.
Registry& registry() {
  if (gcategories == nullptr) {
    gcategories = new Registry;
    new category(0x1, 0, "WARNING");
    new category(0x3, 1, "INFO");
    new category(0x7, 2, "DEBUG");
    for (const char* const name : {"MEMORY", "TIMING", "EVENT LOOP"}) new category(name);
  }
  return *gcategories;
}

// Kept: a 32-bit int is shifted, and its sign bit spreads: id 31 gives 0xFFFFFFFF80000000. Larger
// identities have no bit.
uint64_t mask_of(int id) {
  return id < 32 ? static_cast<uint64_t>(static_cast<int32_t>(UINT32_C(1) << id)) : 0;
}

}  // namespace

category::category(uint64_t mask, unsigned int id, const char* name)
    : _id(id), _mask(mask), _name(name) {
  claim_category(this, id, _name);
}

category::category(std::string name) : _id(0), _mask(0), _name(std::move(name)) {
  const int id = register_category(this, _name);
  // What assert() reports, under the name by which clients know this constructor.
  if (id < 0)
    __assert_fail("id >= 0", "logger.h", __LINE__, "util::category::category(std::string)");
  _id = static_cast<unsigned int>(id);
  _mask = mask_of(id);
}

category::category(uint64_t mask, std::string& name) : _id(0), _mask(mask), _name(name) {}

category category::operator&&(const category& other) const {
  std::string both = _name + "|" + other._name;
  return category(_mask | other._mask, both);
}

category* category::forName(const std::string& name) {
  if (gcategories == nullptr) return nullptr;
  const auto found = gcategories->find(name);
  return found != gcategories->end() ? found->second : nullptr;
}

category* category::forName(const char* name) { return forName(std::string(name)); }

std::vector<category*> category::categories() {
  if (gcategories == nullptr) return {};
  std::vector<category*> all(gcategories->size());
  auto to = all.begin();
  for (const auto& entry : *gcategories) *to++ = entry.second;
  return all;
}

int category::register_category(category* c, std::string& name) {
  const auto [entry, is_new] = registry().emplace(name, c);
  if (!is_new) return static_cast<int>(entry->second->_id);
  // Wraps, so that the caller's assertion sees an exhausted counter.
  max_id = static_cast<int>(static_cast<unsigned int>(max_id) + 1);
  return max_id;
}

void category::claim_category(category* c, unsigned int id, std::string& name) {
  if (!registry().emplace(name, c).second) return;
  max_id = static_cast<int>(id);  // Kept: no maximum; a late claim moves the counter back.
}

const char* duplicate_category::what() const noexcept { return "duplicate category"; }

}  // namespace util
