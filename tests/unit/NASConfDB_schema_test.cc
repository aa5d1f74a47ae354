// SPDX-License-Identifier: MIT
// Keeps the schema of the configuration document and its reader from drifting apart: every document
// here is given to both. Where they differ, the reason stands beside it.
#include "tests/support/files.h"
#include "util/NASConfDB.h"

#include <stdio.h>

#include <iterator>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <ticpp.h>

using support::TempDir;
using util::NASConfDB;

namespace {

constexpr char kSchema[] = NASUTIL_SOURCE_DIR "/share/nas_conf_db.rng";

using Lines = std::vector<std::string>;

// Every element that there is, one a line.
const Lines kDocument = {
    "<nas_conf_db>",
    "<version>3</version>",
    "<system>",
    "<timeformat>24h</timeformat>",
    "<hostname>nas</hostname>",
    "<domain>local</domain>",
    "<language>en</language>",
    "<dhcpenabled>true</dhcpenabled>",
    "<timezone>UTC</timezone>",
    "<printenabled>false</printenabled>",
    "<webgui>",
    "<adminpasswd>secret</adminpasswd>",
    "<protocol>tls</protocol>",
    "</webgui>",
    "<hdparams>",
    "<disk>",
    "<device>sda</device>",
    "<inactivityperiod>20</inactivityperiod>",
    "<lastselftest>0</lastselftest>",
    "</disk>",
    "</hdparams>",
    "<platform>p1</platform>",
    "<drives>1</drives>",
    "</system>",
    "<interfaces>",
    "<lan>",
    "<if>eth0</if>",
    "<ipaddr>192.168.0.2</ipaddr>",
    "<netmask>255.255.255.0</netmask>",
    "<rand_ip>169.254.1.1</rand_ip>",
    "</lan>",
    "</interfaces>",
    "<mounts>",
    "<mount>",
    "<device>/dev/sda1</device>",
    "<fstype>ext3</fstype>",
    "<mountpoint>/data</mountpoint>",
    "<options>ro</options>",
    "</mount>",
    "</mounts>",
    "<samba>",
    "<netbiosname>NAS</netbiosname>",
    "<workgroup>WORKGROUP</workgroup>",
    "<serverdesc>files</serverdesc>",
    "<localmaster>yes</localmaster>",
    "</samba>",
    "<shares>",
    "<share>",
    "<sharename>music</sharename>",
    "<sharetype>public</sharetype>",
    "<sharestatus>active</sharestatus>",
    "<sharelocation>internal_share</sharelocation>",
    "<access>",
    "<users>",
    "<user>",
    "<username>guest</username>",
    "<accesstype>full</accesstype>",
    "</user>",
    "</users>",
    "</access>",
    "</share>",
    "</shares>",
    "<access>",
    "<users>",
    "<user>",
    "<username>guest</username>",
    "<uid>1001</uid>",
    "</user>",
    "</users>",
    "</access>",
    "</nas_conf_db>",
};

std::string joined(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

std::string name_of(const std::string& line) { return line.substr(1, line.find('>') - 1); }
bool ends(const std::string& line) { return line[1] == '/'; }
bool holds_text(const std::string& line) { return !ends(line) && line.find('/') < line.npos; }

std::string text_element(const std::string& name, const std::string& text) {
  return "<" + name + ">" + text + "</" + name + ">";
}

using Line = Lines::const_iterator;

// Behind the element that begins at `line`.
Line end_of(Line line) {
  int depth = 0;
  do {
    if (!holds_text(*line)) depth += ends(*line) ? -1 : 1;
    ++line;
  } while (depth > 0);
  return line;
}

// The document with `lines` in place of the element that begins at `line`.
std::string with(Line line, const Lines& lines) {
  return joined({kDocument.begin(), line}) + joined(lines) +
         joined({end_of(line), kDocument.end()});
}

struct Changed {
  std::string name;  // of the element in which the document was changed
  std::string text;  // of the document
};

// A document for each element but the root, changed by `change`, which is given the element's lines
// and returns others.
template <class Change>
std::vector<Changed> each_element(Change change) {
  std::vector<Changed> all;
  for (Line line = kDocument.begin() + 1; line != kDocument.end(); ++line) {
    if (ends(*line)) continue;
    all.push_back({name_of(*line), with(line, change(Lines(line, end_of(line))))});
  }
  return all;
}

// A document for each element that holds a text, or for those of these names, with another text.
std::vector<Changed> each_text(const std::string& text, const std::set<std::string>& names = {}) {
  std::vector<Changed> all;
  for (Line line = kDocument.begin(); line != kDocument.end(); ++line) {
    const std::string name = name_of(*line);
    if (!holds_text(*line) || (!names.empty() && names.count(name) == 0)) continue;
    all.push_back({name, with(line, {text_element(name, text)})});
  }
  return all;
}

bool reader_accepts(const std::string& text) {
  const TempDir dir;
  dir.write("conf.xml", text);
  try {
    const NASConfDB database(dir.file("conf.xml"));
    return true;
  } catch (const ticpp::Exception&) {
    return false;
  }
}

struct ClosePipe {
  void operator()(FILE* pipe) const { pclose(pipe); }
};

std::string output_of(const std::string& command) {
  const std::unique_ptr<FILE, ClosePipe> pipe(popen((command + " 2>&1").c_str(), "r"));
  std::string text;
  for (int c = 0; pipe != nullptr && (c = fgetc(pipe.get())) != EOF;) {
    text.push_back(static_cast<char>(c));
  }
  return text;
}

// One verdict a document, from one run of xmllint.
std::vector<bool> schema_accepts(const std::vector<std::string>& texts) {
  const TempDir dir;
  std::string command = "xmllint --noout --relaxng '" + std::string(kSchema) + "'";
  for (size_t i = 0; i < texts.size(); ++i) {
    dir.write(std::to_string(i), texts[i]);
    command += " '" + dir.file(std::to_string(i)) + "'";
  }
  const std::string output = "\n" + output_of(command);
  std::vector<bool> verdicts;
  for (size_t i = 0; i < texts.size(); ++i) {
    const std::string file = "\n" + dir.file(std::to_string(i));
    const bool accepted = output.find(file + " validates\n") != std::string::npos;
    const bool refused = output.find(file + " fails to validate\n") != std::string::npos ||
                         output.find(file + ":") != std::string::npos;
    if (accepted == refused) ADD_FAILURE() << "no verdict on\n" << texts[i] << "\nfrom" << output;
    verdicts.push_back(accepted);
  }
  return verdicts;
}

bool schema_accepts(const std::string& text) { return schema_accepts(Lines{text}).front(); }

using Names = std::multiset<std::string>;

// Names of the elements where only the reader accepts the changed document, with the repetitions.
Names accepted_by_reader_alone(const std::vector<Changed>& documents) {
  Lines texts;
  for (const Changed& document : documents) texts.push_back(document.text);
  const std::vector<bool> accepted = schema_accepts(texts);
  Names names;
  for (size_t i = 0; i < documents.size(); ++i) {
    const bool read = reader_accepts(texts[i]);
    if (read && !accepted[i]) names.insert(documents[i].name);
    EXPECT_TRUE(read || !accepted[i]) << "accepted by the schema alone:\n" << texts[i];
  }
  return names;
}

Names names_in(const std::string& text, const std::string& pattern) {
  const std::regex each(pattern);
  Names names;
  for (std::sregex_iterator match(text.begin(), text.end(), each), end; match != end; ++match) {
    names.insert((*match)[1]);
  }
  return names;
}

}  // namespace

TEST(NASConfDBSchema, BothAcceptTheWholeDocument) {
  EXPECT_TRUE(reader_accepts(joined(kDocument)));
  EXPECT_TRUE(schema_accepts(joined(kDocument)));
}

TEST(NASConfDBSchema, BothAcceptTheSmallestDocument) {
  const std::string text = "<nas_conf_db><version>3</version><system/></nas_conf_db>";
  EXPECT_TRUE(reader_accepts(text));
  EXPECT_TRUE(schema_accepts(text));
}

// The names in the schema, in the document of this test and in the reader's traces are the same,
// as often. The trace of the version shows no name, the root has none.
TEST(NASConfDBSchema, BothKnowTheSameElements) {
  const Names in_schema = names_in(support::read_file(kSchema), "<element name=\"([^\"]*)\"");
  EXPECT_EQ(in_schema, names_in(joined(kDocument), "<([^/>]*)>"));

  const TempDir dir;
  dir.write("conf.xml", joined(kDocument));
  __g_util_NASConfDB_debug = 2;
  support::Captured out(stdout);
  const NASConfDB database(dir.file("conf.xml"));
  __g_util_NASConfDB_debug = 0;
  Names in_traces = names_in(out.text(), "read (?:[a-z.]*\\.)?([a-z_]*) element0x");
  in_traces.insert({"nas_conf_db", "version"});
  EXPECT_EQ(in_schema, in_traces);
}

TEST(NASConfDBSchema, BothRequireTheSameElements) {
  EXPECT_EQ(Names(), accepted_by_reader_alone(each_element([](const Lines&) { return Lines(); })));
}

TEST(NASConfDBSchema, BothRequireTheSameTexts) {
  EXPECT_EQ(Names(), accepted_by_reader_alone(each_text("")));
  EXPECT_EQ(Names(), accepted_by_reader_alone(each_text(" \n ")));
}

TEST(NASConfDBSchema, BothAcceptEmptyContainers) {
  EXPECT_EQ(Names(), accepted_by_reader_alone(each_element([](const Lines& element) {
              return element.size() == 1 ? element : Lines{element.front(), element.back()};
            })));
}

TEST(NASConfDBSchema, BothAcceptAnyOrder) {
  for (const char* const text :
       {"<nas_conf_db><access/><system/><shares/><version>1</version></nas_conf_db>",
        "<nas_conf_db><system><drives>1</drives><hdparams><disk><lastselftest>1</lastselftest>"
        "<inactivityperiod>1</inactivityperiod><device>a</device></disk></hdparams>"
        "<domain>a</domain></system><version>1</version></nas_conf_db>",
        "<nas_conf_db><version>1</version><system/><access><users><user><uid>1</uid>"
        "<username>a</username></user></users></access><shares><share><access><users><user>"
        "<accesstype>full</accesstype><username>a</username></user></users></access>"
        "<sharename>a</sharename></share></shares></nas_conf_db>"}) {
    EXPECT_TRUE(reader_accepts(text));
    EXPECT_TRUE(schema_accepts(text)) << text;
  }
}

const std::set<std::string> kNumbers = {"version", "inactivityperiod", "lastselftest", "uid"};

TEST(NASConfDBSchema, BothAcceptTheSameNumbers) {
  const std::pair<const char*, bool> rows[] = {
      {"0",                    true },
      {"-1",                   true },
      {"+1",                   true },
      {" 7 ",                  true },
      {"2147483647",           true },
      {"-2147483648",          true },
      {"x",                    false},
      {"-",                    false},
      {"2147483648",           false},
      {"-2147483649",          false},
      {"99999999999999999999", false},
  };
  for (const auto& [text, accepted] : rows) {
    const std::vector<Changed> documents = each_text(text, kNumbers);
    EXPECT_EQ(kNumbers.size(), documents.size());
    for (const Changed& document : documents) {
      EXPECT_EQ(accepted, reader_accepts(document.text)) << document.name << text;
      EXPECT_EQ(accepted, schema_accepts(document.text)) << document.name << text;
    }
  }
}

TEST(NASConfDBSchema, BothAcceptEveryKnownWord) {
  const std::pair<const char*, const char*> rows[] = {
      {"dhcpenabled",   "true"          },
      {"dhcpenabled",   "false"         },
      {"printenabled",  "true"          },
      {"printenabled",  "false"         },
      {"localmaster",   "yes"           },
      {"localmaster",   "no"            },
      {"sharetype",     "public"        },
      {"sharetype",     "private"       },
      {"sharestatus",   "active"        },
      {"sharestatus",   "suspended"     },
      {"sharelocation", "internal_share"},
      {"sharelocation", "external_share"},
      {"accesstype",    "full"          },
      {"accesstype",    "readonly"      },
  };
  for (const auto& [element, word] : rows) {
    const std::string text = each_text(word, {element}).at(0).text;
    EXPECT_TRUE(reader_accepts(text)) << element << word;
    EXPECT_TRUE(schema_accepts(text)) << element << word;
  }
}

// ---- documents that only the reader accepts ----

// It takes words that it does not know for false, or the enumerator 0; so a misspelt word goes
// unnoticed.
TEST(NASConfDBSchema, OnlyTheReaderAcceptsUnknownWords) {
  EXPECT_EQ((Names{"accesstype", "dhcpenabled", "localmaster", "printenabled", "sharelocation",
                   "sharestatus", "sharetype"}),
            accepted_by_reader_alone(each_text("Word")));
}

// It reads a number from the start of the text and leaves the rest.
TEST(NASConfDBSchema, OnlyTheReaderAcceptsNumbersWithSomethingBehind) {
  for (const char* const text : {"20min", "20.5", "1 2", "0x10"}) {
    EXPECT_EQ(Names(kNumbers.begin(), kNumbers.end()),
              accepted_by_reader_alone(each_text(text, kNumbers)))
        << text;
  }
}

// It skips elements that it does not know; so a misspelt name goes unnoticed, unless the element is
// required.
TEST(NASConfDBSchema, OnlyTheReaderAcceptsUnknownElements) {
  const std::vector<Changed> documents = each_element([](Lines element) {
    element.insert(element.begin(), "<unknown/>");
    return element;
  });
  EXPECT_EQ(documents.size(), accepted_by_reader_alone(documents).size());
}

// It ignores attributes.
TEST(NASConfDBSchema, OnlyTheReaderAcceptsAttributes) {
  const std::vector<Changed> documents = each_element([](Lines element) {
    element.front().insert(element.front().find('>'), " id=\"1\"");
    return element;
  });
  EXPECT_EQ(documents.size(), accepted_by_reader_alone(documents).size());
}

// It reads the first one only, unless a list is made of them; so what stands in the second one goes
// unnoticed.
TEST(NASConfDBSchema, OnlyTheReaderAcceptsASecondElement) {
  const std::vector<Changed> documents = each_element([](Lines element) {
    const Lines once = element;
    element.insert(element.end(), once.begin(), once.end());
    return element;
  });
  Names not_in_lists;
  for (const Changed& document : documents) not_in_lists.insert(document.name);
  for (const char* const name : {"disk", "lan", "mount", "share", "user"}) not_in_lists.erase(name);
  EXPECT_EQ(not_in_lists, accepted_by_reader_alone(documents));
}

TEST(NASConfDBSchema, OnlyTheReaderAcceptsTheseToo) {
  const auto reader_alone = [&](const char* text, const char* reason) {
    EXPECT_TRUE(reader_accepts(text)) << reason;
    EXPECT_FALSE(schema_accepts(text)) << reason;
  };
  reader_alone("<nas_conf_db><version>1</version><system/></nas_conf_db><other/>",
               "the parser under the reader allows a second root");
  reader_alone("<other/><nas_conf_db><version>1</version><system/></nas_conf_db>",
               "nor need the first root be the one it looks for");
  reader_alone(
      "<nas_conf_db><version>1</version><system><hostname>a&b</hostname></system></nas_conf_db>",
      "the parser takes an ampersand that begins no reference as it is");
  reader_alone(
      "<nas_conf_db><version>1</version><system><hostname>a\x01</hostname></system></nas_conf_db>",
      "control bytes are no XML, but come through the parser");
  reader_alone(
      "<nas_conf_db><version>1</version><system><hostname>\xff</hostname></system></nas_conf_db>",
      "nor does the parser ask for valid UTF-8");
  reader_alone("<nas_conf_db><version>1</version><system>text</system></nas_conf_db>",
               "texts between elements are skipped");
  reader_alone(
      "<nas_conf_db><version>1</version><system><hostname>a<b/></hostname></system></nas_conf_db>",
      "so are elements behind a text");
  reader_alone(
      "<nas_conf_db><version>1</version><system><hostname><![CDATA[ ]]></hostname></system>"
      "</nas_conf_db>",
      "blanks in a section are a text");
}

// ---- documents that only the schema accepts ----

TEST(NASConfDBSchema, OnlyTheSchemaAcceptsThese) {
  const std::pair<const char*, const char*> rows[] = {
      {"<nas_conf_db><version>1</version><system><hostname><!-- c -->a</hostname></system>"
       "</nas_conf_db>", "the reader's text must be the first child; a comment is a child"},
      {"<!DOCTYPE nas_conf_db [<!ENTITY one '1'> ]><nas_conf_db><version>1</version><system/>"
       "</nas_conf_db>", "the parser ends a document type at its first '>'"               },
  };
  for (const auto& [text, reason] : rows) {
    EXPECT_FALSE(reader_accepts(text)) << reason;
    EXPECT_TRUE(schema_accepts(text)) << reason;
  }
}
