// SPDX-License-Identifier: MIT
// Documents read from files, good and hostile.
#include "tests/support/documents.h"
#include "tests/support/faults.h"

#include <errno.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iterator>
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tinyxml.h>

using namespace support;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

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

}  // namespace

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

// Blanks before markup are taken out before the parser sees the text.
TEST(LoadFile, KeepsTheBlanksThatTheParserKeeps) {
  for (const bool condensing : {true, false}) {
    TiXmlBase::SetCondenseWhiteSpace(condensing);
    for (const std::string text :
         {" <a> b \n <c/> d <e> </e>\n</a> ", "<a>\n <![CDATA[ <b> \n <c> ]]>\n </a>",
          "<a b=' > <c> '\n d='  '>\n <e\n/> </a>", "<!-- > <b>  <c -->\n<a/>\n<!-- d -->",
          "<?xml version='1.0' ?>\n <!DOCTYPE a [ <b > ]>\n <a/>", "<a> \xEF\xBB\xBF <b/></a>",
          "\xEF\xBB\xBF <a> \xEF\xBB\xBF <b/> \xEF\xBB\xBF c</a>", "<a> &lt; <b/> &#32; </a>"}) {
      const Loaded loaded(text);
      TiXmlDocument bare;
      bare.Parse(text.c_str());
      ASSERT_TRUE(bare.SaveFile(loaded.file()));
      EXPECT_EQ(read_file(loaded.file()), loaded.saved());
    }
  }
  TiXmlBase::SetCondenseWhiteSpace(true);
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
