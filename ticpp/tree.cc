// SPDX-License-Identifier: MIT
#include "ticpp/tree.h"

#include "ticpp/syntax.h"

namespace ticpp {
namespace {

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

}  // namespace

Tree& tree_of(TiXmlNode& node, Tree* tree) {
  if (tree != nullptr) return *tree;
  TiXmlNode& built = node.ToElement() == nullptr ? *node.Parent() : node;
  std::unique_ptr<Tree>& own = static_cast<Built&>(built).tree;
  if (own == nullptr) own = std::make_unique<Tree>();
  return *own;
}

const TiXmlNode* counted(const TiXmlNode& node, Tree* tree) {
  if (tree == nullptr || tree->text.empty()) return nullptr;
  if (tree->counted == nullptr) {
    tree->counted = std::make_unique<TiXmlDocument>();
    tree->counted->Parse(tree->text.c_str());
  }
  return same_place(&node, *tree->counted);
}

void fail_at(const TiXmlNode& node, Tree* tree, const std::string& text) {
  throw Exception(text + place(node, tree));
}

}  // namespace ticpp
