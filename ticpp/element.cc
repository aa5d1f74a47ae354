// SPDX-License-Identifier: MIT
// Nodes, elements and declarations.
#include "ticpp/ticpp.h"
#include "ticpp/tree.h"

#include <charconv>
#include <cmath>

namespace ticpp {
namespace {

bool holds(const TiXmlNode& outer, const TiXmlNode& inner) {
  if (outer.NoChildren()) return &outer == &inner;  // spares the walk while a tree is built
  const TiXmlNode* up = &inner;
  while (up != nullptr && up != &outer) up = up->Parent();
  return up != nullptr;
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
  if (child == nullptr) throw Exception("A null pointer can not be linked");
  if (child->node_->ToDocument() != nullptr) throw Exception("A document can not be linked");
  if (!child->owner_) throw Exception("Node (" + child->Value() + ") is linked already");
  if (node_->ToDeclaration() != nullptr) throw Exception("A declaration has no children");
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

// A text that is just a number needs no stream.
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

}  // namespace ticpp
