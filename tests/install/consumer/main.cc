// SPDX-License-Identifier: MIT
// A client of the installed library: something of each family, the XML layer included.
#include <util/SuperLoop.h>
#include <util/Value.h>
#include <util/logger.h>
#include <util/util.h>

#include <iostream>

#include <ticpp.h>

int main() {
  util::logger::rootLogger()->enable(util::INFO);
  UTIL_LOG(util::logger::rootLogger(), util::INFO, "version %d", 1);

  util::Value value("text");
  std::string encoded;
  util::b64_encode(util::byte_string(3, 0), encoded, 0);
  const bool caught = [] {
    try {
      ticpp::Document().LoadFile("/nonexistent");
    } catch (const ticpp::Exception&) {
      return true;
    }
    return false;
  }();
  const bool good = encoded == "AAAA" && strnatcmp("file2", "file10") == -1 && caught &&
                    util::EVENT_LOOP.id() == 5;
  std::cout << value << (good ? " consumer works" : " consumer FAILED") << std::endl;
  return good ? 0 : 1;
}
