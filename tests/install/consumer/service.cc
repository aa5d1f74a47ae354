// SPDX-License-Identifier: MIT
// A client of the second library alone; the first comes with it.
#include <service/json.h>
#include <service/natural_order.h>

#include <iostream>

int main() {
  const util::Value value = service::from_json("{\"n\": [1, 2.5]}");
  const bool good =
      service::to_json(value) == "{\"n\":[1,2.5]}" && service::NaturalLess()("file2", "file10");
  std::cout << "text consumer " << (good ? "works" : "FAILED") << std::endl;
  return good ? 0 : 1;
}
