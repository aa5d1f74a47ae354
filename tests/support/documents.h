// SPDX-License-Identifier: MIT
// XML documents made and failing.
#pragma once

#include "tests/support/files.h"
#include "ticpp/ticpp.h"

#include <unistd.h>

#include <string>

namespace support {

constexpr char kNoText[] = "Text does not exists in the current element";

// What `action` throws, or "nothing".
template <class Action>
std::string thrown(Action action) {
  try {
    action();
  } catch (const ticpp::Exception& e) {
    return e.what();
  }
  return "nothing";
}

// A document loaded from a text.
class Loaded {
 public:
  explicit Loaded(const std::string& text) {
    dir_.write("x.xml", text);
    document.LoadFile(file());
  }

  std::string file() const { return dir_.file("x.xml"); }
  ticpp::Element& root() const { return *document.FirstChildElement(); }

  std::string saved() const {
    document.SaveFile(dir_.file("saved"));
    return dir_.read("saved");
  }

 private:
  TempDir dir_;

 public:
  ticpp::Document document;
};

inline std::string load_error(const std::string& text) {
  static const TempDir dir;           // one for all: some tests load thousands of texts
  unlink(dir.file("x.xml").c_str());  // disks are slow to empty a file and fill it again
  dir.write("x.xml", text);
  ticpp::Document document;
  std::string what = thrown([&] { document.LoadFile(dir.file("x.xml")); });
  const std::string start = "Couldn't load " + dir.file("x.xml");
  if (what.compare(0, start.size(), start) == 0) what.replace(0, start.size(), "Couldn't load");
  return what;
}

inline std::string nested(int depth, const std::string& innermost = "") {
  std::string text;
  for (int i = 0; i < depth; ++i) text += "<a>";
  text += innermost;
  for (int i = 0; i < depth; ++i) text += "</a>";
  return text;
}

inline std::string attributes(int count) {
  std::string text = "<a";
  for (int i = 0; i < count; ++i) text += " b" + std::to_string(i) + "='='";
  return text + "/>";
}

}  // namespace support
