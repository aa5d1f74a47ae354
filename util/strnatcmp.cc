// SPDX-License-Identifier: MIT
#include "util/strnatcmp.h"

#include <cassert>
#include <cctype>

namespace {

// Bytes are unsigned whatever the sign of char; classification must not see a negative one.
constexpr unsigned char byte(nat_char c) { return static_cast<unsigned char>(c); }

// Printable ASCII is not white space in any locale; this saves most calls.
inline bool nat_isspace(nat_char c) {
  const bool printable = c > ' ' && c < '\x7F';
  return !printable && isspace(byte(c)) != 0;
}
inline bool nat_isdigit(nat_char c) { return isdigit(byte(c)) != 0; }
inline int nat_toupper(nat_char c) { return toupper(byte(c)); }

int sign(int difference) { return (difference > 0) - (difference < 0); }

// Which of two runs of digits continues after the other has ended.
int compare_lengths(const nat_char* a, const nat_char* b) {
  for (; nat_isdigit(*a) && nat_isdigit(*b); ++a) ++b;
  return nat_isdigit(*a) - nat_isdigit(*b);
}

// Whether one of the runs of digits around `a` and `b` starts with a zero. They are equal so far
// and start at `start` or later.
bool is_fractional(const nat_char* start, const nat_char* a, const nat_char* b) {
  for (; a > start && nat_isdigit(a[-1]); --a) --b;
  return *a == '0' || *b == '0';
}

// Compares the numbers at `a` and `b`, the first bytes that differ: the runs of digits that both
// start here or have started since `start`. 0 if there are not two.
int compare_numbers(const nat_char* start, const nat_char* a, const nat_char* b) {
  const bool a_digit = nat_isdigit(*a);
  const bool b_digit = nat_isdigit(*b);
  if (a_digit && b_digit) {
    // The longer run is the greater number. Of equally long ones, and always of fractions, the
    // first difference decides.
    const int longer = compare_lengths(a, b);
    return longer == 0 || is_fractional(start, a, b) ? sign(*a - *b) : longer;
  }
  const bool started = a > start && nat_isdigit(a[-1]);
  return started ? a_digit - b_digit : 0;
}

}  // namespace

static int strnatcmp0(const nat_char* a, const nat_char* b, int fold_case) {
  if (a == nullptr || b == nullptr) {  // What assert() does, with one text from every compiler.
    __assert_fail("a && b", __FILE__, __LINE__,
                  "int strnatcmp0(const nat_char*, const nat_char*, int)");
  }
  for (;;) {
    const nat_char* const start = a;
    for (; *a == *b && *a != '\0'; ++a) ++b;  // Equal bytes decide nothing, white space included.
    const int numbers = compare_numbers(start, a, b);
    if (numbers != 0) return numbers;
    if (nat_isspace(*a)) {  // Kept: skipped at every place, and a difference in it breaks no tie.
      ++a;
    } else if (nat_isspace(*b)) {
      ++b;
    } else {
      const int difference =
          fold_case != 0 ? nat_toupper(*a) - nat_toupper(*b) : byte(*a) - byte(*b);
      if (difference != 0 || *a == '\0') return sign(difference);
      ++a;
      ++b;
    }
  }
}

int strnatcmp(const nat_char* a, const nat_char* b) { return strnatcmp0(a, b, 0); }

int strnatcasecmp(const nat_char* a, const nat_char* b) { return strnatcmp0(a, b, 1); }
