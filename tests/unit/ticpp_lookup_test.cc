// SPDX-License-Identifier: MIT
// Elements found, and where they stand.
#include "tests/support/documents.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace support;
using testing::HasSubstr;

TEST(FirstChildElement, FindsTheFirstOfTheNameInEachSpelling) {
  const Loaded xml("<r><a>1</a><b>2</b><b>3</b></r>");
  EXPECT_EQ("1", xml.root().FirstChildElement()->GetText());
  EXPECT_EQ("2", xml.root().FirstChildElement("b")->GetText());
  EXPECT_EQ("2", xml.root().FirstChildElement(std::string("b"))->GetText());
}

TEST(FirstChildElement, SkipsWhatIsNoElement) {
  const Loaded xml("<r>b<!--b--><b>2</b></r>");
  EXPECT_EQ("2", xml.root().FirstChildElement("b")->GetText());
  EXPECT_EQ("2", xml.root().FirstChildElement()->GetText());
}

TEST(FirstChildElement, ThrowsForAMissingOne) {
  const Loaded xml("<r>\n  <a/>\n</r>");
  EXPECT_EQ("Element (a) does NOT contain a child with the value of 'b' (/r/a, row 2, column 3)",
            thrown([&] { xml.root().FirstChildElement("a")->FirstChildElement("b"); }));
  EXPECT_EQ("Element (a) does NOT contain any children (/r/a, row 2, column 3)",
            thrown([&] { xml.root().FirstChildElement("a")->FirstChildElement(); }));
}

TEST(FirstChildElement, NamesTheFileForAMissingRoot) {
  const Loaded xml("<r/>");
  EXPECT_EQ("Element (" + xml.file() + ") does NOT contain a child with the value of 'plist'",
            thrown([&] { xml.document.FirstChildElement("plist"); }));
}

TEST(FirstChildElement, GivesNullForAMissingOneWhereAsked) {
  const Loaded xml("<r/>");
  EXPECT_EQ(nullptr, xml.root().FirstChildElement(false));
  EXPECT_EQ(nullptr, xml.root().FirstChildElement("b", false));
  EXPECT_EQ(nullptr, xml.root().FirstChildElement(std::string("b"), false));
}

TEST(NextSiblingElement, FindsTheNextOfTheNameInEachSpelling) {
  const Loaded xml("<r><a>1</a>text<b>2</b><a>3</a></r>");
  const ticpp::Element* const first = xml.root().FirstChildElement("a");
  EXPECT_EQ("2", first->NextSiblingElement()->GetText());
  EXPECT_EQ("3", first->NextSiblingElement("a")->GetText());
  EXPECT_EQ("3", first->NextSiblingElement(std::string("a"))->GetText());
}

TEST(NextSiblingElement, ThrowsForAMissingOne) {
  const Loaded xml("<r><a/></r>");
  const ticpp::Element* const only = xml.root().FirstChildElement("a");
  EXPECT_EQ(
      "No Element Siblings found with value, 'b', After this Node (a) (/r/a, row 1, column 4)",
      thrown([&] { only->NextSiblingElement("b"); }));
  EXPECT_EQ("No Element Siblings found, After this Node (a) (/r/a, row 1, column 4)",
            thrown([&] { only->NextSiblingElement(); }));
}

TEST(NextSiblingElement, GivesNullForAMissingOneWhereAsked) {
  const Loaded xml("<r><a/></r>");
  const ticpp::Element* const only = xml.root().FirstChildElement("a");
  EXPECT_EQ(nullptr, only->NextSiblingElement(false));
  EXPECT_EQ(nullptr, only->NextSiblingElement("a", false));
  EXPECT_EQ(nullptr, only->NextSiblingElement(std::string("a"), false));
}

TEST(NextSiblingElement, WorksFromALinkedDeclaration) {
  ticpp::Document document;
  ticpp::Declaration declaration("1.0", "UTF8", "yes");
  ticpp::Element root("r");
  document.LinkEndChild(&declaration);
  document.LinkEndChild(&root);
  EXPECT_EQ("r", declaration.NextSiblingElement()->Value());
}

TEST(NextSiblingElement, WorksFromADeclarationLinkedUnderAnElement) {
  ticpp::Element element("element"), next("next");
  ticpp::Declaration declaration("1.0", "UTF8", "yes");
  element.LinkEndChild(&declaration);
  element.LinkEndChild(&next);
  EXPECT_EQ("next", declaration.NextSiblingElement()->Value());
}

TEST(FirstChildElement, GivesTheSameElementBeforeAndAfterLinking) {
  ticpp::Document document;
  ticpp::Element element("element"), child("child");
  element.LinkEndChild(&child);
  const ticpp::Element* const found = element.FirstChildElement();
  document.LinkEndChild(&element);
  EXPECT_EQ(found, element.FirstChildElement());
  EXPECT_EQ(found, document.FirstChildElement()->FirstChildElement());
}

TEST(FirstChildElement, FindsNothingInADeclaration) {
  const ticpp::Declaration declaration("1.0", "", "");
  EXPECT_EQ(nullptr, declaration.FirstChildElement(false));
  EXPECT_THAT(thrown([&] { declaration.FirstChildElement(); }),
              HasSubstr("does NOT contain any children"));
}

TEST(Place, IsTheRowReadAndOnlyThePathOnceTheTreeWasChanged) {
  const Loaded xml("<r>\n<!-- c -->\n  <a>x</a>\n\t<b/></r>");
  int number = 0;
  const auto failure = [&] {
    return thrown([&] { xml.root().FirstChildElement("b")->GetText(&number); });
  };
  EXPECT_EQ(std::string(kNoText) + " (/r/b, row 4, column 5)", failure());
  xml.root().FirstChildElement("a")->SetText("y");
  EXPECT_EQ(std::string(kNoText) + " (/r/b)", failure());
}

TEST(Place, IsToldByRowAndColumn) {
  const Loaded xml("<r>\n<!-- c -->\n  <a>x</a>\n\t<b/></r>");
  const ticpp::Element* const b = xml.root().FirstChildElement("b");
  EXPECT_EQ(4, b->Row());
  EXPECT_EQ(5, b->Column());
  xml.root().FirstChildElement("a")->SetText("y");
  EXPECT_EQ(0, b->Row());
  EXPECT_EQ(0, b->Column());
  EXPECT_EQ(0, ticpp::Element("e").Row());
  EXPECT_EQ(0, ticpp::Declaration("1.0", "", "").Column());
}

TEST(Place, IsOnlyThePathOfAnElementThatWasNotRead) {
  const Loaded xml("<r/>");
  ticpp::Element added("b");
  xml.root().LinkEndChild(&added);
  EXPECT_EQ(std::string(kNoText) + " (/r/b)", thrown([&] { added.GetText(); }));
}

TEST(LookUp, GivesTheSameObjectEachTime) {
  const Loaded xml("<r><a/><b/></r>");
  ticpp::Element* const a = xml.root().FirstChildElement("a");
  EXPECT_EQ(a, xml.root().FirstChildElement());
  EXPECT_EQ(a->NextSiblingElement("b"), xml.root().FirstChildElement("b"));
}
