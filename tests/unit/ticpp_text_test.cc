// SPDX-License-Identifier: MIT
// Texts and attributes, read and set.
#include "tests/support/documents.h"

#include <clocale>
#include <cmath>
#include <limits>
#include <locale>
#include <random>
#include <sstream>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace support;
using testing::StartsWith;

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
  const std::pair<const char*, int> rows[] = {
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
  for (const auto& [text, expected] : rows) {
    SCOPED_TRACE(text);
    int value = 99;
    Loaded("<r>" + std::string(text) + "</r>").root().GetText(&value);
    EXPECT_EQ(expected, value);
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
  const std::pair<const char*, double> rows[] = {
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
  for (const auto& [text, expected] : rows) {
    SCOPED_TRACE(text);
    double value = 99;
    Loaded("<r>" + std::string(text) + "</r>").root().GetText(&value);
    EXPECT_EQ(expected, value);
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
  const std::pair<double, const char*> rows[] = {
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
  for (const auto& [value, text] : rows) {
    SCOPED_TRACE(text);
    ticpp::Element e("e");
    e.SetText(value);
    EXPECT_EQ(text, e.GetText());
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
