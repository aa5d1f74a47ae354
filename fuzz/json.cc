// SPDX-License-Identifier: MIT
// An input is a JSON text and, taken apart, a tree of values.
#include "service/json.h"

#include "fuzz/values.h"
#include "service/utf8.h"

#include <string>

namespace {

void comes_back(const util::Value& v) {
  for (const unsigned style : {0U, 1U, 2U, 3U}) {
    const std::string text = service::to_json(v, style);
    fuzz::require(service::is_utf8(text), "a text is UTF-8");
    fuzz::require((style & service::IN_SCRIPT) == 0 || text.find('<') == std::string::npos,
                  "a text may stand in a script");
    fuzz::require_equal(fuzz::spelled(v), fuzz::spelled(service::from_json(text)), "a value");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  try {
    comes_back(service::from_json(text));
  } catch (const service::json_error& e) {
    fuzz::require(e.row() >= 1 && e.column() >= 1 && *e.what() != '\0', "a fault has a place");
  }
  fuzz::Input input(data, size);
  // What JSON has no form of is gone after one turn.
  comes_back(service::from_json(service::to_json(fuzz::built(input))));
  return 0;
}
