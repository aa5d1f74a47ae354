// SPDX-License-Identifier: MIT
#include "service/natural_order.h"

#include "util/strnatcmp.h"

namespace service {
namespace {

bool less(int order, const std::string& a, const std::string& b) {
  return order != 0 ? order < 0 : a < b;
}

}  // namespace

bool NaturalLess::operator()(const std::string& a, const std::string& b) const {
  return less(strnatcmp(a.c_str(), b.c_str()), a, b);
}

bool NaturalCaseLess::operator()(const std::string& a, const std::string& b) const {
  return less(strnatcasecmp(a.c_str(), b.c_str()), a, b);
}

}  // namespace service
