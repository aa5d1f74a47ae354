// SPDX-License-Identifier: MIT
// Who owns nodes; leaks and double releases show under the address sanitizer.
#include "tests/support/documents.h"

#include <exception>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace support;
using testing::HasSubstr;

namespace {

using Elements = std::unique_ptr<ticpp::Element>;

}  // namespace

TEST(Ownership, AnElementByNameOwnsItsNodeUntilItIsLinked) {
  ticpp::Element parent("p");
  {
    ticpp::Element child("c");
    child.SetText("text");
    parent.LinkEndChild(&child);
  }
  { const ticpp::Element never_linked("x"); }
  EXPECT_EQ("text", parent.FirstChildElement("c")->GetText());
}

TEST(Ownership, AHandleOutlivesTheTree) {
  ticpp::Element child("c");
  {
    ticpp::Document document;
    EXPECT_EQ(&child, document.LinkEndChild(&child));
  }
}

TEST(Ownership, FoundElementsLiveAsLongAsTheTree) {
  ticpp::Document document;
  ticpp::Element* found = nullptr;
  {
    const auto top = std::make_unique<ticpp::Element>("top");
    const auto inner = std::make_unique<ticpp::Element>("inner");
    top->LinkEndChild(inner.get());
    found = top->FirstChildElement("inner");
    document.LinkEndChild(top.get());
  }
  found->SetText("still there");
  EXPECT_EQ("still there",
            document.FirstChildElement("top")->FirstChildElement("inner")->GetText());
}

TEST(Ownership, LinkingTwiceIsRefused) {
  ticpp::Element a("a");
  ticpp::Element b("b");
  ticpp::Element child("c");
  a.LinkEndChild(&child);
  EXPECT_EQ("Node (c) is linked already", thrown([&] { b.LinkEndChild(&child); }));
  EXPECT_EQ("Node (c) is linked already", thrown([&] { b.LinkEndChild(a.FirstChildElement()); }));
  EXPECT_TRUE(b.NoChildren());
}

TEST(Ownership, NoNodeHoldsItself) {
  ticpp::Element a("a");
  ticpp::Element b("b");
  a.LinkEndChild(&b);
  EXPECT_EQ("Node (b) can not hold itself", thrown([&] { b.LinkEndChild(&a); }));
  EXPECT_EQ("Node (a) can not hold itself", thrown([&] { a.LinkEndChild(&a); }));
  ticpp::Element leaf("leaf");
  EXPECT_EQ("Node (leaf) can not hold itself", thrown([&] { leaf.LinkEndChild(&leaf); }));
}

TEST(Ownership, DocumentsNullAndChildrenOfDeclarationsAreRefused) {
  ticpp::Document document;
  ticpp::Document other;
  ticpp::Declaration declaration("1.0", "", "");
  ticpp::Element element("e");
  EXPECT_EQ("A document can not be linked", thrown([&] { document.LinkEndChild(&other); }));
  EXPECT_EQ("A null pointer can not be linked", thrown([&] { document.LinkEndChild(nullptr); }));
  EXPECT_EQ("A declaration has no children", thrown([&] { declaration.LinkEndChild(&element); }));
}

TEST(Ownership, NothingLeaksWhenAnExceptionComesBetween) {
  ticpp::Element parent("p");
  EXPECT_THAT(thrown([&] {
                const auto child = std::make_unique<ticpp::Element>("c");
                child->SetText("text");
                child->FirstChildElement("missing");
                parent.LinkEndChild(child.get());
              }),
              HasSubstr("(/c)"));
  EXPECT_TRUE(parent.NoChildren());
}

TEST(Exception, IsAStandardException) {
  try {
    throw ticpp::Exception("text");
  } catch (const std::exception& e) {
    EXPECT_STREQ("text", e.what());
  }
}
