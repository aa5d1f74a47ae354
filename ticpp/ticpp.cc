// SPDX-License-Identifier: MIT
#include "ticpp/ticpp.h"

#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <string_view>
#include <utility>

#include <tinyxml.h>

namespace ticpp {

// What belongs to a tree beside its nodes.
class Tree {
 public:
  // One for each node that was looked up; the node's user data points to it.
  Element* element(TiXmlElement* node) {
    if (node->GetUserData() == nullptr) {
      node->SetUserData(&elements_.emplace_back(node, this));
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

  std::deque<Kept> elements_;
};

namespace {

constexpr size_t kMaxDepth = 1024;
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

  std::unique_ptr<Tree> tree;  // made late: most elements built are never searched
};

// Of the document; else of the element built by name that is looked at, or that holds a
// declaration.
Tree& tree_of(TiXmlNode& node, Tree* tree) {
  if (tree != nullptr) return *tree;
  TiXmlNode& built = node.ToElement() == nullptr ? *node.Parent() : node;
  std::unique_ptr<Tree>& own = static_cast<Built&>(built).tree;
  if (own == nullptr) own = std::make_unique<Tree>();
  return *own;
}

std::string row_and_column(int row, int column) {
  char text[64];
  snprintf(text, sizeof(text), "row %d, column %d", row, column);
  return text;
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

[[noreturn]] void fail(const char* text) { throw Exception(text); }

[[noreturn]] void fail_at(const TiXmlNode& node, Tree* tree, const std::string& text) {
  throw Exception(text + place(node, tree));
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

enum : unsigned char { kStartsName = 1, kContinuesName = 2, kEscaped = 4 };

constexpr std::array<unsigned char, 256> character_kinds() {
  std::array<unsigned char, 256> kinds = {};
  for (unsigned c = 0; c < 256; ++c) {
    const bool starts = c >= 127 || (c | 32U) - 'a' < 26 || c == '_';
    const bool continues = starts || c - '0' < 10 || c == '-' || c == '.' || c == ':';
    const bool escaped = c < 32 || c == '&' || c == '<' || c == '>' || c == '"' || c == '\'';
    kinds[c] = static_cast<unsigned char>(
        (starts ? kStartsName : 0) | (continues ? kContinuesName : 0) | (escaped ? kEscaped : 0));
  }
  return kinds;
}

constexpr std::array<unsigned char, 256> kKinds = character_kinds();

bool is(unsigned char kind, char c) { return (kKinds[static_cast<unsigned char>(c)] & kind) != 0; }
bool starts_name(char c) { return is(kStartsName, c); }
bool continues_name(char c) { return is(kContinuesName, c); }

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
  size_t depth_ = 0;
  const char* fault_ = nullptr;
  const char* fault_at_ = nullptr;
};

// ---- reading ----

// The file up to its first NUL byte, with newlines as the parser's own loader makes them, and the
// padding behind.
std::string read_all(FILE* file) {
  struct stat status = {};
  fstat(fileno(file), &status);
  const auto expected = static_cast<size_t>(std::min<off_t>(status.st_size, 1 << 24));
  std::string text(expected + Scan::kPadding, '\0');
  size_t size = 0;
  for (bool more = true; more;) {
    if (size == text.size()) text.resize(2 * size);
    const size_t got = fread(&text[size], 1, text.size() - size, file);
    const size_t used = strnlen(&text[size], got);  // the text ends where it does for the parser
    size += used;
    more = got > 0 && used == got;
  }
  if (ferror(file) != 0) fail(strerror(errno));
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

// A text as it grows, pieces at its end.
class Text {
 public:
  void add(std::string_view piece) {
    memcpy(room(piece.size()), piece.data(), piece.size());
    used_ += piece.size();
  }
  void blanks(size_t count) {
    memset(room(count), ' ', count);
    used_ += count;
  }

  size_t size() const { return used_; }
  char operator[](size_t at) const { return text_[at]; }

  std::string take() {
    text_.resize(used_);
    return std::move(text_);
  }

 private:
  char* room(size_t size) {
    if (size > text_.size() - used_) grow(size);
    return &text_[used_];
  }
  void grow(size_t size) { text_.resize(2 * text_.size() + size); }

  std::string text_;  // longer than what is used of it
  size_t used_ = 0;
};

// Writes the bytes that TinyXML writes, some times as fast, and refuses what could not be read
// back.
class Printer {
 public:
  explicit Printer(bool byte_order_mark)
      : utf8_(byte_order_mark), encoding_known_(byte_order_mark) {
    if (byte_order_mark) text_.add(kByteOrderMark);
  }

  std::string print(const TiXmlDocument& document) {
    for (const TiXmlNode* node = document.FirstChild(); node != nullptr;
         node = node->NextSibling()) {
      print(*node, 0);
      text_.add("\n");
    }
    return text_.take();
  }

 private:
  void print(const TiXmlNode& node, size_t depth) {
    switch (node.Type()) {
      case TiXmlNode::TINYXML_ELEMENT: element(*node.ToElement(), depth); break;
      case TiXmlNode::TINYXML_TEXT: text(*node.ToText(), depth); break;
      case TiXmlNode::TINYXML_DECLARATION: declaration(*node.ToDeclaration()); break;
      case TiXmlNode::TINYXML_COMMENT: indented(depth, "<!--", node.ValueStr(), "-->"); break;
      default: indented(depth, "<", node.ValueStr(), ">");
    }
  }

  void element(const TiXmlElement& node, size_t depth) {
    if (depth == kMaxDepth) fail(kTooDeep);
    const std::string& name = checked_name(node.ValueStr());
    text_.blanks(4 * depth);
    text_.add("<");
    text_.add(name);
    attributes(node);
    const TiXmlNode* const first = node.FirstChild();
    if (first == nullptr) return text_.add(" />");
    text_.add(">");
    const bool only_text = first == node.LastChild() && first->Type() == TiXmlNode::TINYXML_TEXT;
    if (only_text) {
      print(*first, depth + 1);
    } else {
      children(*first, depth);
    }
    text_.add("</");
    text_.add(name);
    text_.add(">");
  }

  void children(const TiXmlNode& first, size_t depth) {
    for (const TiXmlNode* child = &first; child != nullptr; child = child->NextSibling()) {
      if (child->Type() != TiXmlNode::TINYXML_TEXT) text_.add("\n");
      print(*child, depth + 1);
    }
    text_.add("\n");
    text_.blanks(4 * depth);
  }

  void attributes(const TiXmlElement& node) {
    int count = 0;
    for (const TiXmlAttribute* one = node.FirstAttribute(); one != nullptr; one = one->Next()) {
      if (++count > kMaxAttributes) fail(kTooManyAttributes);
      const char* const quote = one->ValueStr().find('"') == std::string::npos ? "\"" : "'";
      text_.add(" ");
      text_.add(checked_name(one->NameTStr()));
      text_.add("=");
      text_.add(quote);
      encode(one->ValueStr());
      text_.add(quote);
    }
  }

  void text(const TiXmlText& node, size_t depth) {
    if (!node.CDATA()) return encode(node.ValueStr());
    text_.add("\n");
    indented(depth, "<![CDATA[", node.ValueStr(), "]]>\n");
  }

  void declaration(const TiXmlDeclaration& node) {
    text_.add("<?xml ");
    quoted("version", node.Version());
    quoted("encoding", node.Encoding());
    quoted("standalone", node.Standalone());
    text_.add("?>");
    if (!encoding_known_) utf8_ = is_utf8(node.Encoding());
    encoding_known_ = true;
  }

  void quoted(std::string_view name, std::string_view value) {
    if (value.empty()) return;
    text_.add(name);
    text_.add("=\"");
    const size_t start = text_.size();
    text_.add(value);
    if (value.find_first_of("&\"") != value.npos || (utf8_ && ends_inside_character(start))) {
      fail("a declaration would not be read back");
    }
    text_.add("\" ");
  }

  void indented(size_t depth, std::string_view before, std::string_view value,
                std::string_view behind) {
    text_.blanks(4 * depth);
    text_.add(before);
    text_.add(value);
    text_.add(behind);
  }

  static const std::string& checked_name(const std::string& name) {
    bool good = !name.empty() && starts_name(name[0]);
    for (const char c : name) good = good && continues_name(c);
    if (!good) throw Exception("'" + name + "' is no name");
    return name;
  }

  void encode(const std::string& value) {
    const size_t start = text_.size();
    const char* const end = value.data() + value.size();
    for (const char* at = value.data(); at != end; ++at) {
      const char* const plain = at;
      while (at != end && !is(kEscaped, *at)) ++at;
      text_.add({plain, static_cast<size_t>(at - plain)});
      if (at == end) break;
      escape(*at);
    }
    if (utf8_ && ends_inside_character(start)) fail("a text ends inside a character");
  }

  void escape(char c) {
    switch (c) {
      case '&': return text_.add("&amp;");
      case '<': return text_.add("&lt;");
      case '>': return text_.add("&gt;");
      case '"': return text_.add("&quot;");
      case '\'': return text_.add("&apos;");
      default: {
        const auto byte = static_cast<unsigned char>(c);
        char number[] = "&#x00;";
        number[3] = "01"[byte / 16];
        number[4] = "0123456789ABCDEF"[byte % 16];
        return text_.add(number);
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

  Text text_;
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
  if (found != nullptr) return tree_of(*node_, tree_).element(found);
  if (!throwIfNoChildren) return nullptr;
  fail_at(*node_, tree_, "Element (" + Value() + ") does NOT contain any children");
}

Element* Node::FirstChildElement(const char* name, bool throwIfNoChildren) const {
  TiXmlElement* const found = node_->FirstChildElement(name);
  if (found != nullptr) return tree_of(*node_, tree_).element(found);
  if (!throwIfNoChildren) return nullptr;
  fail_at(*node_, tree_,
          "Element (" + Value() + ") does NOT contain a child with the value of '" + name + "'");
}

Element* Node::FirstChildElement(const std::string& name, bool throwIfNoChildren) const {
  return FirstChildElement(name.c_str(), throwIfNoChildren);
}

Element* Node::NextSiblingElement(bool throwIfNoSiblings) const {
  TiXmlElement* const found = node_->NextSiblingElement();
  if (found != nullptr) return tree_of(*node_, tree_).element(found);
  if (!throwIfNoSiblings) return nullptr;
  fail_at(*node_, tree_, "No Element Siblings found, After this Node (" + Value() + ")");
}

Element* Node::NextSiblingElement(const char* name, bool throwIfNoSiblings) const {
  TiXmlElement* const found = node_->NextSiblingElement(name);
  if (found != nullptr) return tree_of(*node_, tree_).element(found);
  if (!throwIfNoSiblings) return nullptr;
  fail_at(*node_, tree_,
          std::string("No Element Siblings found with value, '") + name + "', After this Node (" +
              Value() + ")");
}

Element* Node::NextSiblingElement(const std::string& name, bool throwIfNoSiblings) const {
  return NextSiblingElement(name.c_str(), throwIfNoSiblings);
}

Node* Node::LinkEndChild(Node* child) {
  if (child == nullptr) fail("A null pointer can not be linked");
  if (child->node_->ToDocument() != nullptr) fail("A document can not be linked");
  if (!child->owner_) throw Exception("Node (" + child->Value() + ") is linked already");
  if (node_->ToDeclaration() != nullptr) fail("A declaration has no children");
  if (holds(*child->node_, *node_)) throw Exception("Node (" + Value() + ") can not hold itself");
  if (tree_ != nullptr) tree_->text.clear();
  node_->LinkEndChild(child->node_);
  child->owner_ = false;
  child->tree_ = tree_;
  return child;
}

// ---- Element ----

Element::Element(const std::string& name) : Node(new Built(name), nullptr, true) {}

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
  fail_at(*node_, tree_, "Text does not exists in the current element");
}

void Element::set_text(const std::string& text) {
  if (tree_ != nullptr) tree_->text.clear();
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
  fail_at(*node_, tree_, "Could not convert \"" + text + "\" to target type");
}

std::string Element::text_of(int value) {
  char text[16];
  return {text, std::to_chars(text, text + sizeof(text), value).ptr};
}

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
    if (stream == nullptr) fail(strerror(errno));
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
