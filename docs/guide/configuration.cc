// SPDX-License-Identifier: MIT
#include <util/NASConfDB.h>
#include <util/ZEB_GPIO.h>

#include <fstream>
#include <iostream>

#include <ticpp.h>

// In the appliance the document lies there already.
static void write(const std::string& file, const std::string& uid) {
  std::ofstream(file) << R"(<nas_conf_db>
  <version>3</version>
  <system><hostname>nas</hostname><dhcpenabled>true</dhcpenabled></system>
  <shares>
    <share>
      <sharename>music</sharename><sharetype>public</sharetype>
      <sharestatus>active</sharestatus><sharelocation>internal_share</sharelocation>
    </share>
  </shares>
  <access><users><user><username>guest</username><uid>)"
                      << uid << "</uid></user></users></access>\n</nas_conf_db>\n";
}

int main() {
  write("nas.xml", "1001");
  const util::NASConfDB database("nas.xml");
  std::cout << database.get_system().hostname << "\n";
  for (const util::NASShare& share : database.get_shares())
    std::cout << share << "\n  in " << share.root_path() << "\n";
  for (const util::NASUser& user : database.get_users()) std::cout << user << "\n";

  write("bad.xml", "nobody");
  try {
    const util::NASConfDB unreadable("bad.xml");
  } catch (const ticpp::Exception& e) {
    std::cout << e.what() << "\n";
  }

  util::ZEB_GPIO board;
  board.refresh();
  std::cout << board.getDriveCount() << " drive(s) fitted\n";
  if (board.getTemperature() == util::ZEB_GPIO::High) std::cout << "too hot\n";
}
