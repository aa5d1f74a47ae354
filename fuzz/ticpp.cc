// SPDX-License-Identifier: MIT
// An input is the document.
#include "ticpp.h"

#include "fuzz/documents.h"
#include "fuzz/fuzz.h"
#include "tests/support/files.h"

#include <cstdio>
#include <memory>

namespace {

const support::TempDir& folder() {
  static const support::TempDir dir;
  return dir;
}

// ---- walking ----

template <class Element>
std::string spelled(const Element& e, int row, int column, const std::string* text) {
  return "<" + std::string(e.Value()) + "> " + std::to_string(row) + ":" + std::to_string(column) +
         (text == nullptr ? "" : " \"" + *text + "\"") + (e.NoChildren() ? " empty\n" : "\n");
}

std::string walked(const ticpp::Node& parent, const std::string& indent) {
  std::string lines;
  for (const ticpp::Element* e = parent.FirstChildElement(false); e != nullptr;
       e = e->NextSiblingElement(false)) {
    const std::string text = e->GetText(false);
    bool has_text = true;
    try {
      fuzz::require_equal(text, e->GetText(true), "a text");
    } catch (const ticpp::Exception&) {
      has_text = false;
    }
    fuzz::require_equal(has_text ? text : "none", e->GetTextOrDefault("none"), "a text or none");
    lines += indent + spelled(*e, e->Row(), e->Column(), has_text ? &text : nullptr) +
             walked(*e, indent + " ");
  }
  return lines;
}

std::string walked_bare(const TiXmlNode& parent, const std::string& indent) {
  std::string lines;
  for (const TiXmlElement* e = parent.FirstChildElement(); e != nullptr;
       e = e->NextSiblingElement()) {
    lines += indent + spelled(*e, e->Row(), e->Column(), fuzz::text_of(*e)) +
             walked_bare(*e, indent + " ");
  }
  return lines;
}

// ---- printing ----

std::string printed_bare(const TiXmlDocument& document) {
  struct Close {
    void operator()(FILE* file) const { fclose(file); }
  };
  const std::string path = folder().file("bare");
  const std::unique_ptr<FILE, Close> file(fopen(path.c_str(), "w"));
  fuzz::require(document.SaveFile(file.get()) && fflush(file.get()) == 0, "the parser can print");
  return support::read_file(path);
}

const char kRefused[] = "refused";

bool is_loaded(ticpp::Document& document, const std::string& name) try {
  document.LoadFile(folder().file(name));
  return true;
} catch (const ticpp::Exception& e) {
  const std::string start = "Couldn't load " + folder().file(name) + ": ";
  const std::string what = e.what();
  fuzz::require(what.compare(0, start.size(), start) == 0, "a refusal says of what");
  fuzz::require(document.NoChildren(), "a document that was refused is empty");
  return false;
}

std::string printed(const ticpp::Document& document) try {
  document.SaveFile(folder().file("printed"));
  return folder().read("printed");
} catch (const ticpp::Exception&) {
  return kRefused;
}

// What was printed is a document again, which can be printed.
void check_printed() {
  ticpp::Document again;
  fuzz::require(is_loaded(again, "printed"), "what was printed loads");
  fuzz::require(printed(again) != kRefused, "what was printed and loaded is printed");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  folder().write("document", text);
  ticpp::Document document;
  const bool loaded = is_loaded(document, "document");
  const std::string elements = walked(document, "");
  const std::string print = printed(document);
  if (loaded && print != kRefused) check_printed();
  if (!fuzz::is_harmless(text) || (!loaded && fuzz::has_declaration(text))) return 0;
  TiXmlDocument bare;
  bool parsed = true;
  try {
    fuzz::parse(text, bare);
  } catch (const fuzz::Refused&) {
    parsed = false;
  }
  fuzz::require(parsed == loaded, "the parser decides what is a document");
  if (!parsed) return 0;
  fuzz::require_equal(walked_bare(bare, ""), elements, "the elements");
  if (print != kRefused) fuzz::require_equal(printed_bare(bare), print, "printing");
  return 0;
}
