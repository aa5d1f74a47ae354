// SPDX-License-Identifier: MIT
#include "tests/support/locale.h"

#include <locale.h>
#include <stdlib.h>

#include <stdexcept>
#include <string>

namespace support {
namespace {

class CommaNumbers : public std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

}  // namespace

CommaLocale::CommaLocale()
    : old_(std::locale::global(std::locale(std::locale::classic(), new CommaNumbers))) {
  dir_.write("source",
             "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\ngrouping 3;3\n"
             "END LC_NUMERIC\n");
  const std::string compile = "localedef -c -i " + dir_.file("source") + " " + dir_.file("comma") +
                              " >/dev/null 2>/dev/null";
  const int result = system(compile.c_str());
  setenv("LOCPATH", dir_.path().c_str(), 1);
  if (result == -1 || setlocale(LC_NUMERIC, "comma") == nullptr) {
    throw std::runtime_error("localedef made no locale");
  }
}

CommaLocale::~CommaLocale() {
  setlocale(LC_NUMERIC, "C");
  unsetenv("LOCPATH");
  std::locale::global(old_);
}

}  // namespace support
