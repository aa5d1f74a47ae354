// SPDX-License-Identifier: MIT
// Documents written to files.
#include "tests/support/documents.h"
#include "tests/support/faults.h"

#include <errno.h>

#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tinyxml.h>

using namespace support;

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
  std::vector<std::unique_ptr<ticpp::Element>> handles;
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
  EXPECT_EQ(start + "'a b' is not a name", refusal(named.document));
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
