// SPDX-License-Identifier: MIT
// XML documents: the part of TinyXML++'s interface that the library and its clients use, built on
// TinyXML.
//
// A Document owns its tree. An Element that a look-up returns belongs to the tree and lives as long
// as it; the caller never deletes it. An Element built by name owns its XML node until it is linked
// under another one; from then on the tree owns the node, and the object is only a handle, which
// may be destroyed at any time.
//
// Every failure throws an Exception. Numbers are read and written in the classic locale, whatever
// the process has set.
#pragma once

#include "util/export.h"

#include <exception>
#include <locale>
#include <sstream>
#include <string>

class TiXmlElement;
class TiXmlNode;

namespace ticpp {

class Element;
class Tree;

// what() begins with the library's message; the place in the document follows if it is known: "...
// (/plist/dict/integer, row 4, column 9)".
class UTIL_EXPORT Exception : public std::exception {
 public:
  explicit Exception(const std::string& details);
  Exception(const Exception&) = default;
  Exception& operator=(const Exception&) = default;
  ~Exception() override;

  const char* what() const noexcept override;

 private:
  std::string details_;
};

// What documents, elements and declarations have in common.
class UTIL_EXPORT Node {
 public:
  virtual ~Node();
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;

  // An element's name, a document's file.
  std::string Value() const;
  bool NoChildren() const;

  // Where the node begins in the file that its document was read from, counted from 1; 0 if it was
  // not read from a file or its document was changed.
  int Row() const;
  int Column() const;

  // The first child element, or the next element with the same parent, of any name or of `name`. If
  // there is none, throws or, with the flag false, returns a null pointer. No look-up allocates
  // memory for an element that was looked up before.
  Element* FirstChildElement(bool throwIfNoChildren = true) const;
  Element* FirstChildElement(const char* name, bool throwIfNoChildren = true) const;
  Element* FirstChildElement(const std::string& name, bool throwIfNoChildren = true) const;
  Element* NextSiblingElement(bool throwIfNoSiblings = true) const;
  Element* NextSiblingElement(const char* name, bool throwIfNoSiblings = true) const;
  Element* NextSiblingElement(const std::string& name, bool throwIfNoSiblings = true) const;

  // Makes the XML node of `child`, which must not be linked yet, the last child of this one. The
  // tree takes ownership of that node; `child` itself stays with the caller. Returns `child`.
  // Throws, and changes nothing, for a null pointer, a document, a child that is already linked or
  // one that holds this node.
  Node* LinkEndChild(Node* child);

 protected:
  Node(TiXmlNode* node, Tree* tree, bool owner);

  TiXmlNode* node_;
  Tree* tree_;  // keeps the elements that look-ups return; null below what no document holds
  bool owner_;  // of node_
};

class UTIL_EXPORT Element : public Node {
 public:
  explicit Element(const std::string& name);

  // The element's text: that of its first child, if this is a text. If the element has no text,
  // throws or, with the flag false, returns an empty text and leaves `*value` as it was.
  std::string GetText(bool throwIfNotFound = true) const;
  std::string GetTextOrDefault(const std::string& text) const;

  // Reads a value by stream extraction from the start of the text; what follows it is ignored. A
  // std::string gets the whole text. Throws if the text does not start with such a value.
  template <class T>
  void GetText(T* value, bool throwIfNotFound = true) const;

  // Replaces the text, or puts one before the first child, using stream insertion. An empty text on
  // an element without children leaves an empty text node.
  template <class T>
  void SetText(const T& value) {
    set_text(text_of(value));
  }

  template <class T>
  void SetAttribute(const std::string& name, const T& value) {
    set_attribute(name, text_of(value));
  }

 private:
  friend class Tree;

  Element(TiXmlElement* node, Tree* tree);

  const std::string* find_text(bool throwIfNotFound) const;
  void set_text(const std::string& text);
  void set_attribute(const std::string& name, const std::string& value);
  [[noreturn]] void not_converted(const std::string& text) const;

  static const std::string& text_of(const std::string& value) { return value; }
  static std::string text_of(const char* value) { return value; }
  static std::string text_of(int value);
  static std::string text_of(double value);
  template <class T>
  static std::string text_of(const T& value);

  static bool convert(const std::string& text, std::string* value);
  static bool convert(const std::string& text, int* value);
  static bool convert(const std::string& text, double* value);
  template <class T>
  static bool convert(const std::string& text, T* value);
};

// The line <?xml version="..." encoding="..." standalone="..." ?>; an empty one is left out.
class UTIL_EXPORT Declaration : public Node {
 public:
  Declaration(const std::string& version, const std::string& encoding,
              const std::string& standalone);
};

class UTIL_EXPORT Document : public Node {
 public:
  Document();

  // Replaces the document with the content of `file` up to its first NUL byte: after a power
  // failure, zeros may follow a complete document. Throws "Couldn't load <file>: <reason>" if the
  // file cannot be read or parsed, or would exhaust the stack or the time of its reader: elements
  // nested deeper than 1,024, an element with more than 256 attributes. The document is then empty.
  void LoadFile(const std::string& file);

  // Writes the document to `file`, truncating an existing one in place. Throws "Couldn't save
  // <file>: <reason>" for a document that LoadFile() would refuse, before the file is opened, and
  // if opening, writing, flushing or closing fails; errno is then that of the failed call.
  void SaveFile(const std::string& file) const;

 private:
  bool byte_order_mark_ = false;  // read with the document, written with it
};

template <class T>
void Element::GetText(T* value, bool throwIfNotFound) const {
  const std::string* const text = find_text(throwIfNotFound);
  if (text != nullptr && !convert(*text, value)) not_converted(*text);
}

template <class T>
std::string Element::text_of(const T& value) {
  std::ostringstream stream;
  stream.imbue(std::locale::classic());
  stream << value;
  return stream.str();
}

template <class T>
bool Element::convert(const std::string& text, T* value) {
  std::istringstream stream(text);
  stream.imbue(std::locale::classic());
  return static_cast<bool>(stream >> *value);
}

}  // namespace ticpp
