// SPDX-License-Identifier: MIT
#include "ticpp/ticpp.h"

#include "tests/support/faults.h"
#include "tests/support/files.h"

#include <errno.h>
#include <locale.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <clocale>
#include <cmath>
#include <limits>
#include <locale>
#include <memory>
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tinyxml.h>

using support::Fault;
using support::TempDir;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

using Elements = std::unique_ptr<ticpp::Element>;

constexpr char kNoText[] = "Text does not exists in the current element";

// What `action` throws, or "nothing".
template <class Action>
std::string thrown(Action action) {
  try {
    action();
  } catch (const ticpp::Exception& e) {
    return e.what();
  }
  return "nothing";
}

// A document loaded from a text.
class Loaded {
 public:
  explicit Loaded(const std::string& text) {
    dir_.write("x.xml", text);
    document.LoadFile(file());
  }

  std::string file() const { return dir_.file("x.xml"); }
  ticpp::Element& root() const { return *document.FirstChildElement(); }

  std::string saved() const {
    document.SaveFile(dir_.file("saved"));
    return dir_.read("saved");
  }

 private:
  TempDir dir_;

 public:
  ticpp::Document document;
};

std::string load_error(const std::string& text) {
  static const TempDir dir;           // one for all: some tests load thousands of texts
  unlink(dir.file("x.xml").c_str());  // disks are slow to empty a file and fill it again
  dir.write("x.xml", text);
  ticpp::Document document;
  std::string what = thrown([&] { document.LoadFile(dir.file("x.xml")); });
  const std::string start = "Couldn't load " + dir.file("x.xml");
  if (what.compare(0, start.size(), start) == 0) what.replace(0, start.size(), "Couldn't load");
  return what;
}

std::string nested(int depth, const std::string& innermost = "") {
  std::string text;
  for (int i = 0; i < depth; ++i) text += "<a>";
  text += innermost;
  for (int i = 0; i < depth; ++i) text += "</a>";
  return text;
}

// The stack may not grow past a mebibyte, until destruction: a parser let into 5,000 levels dies.
class SmallStack {
 public:
  SmallStack() {
    getrlimit(RLIMIT_STACK, &old_);
    const rlimit limit = {1 << 20, old_.rlim_max};
    setrlimit(RLIMIT_STACK, &limit);
  }
  ~SmallStack() { setrlimit(RLIMIT_STACK, &old_); }
  SmallStack(const SmallStack&) = delete;
  SmallStack& operator=(const SmallStack&) = delete;

 private:
  rlimit old_ = {};
};

std::string attributes(int count) {
  std::string text = "<a";
  for (int i = 0; i < count; ++i) text += " b" + std::to_string(i) + "='='";
  return text + "/>";
}

}  // namespace

// ---- look-ups ----

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

// ---- text ----

TEST(GetText, GivesTheFirstChildIfItIsText) {
  EXPECT_EQ("one", Loaded("<r>one<a/>two</r>").root().GetText());
  EXPECT_EQ("a < b", Loaded("<r><![CDATA[a < b]]></r>").root().GetText());
}

TEST(GetText, IgnoresTextThatIsNotTheFirstChild) {
  EXPECT_EQ("nothing", thrown([] { Loaded("<r><a/>two</r>").root().GetText(false); }));
  EXPECT_THAT(thrown([] { Loaded("<r><a/>two</r>").root().GetText(); }), StartsWith(kNoText));
  EXPECT_THAT(thrown([] { Loaded("<r><!-- c -->two</r>").root().GetText(); }), StartsWith(kNoText));
}

TEST(GetText, SaysWhereTheTextIsMissing) {
  EXPECT_EQ(std::string(kNoText) + " (/r/a, row 2, column 1)",
            thrown([] { Loaded("<r>\n<a/></r>").root().FirstChildElement()->GetText(); }));
}

TEST(GetText, GivesAnEmptyTextWhereAsked) { EXPECT_EQ("", Loaded("<r/>").root().GetText(false)); }

TEST(GetText, KeepsBytesAsTheyAre) {
  EXPECT_EQ(
      std::string("%s \x01 \x00 \xC3\xA4 <&", 12),
      Loaded("<?xml version='1.0'?><r>%s &#x01; &#x00; \xC3\xA4 &lt;&amp;</r>").root().GetText());
}

TEST(GetTextOrDefault, GivesTheTextOrTheDefault) {
  EXPECT_EQ("x", Loaded("<r>x</r>").root().GetTextOrDefault("d"));
  EXPECT_EQ("d", Loaded("<r/>").root().GetTextOrDefault("d"));
}

TEST(GetTextInt, ReadsFromTheStartAndIgnoresTheRest) {
  const struct {
    const char* text;
    int value;
  } rows[] = {
      {"12",          12             },
      {"-7",          -7             },
      {"+5",          5              },
      {"007",         7              },
      {"12abc",       12             },
      {"1,000",       1              },
      {"0x10",        0              },
      {"3.9",         3              },
      {"&#x0A; 8",    8              },
      {"2147483647",  2147483647     },
      {"-2147483648", -2147483647 - 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    int value = 99;
    Loaded("<r>" + std::string(row.text) + "</r>").root().GetText(&value);
    EXPECT_EQ(row.value, value);
  }
}

TEST(GetTextInt, RefusesWhatIsNoInt) {
  for (const char* text : {"abc", "99999999999", "-2147483649", "+", "-", "+-5", "- 5", ".5"}) {
    SCOPED_TRACE(text);
    int value = 0;
    EXPECT_EQ(
        "Could not convert \"" + std::string(text) + "\" to target type (/r, row 1, column 1)",
        thrown([&] { Loaded("<r>" + std::string(text) + "</r>").root().GetText(&value); }));
  }
}

TEST(GetTextInt, ThrowsOrLeavesTheValueWithoutText) {
  int value = 7;
  const Loaded xml("<r/>");
  EXPECT_THAT(thrown([&] { xml.root().GetText(&value); }), StartsWith(kNoText));
  xml.root().GetText(&value, false);
  EXPECT_EQ(7, value);
}

TEST(GetTextDouble, ReadsFromTheStartAndIgnoresTheRest) {
  const struct {
    const char* text;
    double value;
  } rows[] = {
      {"0.5",     0.5    },
      {"-2",      -2     },
      {"+1.5",    1.5    },
      {"1e+06",   1e6    },
      {"1.5e3x",  1500   },
      {".25",     0.25   },
      {"5.",      5      },
      {"2,5",     2      },
      {"0x1p3",   0      },
      {"1.7e308", 1.7e308},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    double value = 99;
    Loaded("<r>" + std::string(row.text) + "</r>").root().GetText(&value);
    EXPECT_EQ(row.value, value);
  }
}

TEST(GetTextDouble, RefusesWhatIsNoNumber) {
  for (const char* text : {"x", "inf", "nan", "-inf", "1e", "1e999", "."}) {
    SCOPED_TRACE(text);
    double value = 0;
    EXPECT_THAT(thrown([&] { Loaded("<r>" + std::string(text) + "</r>").root().GetText(&value); }),
                StartsWith("Could not convert \"" + std::string(text) + "\" to target type"));
  }
}

TEST(GetTextOther, ReadsByStreamAndStringsWhole) {
  const Loaded xml("<r>65 two</r>");
  unsigned number = 0;
  xml.root().GetText(&number);
  EXPECT_EQ(65U, number);
  std::string text;
  xml.root().GetText(&text);
  EXPECT_EQ("65 two", text);
  long wide = 0;
  xml.root().GetText<long>(&wide);
  EXPECT_EQ(65, wide);
}

TEST(SetText, WritesByStreamInsertion) {
  ticpp::Element e("e");
  const auto text_after = [&e](const auto& value) {
    e.SetText(value);
    return e.GetText();
  };
  EXPECT_EQ("literal", text_after("literal"));
  EXPECT_EQ("text", text_after(std::string("text")));
  EXPECT_EQ("-2147483648", text_after(std::numeric_limits<int>::min()));
  EXPECT_EQ("4294967295", text_after(4294967295U));
  EXPECT_EQ("1", text_after(true));
  EXPECT_EQ("c", text_after('c'));
  EXPECT_EQ("0.5", text_after(0.5F));
}

TEST(SetText, WritesDoublesWithSixSignificantDigits) {
  const struct {
    double value;
    const char* text;
  } rows[] = {
      {0,            "0"           },
      {-0.0,         "-0"          },
      {3.14159265,   "3.14159"     },
      {1000000,      "1e+06"       },
      {999999,       "999999"      },
      {999999.5,     "1e+06"       },
      {0.0001,       "0.0001"      },
      {0.00001,      "1e-05"       },
      {-1234567,     "-1.23457e+06"},
      {1e100,        "1e+100"      },
      {5e-324,       "4.94066e-324"},
      {HUGE_VAL,     "inf"         },
      {-HUGE_VAL,    "-inf"        },
      {std::nan(""), "nan"         },
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    ticpp::Element e("e");
    e.SetText(row.value);
    EXPECT_EQ(row.text, e.GetText());
  }
}

TEST(SetText, WritesDoublesAsAStreamDoes) {
  std::mt19937_64 random(7);
  ticpp::Element e("e");
  for (int i = 0; i < 20000; ++i) {
    const double value = std::ldexp(static_cast<double>(random()), static_cast<int>(i % 300) - 214);
    std::ostringstream stream;
    stream << value;
    e.SetText(value);
    ASSERT_EQ(stream.str(), e.GetText());
  }
}

TEST(SetText, ReplacesTheTextAndNothingElse) {
  const Loaded xml("<r>old<a/>tail</r>");
  xml.root().SetText("new");
  EXPECT_EQ("<r>new\n    <a />tail\n</r>\n", xml.saved());
}

TEST(SetText, PutsTheTextBeforeOtherChildren) {
  const Loaded xml("<r><a/></r>");
  xml.root().SetText("new");
  EXPECT_EQ("new", xml.root().GetText());
  EXPECT_NE(nullptr, xml.root().FirstChildElement("a", false));
}

TEST(SetText, LeavesAnEmptyTextNodeForAnEmptyText) {
  ticpp::Element e("e");
  EXPECT_TRUE(e.NoChildren());
  e.SetText("");
  EXPECT_FALSE(e.NoChildren());
  EXPECT_EQ("", e.GetText());
}

TEST(SetText, TurnsASectionIntoPlainText) {
  const Loaded xml("<r><![CDATA[old]]></r>");
  xml.root().SetText("]]><b/>");
  EXPECT_EQ("<r>]]&gt;&lt;b/&gt;</r>\n", xml.saved());
}

TEST(SetAttribute, WritesByStreamInsertionAndReplaces) {
  ticpp::Document document;
  ticpp::Element e("e");
  e.SetAttribute("version", "0.9");
  e.SetAttribute("version", "1.0");
  e.SetAttribute("n", 5);
  e.SetAttribute(std::string("d"), 0.25);
  e.SetAttribute("u", 7UL);
  document.LinkEndChild(&e);
  const TempDir dir;
  document.SaveFile(dir.file("x"));
  EXPECT_EQ("<e version=\"1.0\" n=\"5\" d=\"0.25\" u=\"7\" />\n", dir.read("x"));
}

// A locale whose numbers have a decimal comma and grouping.
class Comma : public std::numpunct<char> {
 protected:
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(Numbers, DoNotDependOnTheLocale) {
  const std::locale old = std::locale::global(std::locale(std::locale::classic(), new Comma));
  ticpp::Element e("e");
  e.SetText(1234.5);
  EXPECT_EQ("1234.5", e.GetText());
  e.SetText(1234567);
  EXPECT_EQ("1234567", e.GetText());
  e.SetText(1234567L);
  EXPECT_EQ("1234567", e.GetText());
  e.SetText("+1.25");
  double value = 0;
  e.GetText(&value);
  EXPECT_EQ(1.25, value);
  e.SetText("1.234 x");
  int number = 0;
  e.GetText(&number);
  EXPECT_EQ(1, number);
  std::locale::global(old);
}

// ---- ownership (leaks and double releases show under the address sanitizer) ----

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

// ---- loading ----

TEST(LoadFile, ReplacesTheDocument) {
  const TempDir dir;
  dir.write("a", "<a/>");
  dir.write("b", "<b/>");
  ticpp::Document document;
  document.LoadFile(dir.file("a"));
  EXPECT_EQ("a", document.FirstChildElement()->Value());
  document.LoadFile(dir.file("b"));
  EXPECT_EQ("b", document.FirstChildElement()->Value());
  EXPECT_EQ(nullptr, document.FirstChildElement()->NextSiblingElement(false));
}

TEST(LoadFile, LeavesAnEmptyDocumentWhenItFails) {
  const TempDir dir;
  dir.write("a", "<a><b></a>");
  ticpp::Document document;
  EXPECT_THROW(document.LoadFile(dir.file("a")), ticpp::Exception);
  EXPECT_TRUE(document.NoChildren());
}

TEST(LoadFile, SaysWhyAndWhere) {
  EXPECT_EQ("Couldn't load: Error reading end tag. (row 2, column 4)", load_error("<a>\n<b></a>"));
  EXPECT_EQ("Couldn't load: Error document empty.", load_error(""));
  EXPECT_EQ("Couldn't load: Error document empty.", load_error("   \n"));
  EXPECT_THAT(load_error("<a b='1' b='2'/>"), StartsWith("Couldn't load: Error parsing Element."));
}

TEST(LoadFile, TellsFailuresOfTheFile) {
  const TempDir dir;
  ticpp::Document document;
  const auto failure = [&](const std::string& file) {
    return thrown([&] { document.LoadFile(file); });
  };
  EXPECT_EQ("Couldn't load " + dir.file("none") + ": No such file or directory",
            failure(dir.file("none")));
  EXPECT_EQ("Couldn't load " + dir.path() + ": Is a directory", failure(dir.path()));
  dir.write("x", "<a/>");
  const Fault fault("fopen", EACCES);
  EXPECT_EQ("Couldn't load " + dir.file("x") + ": Permission denied", failure(dir.file("x")));
}

TEST(LoadFile, TakesANulByteForTheEnd) {
  const Loaded xml(std::string("<a>x</a>\r\0<b>", 13));
  EXPECT_EQ("<a>x</a>\n", xml.saved());
  EXPECT_EQ("nothing", load_error("<a/>" + std::string(100000, '\0')));
  EXPECT_EQ("Couldn't load: Error document empty.", load_error(std::string("\0<a/>", 5)));
  EXPECT_THAT(load_error(std::string("<a>\0</a>", 8)), StartsWith("Couldn't load: Error "));
  ticpp::Document document;  // and does not read on for ever
  EXPECT_EQ("Couldn't load /dev/zero: Error document empty.",
            thrown([&] { document.LoadFile("/dev/zero"); }));
}

TEST(LoadFile, ReadsFilesWhoseSizeIsNotKnownBefore) {
  const TempDir dir;
  const std::string pipe = dir.file("pipe");
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  const pid_t child = fork();
  if (child == 0) {
    FILE* const out = fopen(pipe.c_str(), "w");
    fprintf(out, "<r>%s</r>", std::string(100000, 'x').c_str());
    fclose(out);
    _exit(0);
  }
  ticpp::Document document;
  document.LoadFile(pipe);
  EXPECT_EQ(std::string(100000, 'x'), document.FirstChildElement()->GetText());
}

TEST(LoadFile, ReadsNewlinesAndMarksAsTheParsersOwnLoader) {
  EXPECT_EQ("a\nb\nc\n\nd", Loaded("<r><![CDATA[a\r\nb\rc\n\r\nd]]></r>").root().GetText());
  EXPECT_EQ("\n", Loaded("<r><![CDATA[\r]]></r>").root().GetText());
  const Loaded marked("\xEF\xBB\xBF<r>\xC3\xA4</r>");
  EXPECT_EQ("\xC3\xA4", marked.root().GetText());
  EXPECT_EQ("\xEF\xBB\xBF<r>\xC3\xA4</r>\n", marked.saved());
}

TEST(LoadFile, AcceptsTheDeepestAllowedAndRefusesOneMore) {
  EXPECT_EQ("nothing", load_error(nested(1024)));
  EXPECT_EQ("Couldn't load: elements nested deeper than 1024 (row 1, column 3073)",
            load_error(nested(1025)));
  EXPECT_EQ("nothing", load_error(nested(1023, "<b/>")));
  EXPECT_EQ("Couldn't load: elements nested deeper than 1024 (row 1, column 3073)",
            load_error(nested(1024, "<b/>")));
}

TEST(LoadFile, DoesNotCountWhatNeedsNoStack) {
  std::string inside;
  for (int i = 0; i < 3000; ++i) inside += "<b/><c></c><!--><x>--><![CDATA[><y>]]>&lt;z&gt;";
  EXPECT_EQ("nothing", load_error(nested(1022, inside + "<d e='<f>' g=\"<h>\"/>")));
  EXPECT_EQ("nothing", load_error("<!DOCTYPE a [ <!ELEMENT a (b)> ]>" + nested(1024)));
}

TEST(LoadFile, IsNotMisledAboutTheDepth) {
  for (const std::string hidden :
       {"<!--></a>-->", "<![CDATA[></a>]]>", "<b c='</a>'/>", "<b c=\"</a>\"/>", "<?x </a?>",
        "<!x </a>", "&#x</a>x41;", "&#</a>#65;"}) {
    SCOPED_TRACE(hidden);
    std::string text;
    for (int i = 0; i < 30000; ++i) text += "<a>" + hidden;
    EXPECT_THAT(load_error(text), HasSubstr("nested deeper than 1024"));
  }
}

TEST(LoadFile, IsNotKeptBusyByReferences) {
  std::string text = "<a>";
  for (int i = 0; i < 2000000; ++i) text += "&#";
  EXPECT_THAT(load_error(text), StartsWith("Couldn't load: Error "));
  EXPECT_THAT(load_error(text + "65;"), StartsWith("Couldn't load: Error "));
}

// In UTF-8 the parser takes "\xC3<" for a character, and no element ends.
TEST(LoadFile, CountsTheDepthInTheEncodingThatTheParserTakes) {
  std::string cut;
  for (int i = 0; i < 30000; ++i) cut += "<a>\xC3</a>";
  EXPECT_THAT(load_error("<?xml version='1.0'?>" + cut), HasSubstr("nested deeper than 1024"));
  EXPECT_THAT(load_error("\xEF\xBB\xBF" + cut), HasSubstr("nested deeper than 1024"));
  EXPECT_EQ("nothing", load_error(cut));
  EXPECT_EQ("nothing", load_error("<?xml encoding='ISO-8859-1'?>" + cut));
  EXPECT_EQ("nothing", load_error("<r><?xml version='1.0'?>" + cut + "</r>"));
}

TEST(LoadFile, DiesOfNoDepth) {
  EXPECT_THAT(load_error(nested(20000)), HasSubstr("nested deeper than 1024"));
  EXPECT_THAT(load_error(nested(1000000)), HasSubstr("nested deeper than 1024"));
}

TEST(LoadFile, AcceptsTheMostAttributesAllowedAndRefusesOneMore) {
  EXPECT_EQ("nothing", load_error(attributes(256)));
  EXPECT_EQ("Couldn't load: more than 256 attributes on an element (row 1, column 1)",
            load_error(attributes(257)));
  EXPECT_EQ("nothing", load_error("<r>" + attributes(200) + attributes(200) + "</r>"));
  EXPECT_THAT(load_error(attributes(1000000)), HasSubstr("more than 256 attributes"));
}

TEST(LoadFile, SurvivesEveryCut) {
  const std::string whole =
      "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\" standalone='yes' ?>\n<!-- c -->\n"
      "<!DOCTYPE r>\n<r a=\"1\" b='&lt;&#65;&#x41;' c=3>text \xC3\xA4 \xE2\x82\xAC &amp;&#xA9;"
      "<![CDATA[ <x> ]]><b/>tail</r>\n";
  for (size_t size = 0; size < whole.size(); ++size) {
    SCOPED_TRACE(size);
    const std::string outcome = load_error(whole.substr(0, size));
    EXPECT_TRUE(outcome == "nothing" || outcome.find("Couldn't load: ") == 0) << outcome;
  }
}

// A text of some random pieces of markup.
std::string pieces(std::mt19937& random, unsigned most) {
  static const std::string kPieces[] = {"<a>",      "</a>",    "<",
                                        ">",        "&",       "&#",
                                        "&#x",      ";",       "x",
                                        "#",        "'",       "\"",
                                        "=",        "<?xml",   "?>",
                                        "<!--",     "-->",     "<![CDATA[",
                                        "]]>",      " ",       "b",
                                        "<a b='",   "<a b=\"", "/>",
                                        "<b/>",     "\xEF",    "\xEF\xBB\xBF",
                                        "\xC3",     "\xF0",    "\x80",
                                        "version=", "\n",      "encoding='UTF8'",
                                        "<!x",      "/",       "&lt;"};
  std::string text;
  for (auto i = random() % (most + 1); i > 0; --i) text += kPieces[random() % std::size(kPieces)];
  return text;
}

TEST(LoadFile, RefusesOfOddBytesWhatTheParserRefuses) {
  std::mt19937 random(11);
  for (int round = 0; round < 2000; ++round) {
    const std::string text =
        (round % 2 == 0 ? "<?xml version='1.0'?><a>" : "") + pieces(random, 12);
    SCOPED_TRACE(text);
    TiXmlDocument bare;
    bare.Parse((text + std::string(8, '\0')).c_str());
    const std::string outcome = load_error(text);
    if (outcome.find("Error parsing Declaration.") != std::string::npos) continue;
    ASSERT_EQ(bare.Error(), outcome != "nothing") << outcome;
  }
}

// A parser that is let into them dies.
TEST(LoadFile, IsNotMisledByAnyMixture) {
  const SmallStack stack;
  std::mt19937 random(12);
  for (int round = 0; round < 150; ++round) {
    const std::string unit = "<a>" + pieces(random, 6);
    std::string text = round % 2 == 0 ? "<?xml version='1.0'?>" : "";
    for (int i = 0; i < 12000; ++i) text += unit;
    SCOPED_TRACE(unit);
    const std::string outcome = load_error(text);
    ASSERT_TRUE(outcome == "nothing" || outcome.find("Couldn't load: ") == 0) << outcome;
  }
}

// Releases of the parser without the fixes loop for ever or abort on these.
TEST(Parser, NeitherLoopsNorAborts) {
  for (const char* text :
       {"<a>&#", "<a>&#x", "<a>&#x4", "<a>&#4", "<a b=\"&#x", "<a>\xEF", "\xEF\xBB\xBF<a>\xEF",
        "\xEF\xBB\xBF<a \xEF", "\xEF\xBB\xBF<\xEF", "\xEF\xBB\xBF<a><\xEF", "<?xml ",
        "<?xml version", "<?xml version=\"1.0\" ", "\xEF\xBB\xBF<?xml ", "<?xml version='1.0'\n"}) {
    SCOPED_TRACE(text);
    EXPECT_EXIT(
        {
          alarm(5);
          TiXmlDocument document;
          document.Parse((text + std::string(8, '\0')).c_str());
          _exit(0);
        },
        testing::ExitedWithCode(0), "");
  }
}

TEST(LoadFile, RefusesAnUnterminatedReferenceAndADeclarationCutShort) {
  EXPECT_THAT(load_error("<a>&#x41</a>"),
              StartsWith("Couldn't load: Error reading Element value."));
  EXPECT_THAT(load_error("<a>&#65</a>"), StartsWith("Couldn't load: Error reading Element value."));
  EXPECT_THAT(load_error("<a b='&#65'/>"), StartsWith("Couldn't load: Error "));
  for (const char* text :
       {"<?xml ", "<?xml", "<?xml version", "<?xml version=\"1.0", "<?xml version=\"1.0\" ",
        "<?xml version?><a/>", "\n<?xml version='1.0' encoding"}) {
    SCOPED_TRACE(text);
    EXPECT_THAT(load_error(text), StartsWith("Couldn't load: Error parsing Declaration. (row "));
  }
}

// ---- saving ----

TEST(SaveFile, WritesADeclarationAndIndentsByFour) {
  ticpp::Document document;
  ticpp::Declaration declaration("1.0", "UTF8", "yes");
  ticpp::Element root("plist");
  ticpp::Element dict("dict");
  ticpp::Element key("key");
  root.SetAttribute("version", "1.0");
  key.SetText("a<b>&\"c'\n");
  dict.LinkEndChild(&key);
  root.LinkEndChild(&dict);
  document.LinkEndChild(&declaration);
  document.LinkEndChild(&root);
  const TempDir dir;
  document.SaveFile(dir.file("x"));
  EXPECT_EQ(
      "<?xml version=\"1.0\" encoding=\"UTF8\" standalone=\"yes\" ?>\n"
      "<plist version=\"1.0\">\n"
      "    <dict>\n"
      "        <key>a&lt;b&gt;&amp;&quot;c&apos;&#x0A;</key>\n"
      "    </dict>\n"
      "</plist>\n",
      dir.read("x"));
}

TEST(SaveFile, WritesTheBytesThatTheParserWouldWrite) {
  const TempDir dir;
  for (const char* text :
       {"<a/>", "<a b='1' c='\"' d=\"'\" e='&lt;&amp;&#x09;'/>", "<a>text</a>", "<a>t<b/>u</a>",
        "<a><b/>u<c>v</c></a>", "<!--top--><a><!--in--><b><!--x--></b></a><!--end-->",
        "<a><![CDATA[x<y]]></a>", "<a>t<![CDATA[x]]>u<b><![CDATA[y]]></b></a>",
        "<!DOCTYPE a><a><?pi x?></a>", "<?xml version='1.0'?><a/>",
        "<?xml version='1.0' encoding='ISO-8859-1'?><a>\xE4</a>",
        "<?xml version='1.0' standalone='no'?><a>\xC3\xA4 &#x41; &#65; &amp;#x41; &amp;#xg;</a>",
        "\xEF\xBB\xBF<a>x</a>", "<a/><b/>", "<a>&#x01;&#x1f;&#x7f;</a>",
        "<a><b><c><d>1</d><d>2</d></c></b></a>", "<a> a  b <b>c</b> d </a>"}) {
    SCOPED_TRACE(text);
    dir.write("in", text);
    TiXmlDocument bare;
    ASSERT_TRUE(bare.LoadFile(dir.file("in")));
    ASSERT_TRUE(bare.SaveFile(dir.file("bare")));
    ticpp::Document document;
    document.LoadFile(dir.file("in"));
    document.SaveFile(dir.file("ours"));
    EXPECT_EQ(dir.read("bare"), dir.read("ours"));
  }
}

TEST(SaveFile, KeepsTextsThatLookLikeReferences) {
  for (const std::string text :
       {"&#x41;", "&amp;", "&#x", "&#x4", "&#x41", "&#xg;", "&#x<b>", "&#x 41;", "x &#x12 y"}) {
    SCOPED_TRACE(text);
    const TempDir dir;
    const Loaded xml("<r/>");
    xml.root().SetText(text);
    xml.document.SaveFile(dir.file("x"));
    ticpp::Document again;
    again.LoadFile(dir.file("x"));
    EXPECT_EQ(text, again.FirstChildElement()->GetText());
  }
}

TEST(SaveFile, ReportsEachFailingCall) {
  const TempDir dir;
  const Loaded xml("<r/>");
  for (const char* call : {"fopen", "fflush", "fclose"}) {
    SCOPED_TRACE(call);
    const int before = support::open_descriptors();
    const Fault fault(call, EIO);
    EXPECT_EQ("Couldn't save " + dir.file("x") + ": Input/output error",
              thrown([&] { xml.document.SaveFile(dir.file("x")); }));
    EXPECT_EQ(EIO, errno);
    EXPECT_TRUE(fault.fired());
    EXPECT_EQ(before, support::open_descriptors());
  }
}

TEST(SaveFile, ReportsAFullDisk) {
  const Loaded small("<r/>");
  EXPECT_EQ("Couldn't save /dev/full: No space left on device",
            thrown([&] { small.document.SaveFile("/dev/full"); }));
  const Loaded big("<r>" + std::string(1000000, 'x') + "</r>");
  EXPECT_EQ("Couldn't save /dev/full: No space left on device",
            thrown([&] { big.document.SaveFile("/dev/full"); }));
}

TEST(SaveFile, RefusesWhatLoadFileWouldRefuseBeforeOpening) {
  const TempDir dir;
  dir.write("x", "old");
  const auto refusal = [&](const ticpp::Document& document) {
    const std::string what = thrown([&] { document.SaveFile(dir.file("x")); });
    EXPECT_EQ("old", dir.read("x"));
    return what;
  };
  const std::string start = "Couldn't save " + dir.file("x") + ": ";

  ticpp::Document deep;
  ticpp::Node* at = &deep;
  std::vector<Elements> handles;
  for (int i = 0; i < 1025; ++i) {
    handles.push_back(std::make_unique<ticpp::Element>("a"));
    at = at->LinkEndChild(handles.back().get());
  }
  EXPECT_EQ(start + "elements nested deeper than 1024", refusal(deep));

  const Loaded wide("<r/>");
  for (int i = 0; i < 257; ++i) wide.root().SetAttribute("a" + std::to_string(i), i);
  EXPECT_EQ(start + "more than 256 attributes on an element", refusal(wide.document));

  const Loaded cut("<?xml version='1.0'?><r/>");
  cut.root().SetText("x\xE2\x82");
  EXPECT_EQ(start + "a text ends inside a character", refusal(cut.document));

  const Loaded named("<r/>");
  ticpp::Element bad("a b");
  named.root().LinkEndChild(&bad);
  EXPECT_EQ(start + "'a b' is no name", refusal(named.document));
}

// The parser's own writer puts the values of a declaration out as they are.
TEST(SaveFile, RefusesADeclarationThatWouldNotBeReadBack) {
  const TempDir dir;
  for (const char* const value : {"'&#38;#x;'", "'1\"0'", "1\xEF\xBF"}) {
    const Loaded loaded(std::string("\xEF\xBB\xBF<?xml version=") + value + "><r/>");
    EXPECT_EQ("Couldn't save " + dir.file("x") + ": a declaration would not be read back",
              thrown([&] { loaded.document.SaveFile(dir.file("x")); }))
        << value;
  }
  EXPECT_TRUE(dir.list().empty());
}

TEST(SaveFile, WritesTheDeepestAndWidestThatLoads) {
  const Loaded deep(nested(1024));
  EXPECT_EQ("nothing", thrown([&] { Loaded again(deep.saved()); }));
  const Loaded wide(attributes(256));
  EXPECT_EQ("nothing", thrown([&] { Loaded again(wide.saved()); }));
}

TEST(SaveFile, WritesBytesAboveAsciiAsTheyAre) {
  const Loaded utf8("<?xml version='1.0'?><r/>");
  utf8.root().SetText("\xC3\xA4\x80\xFF");
  EXPECT_EQ("<?xml version=\"1.0\" ?>\n<r>\xC3\xA4\x80\xFF</r>\n", utf8.saved());
  const Loaded single_bytes("<r/>");
  single_bytes.root().SetText("x\xE2\x82");
  EXPECT_EQ("<r>x\xE2\x82</r>\n", single_bytes.saved());
}
