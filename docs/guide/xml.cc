// SPDX-License-Identifier: MIT
#include <iostream>
#include <memory>

#include <ticpp.h>

// The XML node of an element that was made by name belongs to the tree once it is linked.
static void add_disk(ticpp::Node& parent, const std::string& device, int hours) {
  ticpp::Element disk("disk");
  disk.SetAttribute("device", device);
  ticpp::Element age("hours");
  age.SetText(hours);
  parent.LinkEndChild(&disk);
  disk.LinkEndChild(&age);
}

int main() {
  ticpp::Document document;
  ticpp::Declaration declaration("1.0", "UTF-8", "");
  document.LinkEndChild(&declaration);
  ticpp::Element root("disks");
  document.LinkEndChild(&root);
  add_disk(root, "sda", 12000);
  add_disk(root, "sdb", 300);
  document.SaveFile("disks.xml");

  ticpp::Document loaded;
  loaded.LoadFile("disks.xml");
  const ticpp::Element* disk = loaded.FirstChildElement("disks")->FirstChildElement("disk");
  for (; disk != nullptr; disk = disk->NextSiblingElement("disk", false)) {
    int hours = 0;
    disk->FirstChildElement("hours")->GetText(&hours);
    std::cout << disk->Value() << ": " << hours << " hours\n";
  }

  try {
    loaded.FirstChildElement("disks")->FirstChildElement("tapes");
  } catch (const ticpp::Exception& e) {
    std::cout << e.what() << "\n";
  }
}
