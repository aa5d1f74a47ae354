// SPDX-License-Identifier: MIT
// A list in the form that it is saved in is loaded without the XML parser: with the same outcome,
// and in less memory. A line feed after the declaration leaves a document as it is for the parser,
// but makes it another form.
#include "tests/support/allocations.h"
#include "tests/support/clock.h"
#include "tests/support/files.h"
#include "tests/support/trees.h"
#include "util/PropertyList.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <thread>

#include <gtest/gtest.h>

using namespace util;
using support::TempDir;
using support::TimeZone;

namespace {

constexpr char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF8\" standalone=\"yes\" ?>\n";

std::string another_form(std::string text) {
  return text.insert(std::min(sizeof kDeclaration - 1, text.size()), "\n");
}

// Loads texts in one file.
class Loader {
 public:
  // The list; one with the failure's text alone if it cannot be loaded.
  value_struct load(const std::string& text) {
    unlink(dir_.file("x").c_str());  // some disks write at once what is emptied in place
    dir_.write("x", text);
    PropertyList list(dir_.file("x"));
    try {
      list.load();
    } catch (const malformed_property_list& e) {
      return {
          {"failure", e.what()}
      };
    }
    return list.getProperties();
  }

  void expect_same(const std::string& text) {
    const Value quick(load(text));
    const Value parsed(load(another_form(text)));
    EXPECT_TRUE(support::same(quick, parsed)) << text << quick << "\n" << parsed;
  }

 private:
  const TempDir dir_;
};

std::string document(const std::string& dict) {
  return kDeclaration + ("<plist version=\"1.0\">\n    <dict>" + dict + "</dict>\n</plist>\n");
}

// A value of each kind, in each form that is written.
std::string saved_list() {
  const TempDir dir;
  PropertyList list(dir.file("x"));
  list["array"] = value_array{Value(1), Value(-20), Value(true), Value(false)};
  list["bytes"] = byte_string{1, 2, 3};
  list["date"] = utime_t{1209650639000};
  list["empty"] = value_array{Value(value_array()), Value(value_struct()), Value(byte_string())};
  list["real"] = value_array{Value(0.5), Value(1e30), Value(0.1 + 0.2)};
  list["text"] = value_array{Value("two words"), Value(""), Value(" <a> "), Value("<a> & \"b\"\n")};
  list["\xC3\xBC \xE2\x82\xAC"] = "\xF0\x9F\x93\x81 \xE9";
  list.saveDurably();
  return dir.read("x");
}

}  // namespace

TEST(SavedForm, IsLoadedInFewerAllocationsThanTheParserNeeds) {
  const std::string text = saved_list();
  Loader loader;
  const auto allocated = [&loader](const std::string& loaded) {
    const long before = support::allocations();
    EXPECT_EQ(7U, loader.load(loaded).size());
    return support::allocations() - before;
  };
  EXPECT_LT(2 * allocated(text), allocated(another_form(text)));
}

TEST(SavedForm, GivesWhatTheParserGives) {
  const TimeZone zone("UTC");
  Loader loader;
  for (const std::string dict : {
           "",
           "<key>a</key><string>b</string>",
           "\n\t <key>a</key> \n<string>b</string>\t",
           "<key>a</key><integer>1</integer><key>a</key><integer>2</integer>",
           "<key>b</key><true/><key>a</key><false/>",
           "<key>a</key><dict></dict><key>b</key><array></array>",
           "<key>a</key><string>a &lt;&gt;&amp;&quot;&apos;&#x0A;&#x1;&#x7f;</string>",
           "<key>a</key><string>a &#x80;&#x100;&#65;&#x;&#x00;b</string>",
           "<key>a</key><string>a&nbsp;b & c</string>",
           "<key>a</key><string>a > b \"' ; ]]></string>",
           "<key>a</key><string> a  b </string>",
           "<key>a</key><string>a\nb</string>",
           "<key>a</key><string>a\r\nb</string>",
           "<key>a</key><string>\xEF\xBB\xBF"
           "a</string>",
           "<key>a</key><string>a \xEF\xBB\xBF</string>",
           "<key>a</key><string>a\xC3</string>",
           "<key>a</key><string><![CDATA[]]></string>",
           "<key>a</key><string><![CDATA[ ]] > <b> & \n ]]></string>",
           "<key>a</key><string><![CDATA[a\r\nb]]></string>",
           "<key>a</key><string><![CDATA[a]]>b</string>",
           "<key><![CDATA[ ]]></key><true />",
           "<key>a</key><integer>-0012</integer><key>b</key><real>-1.5e-3</real>",
           "<key>a</key><integer>12abc</integer><key>b</key><real>1,5</real>",
           "<key>a</key><integer> +5 </integer><key>b</key><real> 5 </real>",
           "<key>a</key><date>1970-01-01T00:00:00Z</date>",
           "<key>a</key><date>2008-02-30T14:03:59Z and more</date>",
           "<key>a</key><data>AQ ID</data><key>b</key><data>%%%%</data>",
           "<!-- a --><key>a</key><true />",
           "<key x=\"1\">a</key><true />",
           // refused
           "<key>a</key>",
           "<key></key><true />",
           "<string>a</string>",
           "<key>a</key><string></string>",
           "<key>a</key><string />",
           "<key>a</key><integer>x</integer>",
           "<key>a</key><integer>99999999999</integer>",
           "<key>a</key><real>inf</real>",
           "<key>a</key><true>x</true>",
           "<key>a</key><date>2008-13-45</date>",
           "<key>a</key><data></data>",
           "<key>a</key><other />",
           "<key>a</key><array><true /></dict>",
           "<key>a</key><string><![CDATA[a</string>",
           "<key>a</key><string>a",
       }) {
    loader.expect_same(document(dict));
  }
}

TEST(SavedForm, IsLeftToTheParserIfAnyByteDiffers) {
  const std::string text = saved_list();
  Loader loader;
  for (size_t i = 0; i < text.size(); ++i) {
    for (const char c : {'\0', '\r', ' ', '<', '&', '\xEF'}) {
      std::string changed = text;
      changed[i] = c;
      loader.expect_same(changed);
    }
  }
}

TEST(SavedForm, IsLeftToTheParserBeyondTheDepthLimit) {
  Loader loader;
  for (const int depth : {1022, 1023, 1024, 100000}) {
    std::string text = "<key>a</key>";
    for (int i = 1; i < depth; ++i) text += "<array>";
    text += "<true />";
    for (int i = 1; i < depth; ++i) text += "</array>";
    const value_struct list = loader.load(document(text));
    EXPECT_EQ(depth <= 1022 ? 1U : 0U, list.count("a")) << depth;
  }
}

TEST(SavedForm, EndsAtANulByte) {
  Loader loader;
  const std::string nul(1, '\0');
  EXPECT_EQ(7U, loader.load(saved_list() + nul + "<" + nul).size());
}

// A pipe can be read only once.
TEST(SavedForm, IsLoadedFromAPipeToo) {
  const TempDir dir;
  ASSERT_EQ(0, mkfifo(dir.file("x").c_str(), 0600));
  const std::string text = saved_list();
  for (const std::string& form : {text, another_form(text)}) {
    std::thread writer([&] { std::ofstream(dir.file("x")) << form; });
    PropertyList list(dir.file("x"));
    list.load();
    writer.join();
    EXPECT_EQ(7U, list.getProperties().size());
  }
}
