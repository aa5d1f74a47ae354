// SPDX-License-Identifier: MIT
#include "shares.h"

#include "texts.h"

#include <service/natural_order.h>
#include <service/share_path.h>

#include <exception>
#include <iterator>
#include <list>

namespace appliance {
namespace {

using util::value_array;
using util::value_struct;

// By enumerator, as the page shows them; what the document does not say is left out.
constexpr const char* kLocations[] = {"", "internal", "external"};
static_assert(std::size(kLocations) == util::ExternalShare + 1, "one word a location");

const char* access_of(const util::NASAccess& user) {
  return user.accesstype == util::None ? "none" : util::word_of(user.accesstype);
}

// "" for a share that cannot have one.
std::string folder(const util::NASShare& share) {
  try {
    return service::share_path(share);
  } catch (const std::exception&) {
    return "";
  }
}

value_struct share_value(const util::NASShare& share) {
  value_array users;
  for (const util::NASAccess& user : share.users) {
    value_struct value;
    put(value, "name", user.username);
    put(value, "access", access_of(user));
    users.push_back(value);
  }
  value_struct value;
  put(value, "name", share.name);
  put(value, "folder", folder(share));
  put(value, "type", util::word_of(share.type));
  put(value, "status", util::word_of(share.status));
  put(value, "location", kLocations[share.location]);
  value["users"] = users;
  return value;
}

}  // namespace

value_array shares(const util::NASConfDB& db) {
  std::list<util::NASShare> sorted = db.get_shares();
  sorted.sort([](const util::NASShare& a, const util::NASShare& b) {
    return service::NaturalCaseLess()(a.name, b.name);
  });
  value_array values;
  for (const util::NASShare& share : sorted) values.push_back(share_value(share));
  return values;
}

void add_share_faults(const util::NASConfDB& db, std::vector<std::string>& to) {
  for (const util::NASShare& share : db.get_shares()) {
    if (share.location == util::NoLocation)
      to.push_back("Share " + share.name + " has no location");
  }
}

}  // namespace appliance
