// SPDX-License-Identifier: MIT
// The C library's own functions behind the replaced ones.
#pragma once

#include <dlfcn.h>

#include <cstdlib>

namespace support {

// The next definition of `name` after this program's.
template <class Function>
Function* real(const char* name) {
  void* const found = dlsym(RTLD_NEXT, name);
  if (found == nullptr) abort();
  return reinterpret_cast<Function*>(found);
}

}  // namespace support

// The real function of the same name and type as the one being defined; looked up once.
#define REAL(name)                                                        \
  ([]() -> auto& {                                                        \
    static auto* const function = support::real<decltype(::name)>(#name); \
    return *function;                                                     \
  }())
