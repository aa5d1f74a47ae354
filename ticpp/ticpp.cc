// SPDX-License-Identifier: MIT
#include "ticpp/ticpp.h"

#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <utility>

#include <tinyxml.h>

namespace ticpp {

// What belongs to a tree beside its nodes.
class Tree {
 public:
  // One for each node that was looked up; the node's user data points to it.
  Element* element(TiXmlElement* node) {
    if (node->GetUserData() == nullptr) {
      if (elements_ == nullptr) elements_ = std::make_unique<std::deque<Kept>>();
      node->SetUserData(&elements_->emplace_back(node, this));
    }
    return static_cast<Kept*>(node->GetUserData());
  }

  // The text that the tree was read from, as the parser had it; empty once the tree was changed.
  std::string text;

  // The same tree with its rows counted, from when they are first asked for.
  std::unique_ptr<TiXmlDocument> counted;

 private:
  struct Kept : Element {
    Kept(TiXmlElement* node, Tree* tree) : Element(node, tree) {}
  };

  std::unique_ptr<std::deque<Kept>> elements_;  // made late: most elements built are never searched
};

namespace {

constexpr int kMaxDepth = 1024;
constexpr int kMaxAttributes = 256;
constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";

constexpr char kTooDeep[] = "elements nested deeper than 1024";
constexpr char kTooManyAttributes[] = "more than 256 attributes on an element";
constexpr char kBadDeclaration[] = "Error parsing Declaration.";

// The nodes that are made here carry the elements looked up below them.
struct Root : TiXmlDocument {
  Tree tree;
};

struct Built : TiXmlElement {
  explicit Built(const std::string& name) : TiXmlElement(name) {}

  Tree tree;
};

std::string row_and_column(int row, int column) {
  return "row " + std::to_string(row) + ", column " + std::to_string(column);
}

// The node of `tree` at the place that `node` has in a tree of the same shape.
const TiXmlNode* same_place(const TiXmlNode* node, const TiXmlDocument& tree) {
  if (node->Parent() == nullptr) return &tree;
  const TiXmlNode* found = same_place(node->Parent(), tree)->FirstChild();
  for (const TiXmlNode* before = node->PreviousSibling(); before != nullptr;
       before = before->PreviousSibling()) {
    found = found->NextSibling();
  }
  return found;
}

// What knows the row of `node`; null for what was not read from a file. Rows are not counted while
// reading, which would take a fifth of its time, but here once more.
const TiXmlNode* counted(const TiXmlNode& node, Tree* tree) {
  if (tree == nullptr || tree->text.empty()) return nullptr;
  if (tree->counted == nullptr) {
    tree->counted = std::make_unique<TiXmlDocument>();
    tree->counted->Parse(tree->text.c_str());
  }
  return same_place(&node, *tree->counted);
}

// " (/plist/dict, row 3, column 5)".
std::string place(const TiXmlNode& node, Tree* tree) {
  std::string path;
  for (const TiXmlNode* up = &node; up != nullptr && up->ToElement() != nullptr;
       up = up->Parent()) {
    path.insert(0, "/" + up->ValueStr());
  }
  if (path.empty()) return path;
  if (const TiXmlNode* const same = counted(node, tree)) {
    path += ", " + row_and_column(same->Row(), same->Column());
  }
  return " (" + path + ")";
}

bool holds(const TiXmlNode& outer, const TiXmlNode& inner) {
  if (outer.NoChildren()) return &outer == &inner;  // spares the walk while a tree is built
  const TiXmlNode* up = &inner;
  while (up != nullptr && up != &outer) up = up->Parent();
  return up != nullptr;
}

struct CloseFile {
  void operator()(FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

// ---- what the parser would see ----

// Beyond ASCII the parser asks the locale for blanks, and takes every byte for a letter.
bool is_blank(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return c == ' ' || (c >= '\t' && c <= '\r') || (byte > 127 && isspace(byte) != 0);
}

bool starts_name(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 127 || (byte | 32U) - 'a' < 26 || c == '_';
}

bool continues_name(char c) {
  return starts_name(c) || (c >= '0' && c <= '9') || c == '-' || c == '.' || c == ':';
}

size_t character_size(char lead) {
  return static_cast<size_t>(TiXmlBase::utf8ByteTable[static_cast<unsigned char>(lead)]);
}

// A declaration without an encoding means UTF-8.
bool is_utf8(const std::string& encoding) {
  return encoding.empty() || strncasecmp(encoding.c_str(), "UTF-8", 5) == 0 ||
         strncasecmp(encoding.c_str(), "UTF8", 4) == 0;
}

// Walks over a document as the parser does, without recursion, and reports what it must not be
// given. Where the parser gives up the walk ends too: the error is the parser's to tell. Positions
// are null from there on.
class Scan {
 public:
  // `text` ends with kPadding NUL bytes: a character cut short at the end makes the parser step
  // over the first of them.
  static constexpr size_t kPadding = 8;

  explicit Scan(const char* text)
      : utf8_(strncmp(text, kByteOrderMark, 3) == 0), encoding_known_(utf8_) {
    const char* at = text;
    while (at != nullptr) at = node(skip_blanks(at));
  }

  const char* fault() const { return fault_; }  // what the parser must not be given, or null
  const char* fault_at() const { return fault_at_; }

 private:
  const char* fail(const char* fault, const char* at) {
    fault_ = fault;
    fault_at_ = at;
    return nullptr;
  }

  const char* skip_blanks(const char* at) const {
    for (;;) {
      if (isspace(static_cast<unsigned char>(*at)) != 0) {
        ++at;
      } else if (utf8_ &&
                 (strncmp(at, kByteOrderMark, 3) == 0 || strncmp(at, "\xEF\xBF\xBE", 3) == 0 ||
                  strncmp(at, "\xEF\xBF\xBF", 3) == 0)) {
        at += 3;
      } else {
        return at;
      }
    }
  }

  static const char* after(const char* at, const char* end) {
    const char* const found = strstr(at, end);
    return found == nullptr ? nullptr : found + strlen(end);
  }

  // One tag, text, comment, section or declaration.
  const char* node(const char* at) {
    if (*at == '\0') return nullptr;
    if (*at != '<') return depth_ == 0 ? nullptr : characters(at, '<');
    if (depth_ > 0 && at[1] == '/') {
      --depth_;
      at = strchr(at, '>');
      return at == nullptr ? nullptr : at + 1;
    }
    if (starts_name(at[1])) return tag(at);
    if (strncasecmp(at, "<?xml", 5) == 0) return declaration(at);
    if (strncmp(at, "<!--", 4) == 0) return after(at + 4, "-->");
    if (strncmp(at, "<![CDATA[", 9) == 0) return after(at + 9, "]]>");
    return after(at, ">");
  }

  const char* tag(const char* start) {
    if (depth_ == kMaxDepth) return fail(kTooDeep, start);
    const char* at = name(start + 1);
    for (int attributes = 0; at != nullptr; ++attributes) {
      at = skip_blanks(at);
      if (*at == '/') return at[1] == '>' ? at + 2 : nullptr;
      if (*at == '>') {
        ++depth_;
        return at + 1;
      }
      if (attributes == kMaxAttributes) return fail(kTooManyAttributes, start);
      at = attribute(at, nullptr);
    }
    return nullptr;
  }

  // The parser drops all that follows a declaration it cannot read, and calls that well.
  const char* declaration(const char* start) {
    std::string encoding;
    const char* at = start + 5;
    while (at != nullptr && *at != '\0' && *at != '>') {
      at = skip_blanks(at);
      if (strncasecmp(at, "version", 7) == 0 || strncasecmp(at, "standalone", 10) == 0) {
        at = attribute(at, nullptr);
      } else if (strncasecmp(at, "encoding", 8) == 0) {
        at = attribute(at, &encoding);
      } else {
        while (*at != '\0' && *at != '>' && !is_blank(*at)) ++at;
      }
    }
    if (depth_ == 0 && !encoding_known_) {
      utf8_ = is_utf8(encoding);
      encoding_known_ = true;
    }
    return at == nullptr || *at == '\0' ? fail(kBadDeclaration, start) : at + 1;
  }

  static const char* name(const char* at) {
    if (!starts_name(*at)) return nullptr;
    while (continues_name(*at)) ++at;
    return at;
  }

  // Keeps the value's bytes as written where `value` is not null.
  const char* attribute(const char* at, std::string* value) const {
    at = name(at);
    if (at == nullptr) return nullptr;
    at = skip_blanks(at);
    if (*at != '=') return nullptr;
    at = skip_blanks(at + 1);
    const char quote = *at == '"' || *at == '\'' ? *at : '\0';
    const char* const start = quote == '\0' ? at : at + 1;
    const char* const end = quote == '\0' ? unquoted(start) : characters(start, quote);
    if (end != nullptr && value != nullptr) value->assign(start, end);
    if (end == nullptr || *end == '\0') return nullptr;
    return quote == '\0' ? end : end + 1;
  }

  static const char* unquoted(const char* at) {
    while (*at != '\0' && !is_blank(*at) && *at != '/' && *at != '>') {
      if (*at == '"' || *at == '\'') return nullptr;
      ++at;
    }
    return at;
  }

  // To `end`. A character cut short takes the bytes behind it, markup or not.
  const char* characters(const char* at, char end) const {
    while (at != nullptr && *at != '\0' && *at != end) {
      if (*at == '&' && at[1] == '#' && at[2] != '\0') {
        at = reference(at);
      } else {
        at += utf8_ ? character_size(*at) : 1;
      }
    }
    return at;
  }

  // The parser looks for the semicolon first, however far, and then reads the digits backwards to
  // the "x" or "#" that is nearest to it.
  static const char* reference(const char* at) {
    const bool hexadecimal = at[2] == 'x';
    const char* const digits = at + (hexadecimal ? 3 : 2);
    const char* const end = strchr(digits, ';');
    if (end == nullptr) return nullptr;
    const char* digit = end - 1;
    while (*digit != (hexadecimal ? 'x' : '#')) {
      const auto byte = static_cast<unsigned char>(*digit);
      if ((hexadecimal ? isxdigit(byte) : isdigit(byte)) == 0) return nullptr;
      --digit;
    }
    return end + 1;
  }

  bool utf8_;
  bool encoding_known_;
  int depth_ = 0;
  const char* fault_ = nullptr;
  const char* fault_at_ = nullptr;
};

// ---- reading ----

// All of the file with newlines as the parser's own loader makes them, and the padding behind.
std::string read_all(FILE* file) {
  struct stat status = {};
  fstat(fileno(file), &status);
  const auto expected = static_cast<size_t>(std::min<off_t>(status.st_size, 1 << 24));
  std::string text(expected + Scan::kPadding, '\0');
  size_t size = 0;
  for (size_t got = 1; got > 0; size += got) {
    if (size == text.size()) text.resize(2 * size);
    got = fread(&text[size], 1, text.size() - size, file);
    if (memchr(&text[size], '\0', got) != nullptr) throw Exception("a NUL byte in the text");
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
  text.append(Scan::kPadding, '\0');
  return text;
}

std::string place_in_text(const char* text, const char* at) {
  const char* line = at;
  while (line > text && line[-1] != '\n') --line;
  const auto row = std::count(text, at, '\n') + 1;
  return " (" + row_and_column(static_cast<int>(row), static_cast<int>(at - line) + 1) + ")";
}

void parse(const std::string& text, TiXmlDocument& to) {
  const Scan scan(text.c_str());
  if (scan.fault() != nullptr) {
    throw Exception(scan.fault() + place_in_text(text.c_str(), scan.fault_at()));
  }
  to.SetTabSize(0);  // does not count rows
  to.Parse(text.c_str());
  if (!to.Error()) return;
  TiXmlDocument again;
  again.Parse(text.c_str());
  std::string reason = again.ErrorDesc();
  if (again.ErrorRow() > 0) {
    reason += " (" + row_and_column(again.ErrorRow(), again.ErrorCol()) + ")";
  }
  throw Exception(reason);
}

// ---- writing ----

// Writes the bytes that TinyXML writes, some times as fast, and refuses what could not be read
// back.
class Printer {
 public:
  explicit Printer(bool byte_order_mark)
      : utf8_(byte_order_mark), encoding_known_(byte_order_mark) {
    if (byte_order_mark) text_ = kByteOrderMark;
  }

  std::string print(const TiXmlDocument& document) {
    for (const TiXmlNode* node = document.FirstChild(); node != nullptr;
         node = node->NextSibling()) {
      print(*node, 0);
      text_ += '\n';
    }
    return std::move(text_);
  }

 private:
  void print(const TiXmlNode& node, int depth) {
    switch (node.Type()) {
      case TiXmlNode::TINYXML_ELEMENT: element(*node.ToElement(), depth); break;
      case TiXmlNode::TINYXML_TEXT: text(*node.ToText(), depth); break;
      case TiXmlNode::TINYXML_DECLARATION: declaration(*node.ToDeclaration()); break;
      case TiXmlNode::TINYXML_COMMENT: indented(depth, "<!--", node.ValueStr(), "-->"); break;
      default: indented(depth, "<", node.ValueStr(), ">");
    }
  }

  void element(const TiXmlElement& node, int depth) {
    if (depth == kMaxDepth) throw Exception(kTooDeep);
    const std::string& name = checked_name(node.ValueStr());
    indent(depth);
    text_.append(1, '<').append(name);
    attributes(node);
    const TiXmlNode* const first = node.FirstChild();
    if (first == nullptr) {
      text_ += " />";
      return;
    }
    text_ += '>';
    const bool only_text = first == node.LastChild() && first->ToText() != nullptr;
    if (only_text) {
      print(*first, depth + 1);
    } else {
      children(*first, depth);
    }
    text_.append("</").append(name).append(1, '>');
  }

  void children(const TiXmlNode& first, int depth) {
    for (const TiXmlNode* child = &first; child != nullptr; child = child->NextSibling()) {
      if (child->ToText() == nullptr) text_ += '\n';
      print(*child, depth + 1);
    }
    text_ += '\n';
    indent(depth);
  }

  void attributes(const TiXmlElement& node) {
    int count = 0;
    for (const TiXmlAttribute* one = node.FirstAttribute(); one != nullptr; one = one->Next()) {
      if (++count > kMaxAttributes) throw Exception(kTooManyAttributes);
      const char quote = one->ValueStr().find('"') == std::string::npos ? '"' : '\'';
      text_.append(1, ' ').append(checked_name(one->NameTStr())).append(1, '=').append(1, quote);
      encode(one->ValueStr());
      text_ += quote;
    }
  }

  void text(const TiXmlText& node, int depth) {
    if (!node.CDATA()) return encode(node.ValueStr());
    text_ += '\n';
    indented(depth, "<![CDATA[", node.ValueStr(), "]]>\n");
  }

  void declaration(const TiXmlDeclaration& node) {
    text_ += "<?xml ";
    quoted("version", node.Version());
    quoted("encoding", node.Encoding());
    quoted("standalone", node.Standalone());
    text_ += "?>";
    if (!encoding_known_) utf8_ = is_utf8(node.Encoding());
    encoding_known_ = true;
  }

  void quoted(const char* name, const char* value) {
    if (*value != '\0') text_.append(name).append("=\"").append(value).append("\" ");
  }

  void indented(int depth, const char* before, const std::string& value, const char* behind) {
    indent(depth);
    text_.append(before).append(value).append(behind);
  }

  void indent(int depth) { text_.append(4 * static_cast<size_t>(depth), ' '); }

  static const std::string& checked_name(const std::string& name) {
    if (name.empty() || !starts_name(name[0]) ||
        !std::all_of(name.begin(), name.end(), continues_name)) {
      throw Exception("'" + name + "' is no name");
    }
    return name;
  }

  void encode(const std::string& value) {
    const size_t start = text_.size();
    const char* const end = value.data() + value.size();
    for (const char* at = value.data(); at != end; ++at) {
      const char* const plain = at;
      while (at != end && !is_escaped(*at)) ++at;
      text_.append(plain, at);
      if (at == end) break;
      escape(*at);
    }
    if (utf8_ && ends_inside_character(start)) throw Exception("a text ends inside a character");
  }

  static bool is_escaped(char c) {
    return static_cast<unsigned char>(c) < 32 || c == '&' || c == '<' || c == '>' || c == '"' ||
           c == '\'';
  }

  void escape(char c) {
    switch (c) {
      case '&': text_ += "&amp;"; break;
      case '<': text_ += "&lt;"; break;
      case '>': text_ += "&gt;"; break;
      case '"': text_ += "&quot;"; break;
      case '\'': text_ += "&apos;"; break;
      default: {
        const auto byte = static_cast<unsigned char>(c);
        text_.append("&#x").append(1, "01"[byte / 16]).append(1, "0123456789ABCDEF"[byte % 16]);
        text_ += ';';
      }
    }
  }

  // The parser would take the markup behind the text for the rest of the character.
  bool ends_inside_character(size_t start) const {
    size_t at = std::max(start, std::max<size_t>(text_.size(), 3) - 3);
    while (at < text_.size() && character_size(text_[at]) == 1) ++at;
    if (at == text_.size()) return false;
    for (at = start; at < text_.size();) at += character_size(text_[at]);
    return at > text_.size();
  }

  std::string text_;
  bool utf8_;
  bool encoding_known_;
};

void write_all(const std::string& file, const std::string& text) {
  File stream(fopen(file.c_str(), "w"));
  const bool written = stream != nullptr &&
                       fwrite(text.data(), 1, text.size(), stream.get()) == text.size() &&
                       fflush(stream.get()) == 0;
  if (written && fclose(stream.release()) == 0) return;
  const int error = errno;
  const std::string reason = strerror(error);
  stream.reset();
  errno = error;
  throw Exception(reason);
}

}  // namespace

// ---- Exception ----

Exception::Exception(const std::string& details) : details_(details) {}

Exception::~Exception() = default;

const char* Exception::what() const noexcept { return details_.c_str(); }

// ---- Node ----

Node::Node(TiXmlNode* node, Tree* tree, bool owner) : node_(node), tree_(tree), owner_(owner) {}

Node::~Node() {
  if (owner_) delete node_;
}

std::string Node::Value() const { return node_->ValueStr(); }

bool Node::NoChildren() const { return node_->NoChildren(); }

int Node::Row() const {
  const TiXmlNode* const same = counted(*node_, tree_);
  return same == nullptr ? 0 : same->Row();
}

int Node::Column() const {
  const TiXmlNode* const same = counted(*node_, tree_);
  return same == nullptr ? 0 : same->Column();
}

Element* Node::FirstChildElement(bool throwIfNoChildren) const {
  TiXmlElement* const found = node_->FirstChildElement();
  if (found != nullptr) return tree_->element(found);
  if (!throwIfNoChildren) return nullptr;
  throw Exception("Element (" + Value() + ") does NOT contain any children" + place(*node_, tree_));
}

Element* Node::FirstChildElement(const char* name, bool throwIfNoChildren) const {
  TiXmlElement* const found = node_->FirstChildElement(name);
  if (found != nullptr) return tree_->element(found);
  if (!throwIfNoChildren) return nullptr;
  throw Exception("Element (" + Value() + ") does NOT contain a child with the value of '" + name +
                  "'" + place(*node_, tree_));
}

Element* Node::FirstChildElement(const std::string& name, bool throwIfNoChildren) const {
  return FirstChildElement(name.c_str(), throwIfNoChildren);
}

Element* Node::NextSiblingElement(bool throwIfNoSiblings) const {
  TiXmlElement* const found = node_->NextSiblingElement();
  if (found != nullptr) return tree_->element(found);
  if (!throwIfNoSiblings) return nullptr;
  throw Exception("No Element Siblings found, After this Node (" + Value() + ")" +
                  place(*node_, tree_));
}

Element* Node::NextSiblingElement(const char* name, bool throwIfNoSiblings) const {
  TiXmlElement* const found = node_->NextSiblingElement(name);
  if (found != nullptr) return tree_->element(found);
  if (!throwIfNoSiblings) return nullptr;
  throw Exception(std::string("No Element Siblings found with value, '") + name +
                  "', After this Node (" + Value() + ")" + place(*node_, tree_));
}

Element* Node::NextSiblingElement(const std::string& name, bool throwIfNoSiblings) const {
  return NextSiblingElement(name.c_str(), throwIfNoSiblings);
}

Node* Node::LinkEndChild(Node* child) {
  if (child == nullptr) throw Exception("A null pointer can not be linked");
  if (child->node_->ToDocument() != nullptr) throw Exception("A document can not be linked");
  if (!child->owner_) throw Exception("Node (" + child->Value() + ") is linked already");
  if (tree_ == nullptr) throw Exception("A declaration has no children");
  if (holds(*child->node_, *node_)) throw Exception("Node (" + Value() + ") can not hold itself");
  tree_->text.clear();
  node_->LinkEndChild(child->node_);
  child->owner_ = false;
  child->tree_ = tree_;
  return child;
}

// ---- Element ----

Element::Element(const std::string& name) : Node(new Built(name), nullptr, true) {
  tree_ = &static_cast<Built*>(node_)->tree;
}

Element::Element(TiXmlElement* node, Tree* tree) : Node(node, tree, false) {}

std::string Element::GetText(bool throwIfNotFound) const {
  const std::string* const text = find_text(throwIfNotFound);
  return text == nullptr ? std::string() : *text;
}

std::string Element::GetTextOrDefault(const std::string& text) const {
  const std::string* const found = find_text(false);
  return found == nullptr ? text : *found;
}

const std::string* Element::find_text(bool throwIfNotFound) const {
  const TiXmlNode* const first = node_->FirstChild();
  if (first != nullptr && first->Type() == TiXmlNode::TINYXML_TEXT) return &first->ValueStr();
  if (!throwIfNotFound) return nullptr;
  throw Exception("Text does not exists in the current element" + place(*node_, tree_));
}

void Element::set_text(const std::string& text) {
  tree_->text.clear();
  TiXmlNode* const first = node_->FirstChild();
  if (first == nullptr) {
    node_->LinkEndChild(new TiXmlText(text));
  } else if (first->ToText() == nullptr) {
    node_->InsertBeforeChild(first, TiXmlText(text));
  } else {
    first->SetValue(text);
    first->ToText()->SetCDATA(false);
  }
}

void Element::set_attribute(const std::string& name, const std::string& value) {
  node_->ToElement()->SetAttribute(name, value);
}

void Element::not_converted(const std::string& text) const {
  throw Exception("Could not convert \"" + text + "\" to target type" + place(*node_, tree_));
}

std::string Element::text_of(int value) { return std::to_string(value); }

std::string Element::text_of(double value) {
  char text[32];
  const auto result =
      std::to_chars(text, text + sizeof(text), value, std::chars_format::general, 6);
  return {text, result.ptr};
}

bool Element::convert(const std::string& text, std::string* value) {
  *value = text;
  return true;
}

// A number and nothing else needs no stream.
bool Element::convert(const std::string& text, int* value) {
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, *value);
  if (result.ec == std::errc() && result.ptr == end) return true;
  return convert<int>(text, value);
}

bool Element::convert(const std::string& text, double* value) {
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, *value);
  if (result.ec == std::errc() && result.ptr == end && std::isfinite(*value)) return true;
  return convert<double>(text, value);
}

// ---- Declaration ----

Declaration::Declaration(const std::string& version, const std::string& encoding,
                         const std::string& standalone)
    : Node(new TiXmlDeclaration(version, encoding, standalone), nullptr, true) {}

// ---- Document ----

Document::Document() : Node(new Root, nullptr, true) { tree_ = &static_cast<Root*>(node_)->tree; }

void Document::LoadFile(const std::string& file) {
  node_->Clear();
  *tree_ = Tree();
  node_->SetValue(file);
  byte_order_mark_ = false;
  try {
    const File stream(fopen(file.c_str(), "rb"));
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
    write_all(file, Printer(byte_order_mark_).print(*node_->ToDocument()));
  } catch (const Exception& reason) {
    const int error = errno;
    const std::string text = "Couldn't save " + file + ": " + reason.what();
    errno = error;
    throw Exception(text);
  }
}

}  // namespace ticpp
