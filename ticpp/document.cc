// SPDX-License-Identifier: MIT
// Documents: reading and writing files.
#include "ticpp/scan.h"
#include "ticpp/syntax.h"
#include "ticpp/ticpp.h"
#include "ticpp/tree.h"
#include "util/internal/owners.h"

#include <stdio_ext.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace ticpp {
namespace {

// The file up to its first NUL byte, with newlines as the parser's own loader makes them, followed
// by the padding.
std::string read_all(FILE* file) {
  struct stat status = {};
  fstat(fileno(file), &status);
  const auto expected = static_cast<size_t>(std::min<off_t>(status.st_size, 1 << 24));
  std::string text(expected + kPadding, '\0');
  size_t size = 0;
  for (bool more = true; more;) {
    if (size == text.size()) text.resize(2 * size);
    const size_t got = fread(&text[size], 1, text.size() - size, file);
    const size_t used = strnlen(&text[size], got);  // the text ends where it does for the parser
    size += used;
    more = got > 0 && used == got;
  }
  if (ferror(file) != 0) throw Exception(strerror(errno));
  text.resize(size);
  size_t to = std::min(text.find('\r'), size);
  for (size_t from = to; from < size; ++from) {
    const bool carriage_return = text[from] == '\r';
    if (carriage_return && text[from + 1] == '\n') ++from;
    text[to++] = carriage_return ? '\n' : text[from];
  }
  text.resize(to);
  text.append(kPadding, '\0');
  return text;
}

void parse(const std::string& text, TiXmlDocument& to) {
  const std::string dense = scan(text);
  to.SetTabSize(0);  // does not count rows
  to.Parse(dense.c_str());
  if (!to.Error()) return;
  TiXmlDocument again;
  again.Parse(text.c_str());
  std::string reason = again.ErrorDesc();
  if (again.ErrorRow() > 0) {
    reason += " (" + row_and_column(again.ErrorRow(), again.ErrorCol()) + ")";
  }
  throw Exception(reason);
}

// Throws if the document could not be read back.
class Check {
 public:
  explicit Check(bool byte_order_mark) : utf8_(byte_order_mark), encoding_known_(byte_order_mark) {}

  void document(const TiXmlNode& document) {
    for (const TiXmlNode* node = document.FirstChild(); node != nullptr;
         node = node->NextSibling()) {
      check(*node, 0);
      const TiXmlDeclaration* const declared = node->ToDeclaration();
      if (declared == nullptr || encoding_known_) continue;
      utf8_ = is_utf8(declared->Encoding());
      encoding_known_ = true;
    }
  }

 private:
  void check(const TiXmlNode& node, int depth) const {
    switch (node.Type()) {
      case TiXmlNode::TINYXML_ELEMENT: return element(*node.ToElement(), depth);
      case TiXmlNode::TINYXML_TEXT:
        if (!node.ToText()->CDATA()) text(node.ValueStr());
        return;
      case TiXmlNode::TINYXML_DECLARATION: return declaration(*node.ToDeclaration());
      default: return;
    }
  }

  void element(const TiXmlElement& node, int depth) const {
    if (depth == kMaxDepth) throw Exception(too_deep());
    name(node.ValueStr());
    int attributes = 0;
    for (const TiXmlAttribute* one = node.FirstAttribute(); one != nullptr; one = one->Next()) {
      if (++attributes > kMaxAttributes) throw Exception(too_many_attributes());
      name(one->NameTStr());
      text(one->ValueStr());
    }
    for (const TiXmlNode* child = node.FirstChild(); child != nullptr;
         child = child->NextSibling()) {
      check(*child, depth + 1);
    }
  }

  // The parser's printer writes the values of a declaration as they are.
  void declaration(const TiXmlDeclaration& node) const {
    for (const std::string value : {node.Version(), node.Encoding(), node.Standalone()}) {
      if (value.find_first_of("&\"") != value.npos || (utf8_ && ends_inside_character(value))) {
        throw Exception("a declaration would not be read back");
      }
    }
  }

  static void name(const std::string& name) {
    bool valid = !name.empty() && starts_name(name[0]);
    for (const char c : name) valid = valid && continues_name(c);
    if (!valid) throw Exception("'" + name + "' is not a name");
  }

  // The parser would take the markup after the text for the rest of the character.
  void text(const std::string& value) const {
    if (!utf8_ || is_whole_at_end(value)) return;
    std::string encoded;
    TiXmlBase::EncodeString(value, &encoded);
    if (ends_inside_character(encoded)) throw Exception("a text ends inside a character");
  }

  static bool is_whole_at_end(const std::string& text) {
    const auto last = text.end() - static_cast<std::ptrdiff_t>(std::min<size_t>(text.size(), 3));
    return std::all_of(last, text.end(), [](char c) { return character_size(c) == 1; });
  }

  static bool ends_inside_character(const std::string& text) {
    size_t at = 0;
    while (at < text.size()) at += character_size(text[at]);
    return at > text.size();
  }

  bool utf8_;
  bool encoding_known_;
};

// Throws if a call fails; errno is then that of the call.
void print(const std::string& file, const TiXmlNode& document, bool byte_order_mark) {
  errno = 0;
  util::File stream(fopen(file.c_str(), "w"));
  if (stream != nullptr) {
    __fsetlocking(stream.get(), FSETLOCKING_BYCALLER);  // nobody else has it
    if (byte_order_mark) fputs(kByteOrderMark, stream.get());
    document.Print(stream.get(), 0);
    const bool written = fflush(stream.get()) == 0 && ferror(stream.get()) == 0;
    if (written && fclose(stream.release()) == 0) return;
  }
  const int error = errno != 0 ? errno : EIO;
  stream.reset();
  errno = error;
  throw Exception(strerror(error));
}

}  // namespace

Document::Document() : Node(new Root, nullptr, true) { tree_ = &static_cast<Root*>(node_)->tree; }

void Document::LoadFile(const std::string& file) {
  node_->Clear();
  tree_->clear();
  node_->SetValue(file);
  byte_order_mark_ = false;
  try {
    const util::File stream(fopen(file.c_str(), "rb"));
    if (stream == nullptr) throw Exception(strerror(errno));
    std::string text = read_all(stream.get());
    parse(text, *node_->ToDocument());
    byte_order_mark_ = text.compare(0, 3, kByteOrderMark) == 0;
    tree_->text = std::move(text);
  } catch (const Exception& reason) {
    node_->Clear();
    throw Exception("Couldn't load " + file + ": " + reason.what());
  }
}

void Document::SaveFile(const std::string& file) const {
  try {
    Check(byte_order_mark_).document(*node_);
    print(file, *node_, byte_order_mark_);
  } catch (const Exception& reason) {
    const int error = errno;
    const std::string text = "Couldn't save " + file + ": " + reason.what();
    errno = error;
    throw Exception(text);
  }
}

}  // namespace ticpp
