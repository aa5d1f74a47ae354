// SPDX-License-Identifier: MIT
// The tree behind the objects of ticpp.h.
#pragma once

#include "ticpp/ticpp.h"

#include <memory>
#include <memory_resource>
#include <new>
#include <string>

#include <tinyxml.h>

namespace ticpp {

// What belongs to a tree besides its nodes.
class Tree {
 public:
  // One for each node that was looked up; the node's user data points to it.
  Element* element(TiXmlElement* node) {
    if (node->GetUserData() == nullptr) {
      node->SetUserData(new (elements_.allocate(sizeof(Element), alignof(Element)))
                            Element(node, this));
    }
    return static_cast<Element*>(node->GetUserData());
  }

  void clear() {
    text.clear();
    counted.reset();
    elements_.release();
  }

  // The text that the tree was read from, as the parser had it; empty once the tree was changed.
  std::string text;

  // The same tree with its rows counted, made when they are first asked for.
  std::unique_ptr<TiXmlDocument> counted;

 private:
  // In few large blocks: many small ones, freed with the tree between what was made meanwhile,
  // leave holes in the heap that the next tree is scattered over. Nothing to destroy: they do not
  // own their nodes.
  std::pmr::monotonic_buffer_resource elements_;
};

// Nodes that are made here carry the elements looked up below them.
struct Root : TiXmlDocument {
  Tree tree;
};

struct Built : TiXmlElement {
  explicit Built(const std::string& name) : TiXmlElement(name) {}

  std::unique_ptr<Tree> tree;  // made late: most elements built are never searched
};

// Of the document; else of the element built by name that is looked at, or that holds a
// declaration.
Tree& tree_of(TiXmlNode& node, Tree* tree);

// The node that knows the row of `node`; null if that was not read from a file. Rows are counted
// here, by reading the text again: counting while loading would take a fifth of the time.
const TiXmlNode* counted(const TiXmlNode& node, Tree* tree);

// Throws an Exception of the text and " (/plist/dict, row 3, column 5)".
[[noreturn]] void fail_at(const TiXmlNode& node, Tree* tree, const std::string& text);

}  // namespace ticpp
