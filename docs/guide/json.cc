// SPDX-License-Identifier: MIT
#include <service/json.h>

#include <iostream>

int main() {
  const util::Value status = util::value_struct{
      {"name",    "nas"                        },
      {"load",    0.25                         },
      {"started", util::utime_t{1209650639250} },
      {"shares",  util::value_array{"music", 2}},
  };
  std::cout << service::to_json(status) << "\n"
            << service::to_json(util::value_array{"</script>"}, service::IN_SCRIPT) << "\n";

  util::Value request = service::from_json(R"({"command": "set", "mtu": 1500})");
  std::cout << "mtu " << static_cast<int&>(static_cast<util::value_struct&>(request)["mtu"])
            << "\n";

  try {
    service::from_json("{\n  \"mtu\": 1500,\n  \"mtu\": 9000\n}");
  } catch (const service::json_error& e) {
    std::cout << "request.json:" << e.what() << "\n";
  }
}
