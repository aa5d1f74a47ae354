// SPDX-License-Identifier: MIT
// A process whose user writes numbers another way.
#pragma once

#include "tests/support/files.h"

#include <locale>

namespace support {

// From construction to destruction 1234.5 is "1.234,5" for the C library (the locale is compiled
// for the purpose, none need be installed) and for new C++ streams.
class CommaLocale {
 public:
  CommaLocale();
  ~CommaLocale();
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;

 private:
  TempDir dir_;
  std::locale old_;
};

}  // namespace support
