// SPDX-License-Identifier: MIT
#include <service/natural_order.h>
#include <util/util.h>

#include <algorithm>
#include <iostream>
#include <vector>

int main() {
  // Base64. Both functions append; the decoder says by its result whether the text was sound.
  const util::byte_string key = {0xde, 0xad, 0xbe, 0xef};
  std::string text = "key: ";
  util::b64_encode(key, text, 0);
  std::cout << text << "\n";
  util::byte_string bytes;
  std::cout << util::b64_decode("3q2+7w==", bytes) << " " << (bytes == key) << "\n";
  std::cout << util::b64_decode("3q2+!", bytes) << "\n";

  // File names that Windows shares can carry.
  std::cout << util::escape_string("What? 50% of \"a:b\".") << "\n";
  std::cout << util::unescape_string("What%3F") << "\n";

  // The order in which people expect names.
  std::vector<std::string> names = {"share10", "Share2", "share1"};
  std::sort(names.begin(), names.end(), service::NaturalCaseLess());
  for (const std::string& name : names) std::cout << util::print_str(name) << " ";
  std::cout << "\n";

  // Local time, here that of UTC.
  const util::utime_t instant = util::parse_time("24.12.2007 18:30", "%d.%m.%Y %H:%M");
  std::cout << instant << " is a " << util::unparse_time(instant, "%A") << "\n";
  std::cout << util::parse_time("24.12.2007 ", "%d.%m.%Y") << "\n";

  // For messages: quotes only where they are needed.
  std::cout << util::print_str("plain") << " " << util::print_str("two \"words\"") << "\n";
}
