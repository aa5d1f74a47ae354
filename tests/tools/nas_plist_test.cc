// SPDX-License-Identifier: MIT
// nas-plist, run as a child on real files.
#include "tests/support/clock.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"

#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

using support::ended;
using support::Outcome;
using support::TempDir;

namespace {

using Words = std::vector<std::string>;

Outcome nas_plist(const Words& arguments, const std::string& input = "",
                  const std::string& output = "") {
  Words command = {TOOL};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return support::run(command, input, output);
}

// A file with this dictionary, as the library writes it.
std::string list(const std::string& entries) {
  return "<?xml version=\"1.0\" encoding=\"UTF8\" standalone=\"yes\" ?>\n<plist version=\"1.0\">\n"
         "    <dict>\n" +
         entries + "    </dict>\n</plist>\n";
}

std::string pair(const std::string& key, const std::string& value) {
  return "        <key>" + key + "</key>\n        " + value + "\n";
}

// A file with one entry, "a".
std::string list_of(const std::string& value) { return list(pair("a", value)); }

const std::string kMany = list(R"(
  <key>a date</key><date>2008-05-01T14:03:59Z</date>
  <key>b</key><true/><key>c</key><false/>
  <key>d</key><integer>-42</integer>
  <key>e</key><real>0.5</real><key>f</key><real>2</real><key>g</key><real>1e+06</real>
  <key>h</key><string>it's "x"&#10;\</string>
  <key>i</key><data>AQID</data><key>j</key><data>=</data>
  <key>k</key><dict><key>z</key><dict/><key>y/</key><array/></dict>
  <key>l</key><array><string>one</string><array><integer>1</integer></array></array>
)");

using NasPlistCheck = support::InFolder;
using NasPlistDiff = support::InFolder;
using NasPlistImport = support::InFolder;
using NasPlistSet = support::InFolder;

}  // namespace

// ---- show ----

TEST(NasPlistShow, PrintsAnOutline) {
  const TempDir dir;
  dir.write("p", kMany);
  EXPECT_EQ(ended(0, R"("a date": date 2008-05-01T14:03:59Z
b: true
c: false
d: -42
e: 0.5
f: 2.0
g: 1e+06
h: "it's \"x\"\n\\"
i: data AQID
j: data 
k:
  "y/": []
  z: {}
l:
  [0]: "one"
  [1]:
    [0]: 1
)"),
            nas_plist({"show", dir.file("p")}));
}

TEST(NasPlistShow, PrintsNothingOfAnEmptyList) {
  EXPECT_EQ(ended(0), nas_plist({"show", "-"}, list("")));
}

TEST(NasPlistShow, ReadsStandardInput) {
  EXPECT_EQ("a: 1\n", nas_plist({"show", "-"}, list_of("<integer>1</integer>")).out);
}

TEST(NasPlistShow, PrintsDatesAsTheFileHasThem) {
  const support::TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  const std::string file = list_of("<date>2008-07-01T14:03:59Z</date>");
  EXPECT_EQ("a: date 2008-07-01T14:03:59Z\n", nas_plist({"show", "-"}, file).out);
}

TEST(NasPlistShow, EscapesControlBytes) {
  const std::string file = list(pair("k&#27;", "<string>a&#27;[31m\xFF%s\xC3\xBC</string>"));
  EXPECT_EQ("\"k\\x1B\": \"a\\x1B[31m\\xFF%s\xC3\xBC\"\n", nas_plist({"show", "-"}, file).out);
}

TEST(NasPlistShow, ReadsTheBackupOfAMissingFileAndSaysSo) {
  const TempDir dir;
  dir.write("p~", list_of("<integer>1</integer>"));
  const Outcome got = nas_plist({"show", dir.file("p")});
  const std::string file = dir.file("p");
  EXPECT_EQ("a: 1\n", got.out);
  EXPECT_EQ(
      "nas-plist: " + file + ": No such file or directory; its backup " + file + "~ was read\n",
      got.err);
  EXPECT_EQ(0, got.status);
}

TEST(NasPlist, ReportsAMissingFile) {
  const TempDir dir;
  const std::string file = dir.file("p");
  for (const char* command : {"show", "check", "js", "json", "set", "delete", "get"}) {
    SCOPED_TRACE(command);
    Words arguments = {command, file};
    if (arguments[0] == "set") arguments.insert(arguments.end(), {"a", "integer", "1"});
    if (arguments[0] == "delete" || arguments[0] == "get") arguments.emplace_back("a");
    EXPECT_EQ(ended(1, "", "nas-plist: " + file + ": No such file or directory\n"),
              nas_plist(arguments));
  }
  EXPECT_EQ(Words{}, dir.list());
}

TEST(NasPlist, ReportsAFullDisk) {
  for (const char* command : {"show", "js"}) {
    EXPECT_EQ(ended(1, "", "nas-plist: standard output: No space left on device\n"),
              nas_plist({command, "-"}, list_of("<true/>"), "/dev/full"));
  }
}

// ---- check ----

TEST_F(NasPlistCheck, IsSilentAboutAGoodList) {
  dir.write("p", list(pair("a", "<string>text</string>") + pair("b", "<real>0.25</real>")));
  EXPECT_EQ(ended(0), nas_plist({"check", dir.file("p")}));
}

TEST_F(NasPlistCheck, ListsWhatSaveWouldLose) {
  dir.write("p", list(pair("a", "<real>3.14159265</real>") +
                      pair("b", "<array><string>x</string><string>a&#32;&#32;b</string></array>")));
  const Outcome got = nas_plist({"check", dir.file("p")});
  const std::string start = "nas-plist: " + dir.file("p") + ": ";
  ASSERT_EQ(start + "a: ", got.err.substr(0, start.size() + 3));
  const std::string second = got.err.substr(got.err.find('\n') + 1);
  EXPECT_EQ(start + "b[1]: ", second.substr(0, start.size() + 6));
  EXPECT_EQ(second.size() - 1, second.find('\n'));
  EXPECT_EQ(0, got.status);
}

TEST_F(NasPlistCheck, SaysWhyAListDoesNotLoad) {
  const std::string file = dir.file("p");
  const std::pair<std::string, std::string> rows[] = {
      {"",                                  "load failed: Couldn't load " + file                  },
      {"<plist><dict",                      "load failed: Couldn't load " + file                  },
      {"<other/>",                          "load failed: "                                       },
      {"<plist><array/></plist>",
       "load failed: Element (plist) does NOT contain a child with the value of 'dict'"           },
      {list_of("<array><string/></array>"),
       "load failed: Text does not exists in the current element (/plist/dict/array/string, row 5"},
      {list_of("<integer>x</integer>"),
       "expected integer: Could not convert \"x\" to target type (/plist/dict/integer, row "      },
      {list_of("<true>x</true>"),           "malformed boolean: element true, row "               },
      {list_of("<text>x</text>"),           "unknown element: element text, row "                 },
      {list("<key>a</key>"),
       "expecting a key name, followed by a value element: element key, row "                     },
  };
  for (const auto& [content, message] : rows) {
    SCOPED_TRACE(content);
    dir.write("p", content);
    for (const char* command : {"check", "show", "js"}) {
      const Outcome got = nas_plist({command, file});
      const std::string expected = "nas-plist: " + file + ": " + message;
      EXPECT_EQ("", got.out);
      EXPECT_EQ(expected, got.err.substr(0, expected.size()));
      EXPECT_EQ(1, got.status);
    }
  }
}

TEST_F(NasPlistCheck, SaysThatAFolderIsNoList) {
  EXPECT_EQ(ended(1, "",
                  "nas-plist: " + dir.path() + ": load failed: Couldn't load " + dir.path() +
                      ": Is a directory\n"),
            nas_plist({"check", dir.path()}));
}

TEST_F(NasPlistCheck, NamesStandardInputInMessages) {
  EXPECT_EQ("nas-plist: standard input: load failed: Couldn't load standard input: ",
            nas_plist({"check", "-"}, "<plist").err.substr(0, 70));
}

// ---- js ----

TEST(NasPlistJs, PrintsALiteral) {
  EXPECT_EQ(ended(0, "{ 'n' : 5, 's' : 'it\\'s' }\n"),
            nas_plist({"js", "-"}, list(pair("n", "<integer>5</integer>") +
                                        pair("s", "<string>it's</string>"))));
}

TEST(NasPlistJs, PrintsAFunction) {
  EXPECT_EQ(
      ended(0, "function getStatus()\n{\n  return { 'n' : 5 };\n}\n"),
      nas_plist({"js", "--function", "getStatus", "-"}, list(pair("n", "<integer>5</integer>"))));
}

TEST(NasPlistJs, WarnsOfDates) {
  EXPECT_EQ(ended(0, "{ 'a' : [ 2008-05-01T14:03:59UTC ] }\n",
                  "nas-plist: standard input: dates are bare text, which no script can read\n"),
            nas_plist({"js", "-"}, list_of("<array><date>2008-05-01T14:03:59Z</date></array>")));
}

// ---- set ----

TEST_F(NasPlistSet, WritesEachType) {
  const std::pair<Words, std::string> rows[] = {
      {{"integer", "42"},                "<integer>42</integer>"            },
      {{"integer", "-5"},                "<integer>-5</integer>"            },
      {{"real", "0.5"},                  "<real>0.5</real>"                 },
      {{"real", "-1e-3"},                "<real>-0.001</real>"              },
      {{"string", "a <b>"},              "<string>a &lt;b&gt;</string>"     },
      {{"string", "--force"},            "<string>--force</string>"         },
      {{"boolean", "true"},              "<true />"                         },
      {{"boolean", "false"},             "<false />"                        },
      {{"date", "2008-05-01T14:03:59Z"}, "<date>2008-05-01T14:03:59Z</date>"},
      {{"date", "1970-01-01T00:00:00Z"}, "<date>1970-01-01T00:00:00Z</date>"},
      {{"data", "AQID"},                 "<data>AQID</data>"                },
      {{"dict"},                         "<dict />"                         },
      {{"array"},                        "<array />"                        },
  };
  for (const auto& [words, element] : rows) {
    SCOPED_TRACE(element);
    dir.write("p", list(pair("k", "<string>old</string>")));
    Words arguments = {"set", dir.file("p"), "k"};
    arguments.insert(arguments.end(), words.begin(), words.end());
    const Outcome got = nas_plist(arguments);
    EXPECT_EQ(list(pair("k", element)), dir.read("p"));
    EXPECT_EQ("", got.out);
    EXPECT_EQ("", got.err);
    EXPECT_EQ(0, got.status);
  }
}

TEST_F(NasPlistSet, KeepsTheOldListAsTheBackup) {
  const std::string old = list(pair("k", "<integer>1</integer>"));
  dir.write("p", old);
  EXPECT_EQ(0, nas_plist({"set", dir.file("p"), "k", "integer", "2"}).status);
  EXPECT_EQ(list(pair("k", "<integer>2</integer>")), dir.read("p"));
  EXPECT_EQ(old, dir.read("p~"));
  EXPECT_EQ((Words{"p", "p~"}), dir.list());
}

TEST_F(NasPlistSet, ChangesTheBackupOfAMissingFile) {
  dir.write("p~", list_of("<true />"));
  const Outcome got = nas_plist({"set", dir.file("p"), "b", "boolean", "true"});
  EXPECT_EQ(list(pair("a", "<true />") + pair("b", "<true />")), dir.read("p"));
  EXPECT_NE(std::string::npos, got.err.find("~ was read")) << got.err;
  EXPECT_EQ(0, got.status);
}

TEST_F(NasPlistSet, FollowsKeyPaths) {
  const std::pair<std::string, std::string> rows[] = {
      {"new",            "d:\n  a: 1\nl:\n  [0]: 1\n  [1]: 2\nnew: 7\n"            },
      {"d/a",            "d:\n  a: 7\nl:\n  [0]: 1\n  [1]: 2\n"                    },
      {"d/b/c",          "d:\n  a: 1\n  b:\n    c: 7\nl:\n  [0]: 1\n  [1]: 2\n"    },
      {"l[1]",           "d:\n  a: 1\nl:\n  [0]: 1\n  [1]: 7\n"                    },
      {"l[2]",           "d:\n  a: 1\nl:\n  [0]: 1\n  [1]: 2\n  [2]: 7\n"          },
      {"l[2]/x[0][0]",
       "d:\n  a: 1\nl:\n  [0]: 1\n  [1]: 2\n  [2]:\n    x:\n      [0]:\n"
       "        [0]: 7\n"                                                          },
      {"d",              "d: 7\nl:\n  [0]: 1\n  [1]: 2\n"                          },
      {R"(d/x\/\[0]\\)", "d:\n  a: 1\n  \"x/[0]\\\\\": 7\nl:\n  [0]: 1\n  [1]: 2\n"},
  };
  for (const auto& [key, outline] : rows) {
    SCOPED_TRACE(key);
    dir.write("p", list("<key>d</key><dict><key>a</key><integer>1</integer></dict><key>l</key>"
                        "<array><integer>1</integer><integer>2</integer></array>"));
    EXPECT_EQ(0, nas_plist({"set", dir.file("p"), key, "integer", "7"}).status);
    EXPECT_EQ(outline, nas_plist({"show", dir.file("p")}).out);
  }
}

TEST_F(NasPlistSet, RefusesKeysThatDoNotFit) {
  const std::string old = list(pair("n", "<integer>1</integer>") + pair("l", "<array />"));
  dir.write("p", old);
  const std::pair<std::string, std::string> rows[] = {
      {"n/a",  "n/a: n is not a dictionary"        },
      {"n[0]", "n[0]: n is not an array"           },
      {"l/a",  "l/a: l is not a dictionary"        },
      {"l[1]", "l[1]: the next element of l is [0]"},
  };
  for (const auto& [key, message] : rows) {
    SCOPED_TRACE(key);
    EXPECT_EQ(ended(1, "", "nas-plist: " + dir.file("p") + ": " + message + "\n"),
              nas_plist({"set", dir.file("p"), key, "integer", "7"}));
  }
  EXPECT_EQ(old, dir.read("p"));
  EXPECT_EQ(Words{"p"}, dir.list());
}

TEST_F(NasPlistSet, RefusesValuesThatAreNone) {
  const std::string old = list(pair("k", "<true />"));
  dir.write("p", old);
  const std::pair<std::string, std::string> rows[] = {
      {"integer", ""                     },
      {"integer", "1x"                   },
      {"integer", "2147483648"           },
      {"integer", "0x10"                 },
      {"integer", " 1"                   },
      {"real",    "nan"                  },
      {"real",    "inf"                  },
      {"real",    "1e999"                },
      {"real",    "0,5"                  },
      {"boolean", "yes"                  },
      {"date",    "2008-05-01"           },
      {"date",    "2008-02-30T00:00:00Z" },
      {"date",    ""                     },
      {"date",    "2008-05-01T14:03:59Z "},
      {"data",    "%%%%"                 },
  };
  for (const auto& [type, value] : rows) {
    SCOPED_TRACE(type + " " + value);
    EXPECT_EQ(
        ended(2, "",
              "nas-plist: '" + value + "' does not fit " + type + "\nTry 'nas-plist --help'.\n"),
        nas_plist({"set", dir.file("p"), "k", type, value}));
  }
  EXPECT_EQ(old, dir.read("p"));
}

TEST_F(NasPlistSet, RefusesATimeThatTheClockSkips) {
  const support::TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  dir.write("p", list(""));
  EXPECT_EQ(2, nas_plist({"set", dir.file("p"), "k", "date", "2008-03-30T02:30:00Z"}).status);
  EXPECT_EQ(0, nas_plist({"set", dir.file("p"), "k", "date", "2008-03-30T03:30:00Z"}).status);
}

TEST_F(NasPlistSet, KeepsWhatItIsGiven) {
  dir.write("p", list_of("<real>3.14159265</real>"));
  EXPECT_EQ(0, nas_plist({"set", dir.file("p"), "b", "string", "", "c", "string", " a  b ", "d",
                          "data", "", "e", "real", "0.1234567"})
                   .status);
  EXPECT_EQ("a: 3.14159265\nb: \"\"\nc: \" a  b \"\nd: data \ne: 0.1234567\n",
            nas_plist({"show", dir.file("p")}).out);
}

TEST_F(NasPlistSet, RefusesWhatNoFileCanHold) {
  const std::string old = list(pair("k", "<true />"));
  dir.write("p", old);
  const Outcome got = nas_plist({"set", dir.file("p"), "k", "string", " ]]>"});
  EXPECT_EQ("nas-plist: " + dir.file("p") + ": k: only a CDATA section",
            got.err.substr(0, dir.file("p").size() + 36));
  EXPECT_EQ(1, got.status);
  EXPECT_EQ(old, dir.read("p"));
  EXPECT_EQ(Words{"p"}, dir.list());
}

TEST_F(NasPlistSet, LosesNothingOfManyAtOnce) {
  dir.write("p", list(""));
  EXPECT_EQ(ended(0),
            support::run(
                {"/bin/bash", "-c",
                 "for i in {10..49}; do \"$0\" set \"$1\" k$i integer $i & processes+=($!); done\n"
                 "for one in ${processes[@]}; do wait $one || exit 1; done",
                 TOOL, dir.file("p")}));
  std::string expected;
  for (int i = 10; i < 50; ++i) {
    expected += "k" + std::to_string(i) + ": " + std::to_string(i) + "\n";
  }
  EXPECT_EQ(expected, nas_plist({"show", dir.file("p")}).out);
  EXPECT_EQ((Words{"p", "p~"}), dir.list());
}

TEST_F(NasPlistSet, ReportsAFailedSave) {
  const std::string old = list(pair("k", "<true />"));
  dir.write("p", old);
  mkdir(dir.file("p~").c_str(), 0700);
  dir.write("p~/x", "");
  const Outcome got = nas_plist({"set", dir.file("p"), "k", "boolean", "false"});
  const std::string start = "nas-plist: " + dir.file("p") + ": ";
  EXPECT_EQ(start, got.err.substr(0, start.size()));
  EXPECT_EQ(1, got.status);
  EXPECT_EQ(old, dir.read("p"));
}

TEST_F(NasPlistSet, DoesNotWriteMessagesIntoTheList) {
  dir.write("p", list_of("<real>3.14159265</real>"));
  const Outcome got = support::run(
      {"/bin/sh", "-c",
       std::string("exec '") + TOOL + "' set '" + dir.file("p") + "' k boolean true <&- >&- 2>&-"});
  EXPECT_EQ(list(pair("a", "<real>3.14159265</real>") + pair("k", "<true />")), dir.read("p"));
}

TEST_F(NasPlistSet, SetsSeveralInOneSave) {
  const std::string old = list(pair("k", "<true />"));
  dir.write("p", old);
  EXPECT_EQ(ended(0), nas_plist({"set", dir.file("p"), "a", "dict", "a/n", "integer", "-1", "l",
                                 "array", "l[0]", "string", "--help"}));
  EXPECT_EQ("a:\n  n: -1\nk: true\nl:\n  [0]: \"--help\"\n",
            nas_plist({"show", dir.file("p")}).out);
  EXPECT_EQ(old, dir.read("p~"));
}

TEST_F(NasPlistSet, SetsNoneWhereOneDoesNotFit) {
  const std::string old = list(pair("k", "<true />"));
  dir.write("p", old);
  const std::string file = dir.file("p");
  EXPECT_EQ(1, nas_plist({"set", file, "a", "integer", "1", "k/x", "integer", "1"}).status);
  EXPECT_EQ(2, nas_plist({"set", file, "a", "integer", "1", "b", "integer", "x"}).status);
  EXPECT_EQ(old, dir.read("p"));
  EXPECT_EQ(Words{"p"}, dir.list());
}

TEST_F(NasPlistSet, LeavesTheFileAloneWhileAnotherChangesIt) {
  const std::string file = dir.file("p");
  dir.write("p", list(""));
  EXPECT_EQ(
      ended(0),
      support::run({"/bin/bash", "-c",
                    "exec 9>\"$1.lock\" && flock 9 && { \"$0\" set \"$1\" a integer 1 9>&- & } &&\n"
                    "sleep 0.1 && \"$0\" show \"$1\" && flock -u 9 && wait",
                    TOOL, file}));
  EXPECT_EQ("a: 1\n", nas_plist({"show", file}).out);
}

// ---- delete ----

TEST(NasPlistDelete, RemovesValuesInOneSave) {
  const TempDir dir;
  const std::string old = list(
      "<key>a</key><integer>1</integer><key>l</key><array>"
      "<integer>1</integer><integer>2</integer></array>");
  dir.write("p", old);
  EXPECT_EQ(ended(0), nas_plist({"delete", dir.file("p"), "a", "l[0]"}));
  EXPECT_EQ("l:\n  [0]: 2\n", nas_plist({"show", dir.file("p")}).out);
  EXPECT_EQ(old, dir.read("p~"));
}

TEST(NasPlistDelete, RemovesNoneWhereOneIsMissing) {
  const TempDir dir;
  const std::string old = list_of("<true />");
  dir.write("p", old);
  EXPECT_EQ(ended(1, "", "nas-plist: " + dir.file("p") + ": b/c: there is no such value\n"),
            nas_plist({"delete", dir.file("p"), "a", "b/c"}));
  EXPECT_EQ(old, dir.read("p"));
}

// ---- get ----

TEST(NasPlistGet, PrintsRawTextOrTheType) {
  const TempDir dir;
  dir.write("p",
            list(R"(<key>a</key><string>it's "x"&#10;\</string><key>d</key><integer>-42</integer>
      <key>e</key><real>2</real><key>f</key><real>0.1</real><key>g</key><true/>
      <key>h</key><date>2008-05-01T14:03:59Z</date><key>i</key><data>AQID</data>
      <key>k</key><dict><key>z</key><array><string>deep</string></array></dict>)"));
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"a",      "it's \"x\"\n\\\n",       "string\n" },
      {"d",      "-42\n",                  "integer\n"},
      {"e",      "2\n",                    "real\n"   },
      {"f",      "0.1\n",                  "real\n"   },
      {"g",      "true\n",                 "boolean\n"},
      {"h",      "2008-05-01T14:03:59Z\n", "date\n"   },
      {"i",      "AQID\n",                 "data\n"   },
      {"k/z[0]", "deep\n",                 "string\n" },
  };
  for (const auto& [path, text, type] : rows) {
    SCOPED_TRACE(path);
    EXPECT_EQ(text, nas_plist({"get", dir.file("p"), path}).out);
    EXPECT_EQ(ended(0, type), nas_plist({"get", dir.file("p"), path, "--type"}));
  }
  EXPECT_EQ("dict\n", nas_plist({"get", "--type", dir.file("p"), "k"}).out);
  EXPECT_EQ("array\n", nas_plist({"get", "--type", dir.file("p"), "k/z"}).out);
}

TEST(NasPlistGet, PrintsNothingOfWhatIsMissing) {
  for (const char* path : {"b", "a/b", "a[0]"}) {
    for (const Words& command : {
             Words{"get",     "-", path},
             Words{ "get", "--type", "-", path}
    }) {
      EXPECT_EQ(ended(1), nas_plist(command, list_of("<true />")));
    }
  }
}

TEST(NasPlistGet, SaysWhatPrintsContainers) {
  EXPECT_EQ(
      ended(1, "", "nas-plist: standard input: a: is not a single value; show and json print it\n"),
      nas_plist({"get", "-", "a"}, list_of("<dict />")));
}

TEST(NasPlistGet, ServesALoopOfTheShell) {
  const TempDir dir;
  dir.write("p", list("<key>s</key><array><dict><key>n</key><string>one two</string></dict>"
                      "<dict><key>n</key><string>three</string></dict></array>"));
  EXPECT_EQ(
      ended(0, "<one two>\n<three>\n"),
      support::run(
          {"/bin/sh", "-c",
           "i=0; while n=$(\"$0\" get \"$1\" \"s[$i]/n\"); do echo \"<$n>\"; i=$((i+1)); done",
           TOOL, dir.file("p")}));
}

TEST(NasPlistShow, PrintsAPart) {
  const std::string file = list(
      "<key>d</key><dict><key>n</key><integer>1</integer><key>l</key><array><true/></array></"
      "dict>");
  EXPECT_EQ("l:\n  [0]: true\nn: 1\n", nas_plist({"show", "-", "d"}, file).out);
  EXPECT_EQ("[0]: true\n", nas_plist({"show", "-", "d/l"}, file).out);
  EXPECT_EQ("1\n", nas_plist({"show", "-", "d/n"}, file).out);
  const Outcome missing = nas_plist({"show", "-", "d/x"}, file);
  EXPECT_EQ("nas-plist: standard input: d/x: there is no such value\n", missing.err);
  EXPECT_EQ(1, missing.status);
}

// ---- json, import ----

TEST(NasPlistJson, PrintsWhatOthersRead) {
  const support::TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  const std::string file = list(
      "<key>d</key><date>2008-07-01T14:03:59Z</date>"
      "<key>l</key><array><integer>1</integer><true/></array>");
  EXPECT_EQ("{\n  \"d\": \"2008-07-01T12:03:59.000Z\",\n  \"l\": [\n    1,\n    true\n  ]\n}\n",
            nas_plist({"json", "-"}, file).out);
  EXPECT_EQ("1\n", nas_plist({"json", "-", "l[0]"}, file).out);
  const TempDir dir;
  dir.write("p", file);
  const Outcome jq =
      support::run({"/bin/sh", "-c", "\"$0\" json \"$1\" | jq -c .l", TOOL, dir.file("p")});
  EXPECT_EQ("[1,true]\n", jq.out);
}

TEST_F(NasPlistImport, ReplacesTheList) {
  const std::string old = list(pair("k", "<true />"));
  dir.write("p", old);
  EXPECT_EQ(ended(0), nas_plist({"import", dir.file("p")},
                                R"({"a": 1, "b": [0.5, "x", false], "c": {"d": 4000000000}})"));
  EXPECT_EQ("a: 1\nb:\n  [0]: 0.5\n  [1]: \"x\"\n  [2]: false\nc:\n  d: 4e+09\n",
            nas_plist({"show", dir.file("p")}).out);
  EXPECT_EQ(old, dir.read("p~"));
}

TEST_F(NasPlistImport, MakesAMissingFile) {
  EXPECT_EQ(0, nas_plist({"import", dir.file("p")}, R"({"a": 1})").status);
  EXPECT_EQ("a: 1\n", nas_plist({"show", dir.file("p")}).out);
  EXPECT_EQ(Words{"p"}, dir.list());
}

TEST_F(NasPlistImport, DoesNotReplaceABrokenList) {
  dir.write("p", "<plist");
  dir.write("p~", list_of("<true />"));
  EXPECT_EQ(1, nas_plist({"import", dir.file("p")}, R"({"a": 1})").status);
  EXPECT_EQ("<plist", dir.read("p"));
  EXPECT_EQ(list_of("<true />"), dir.read("p~"));
}

TEST_F(NasPlistImport, RefusesWhatIsNoList) {
  const std::pair<std::string, std::string> rows[] = {
      {"[1]",                 "standard input: a list is a JSON object\n"},
      {"{\n  \"a\": x}",      "standard input:2:8: "                     },
      {"",                    "standard input:1:1: "                     },
      {R"({"a": 1, "a": 2})", "standard input:1:"                        },
  };
  const std::string old = list(pair("k", "<true />"));
  dir.write("p", old);
  for (const auto& [json, message] : rows) {
    SCOPED_TRACE(json);
    const Outcome got = nas_plist({"import", dir.file("p")}, json);
    EXPECT_EQ("nas-plist: " + message, got.err.substr(0, 11 + message.size()));
    EXPECT_EQ(1, got.status);
  }
  const Outcome nothing = nas_plist({"import", dir.file("p")}, R"({"a": {"b": null}})");
  EXPECT_EQ("nas-plist: " + dir.file("p") + ": a/b: ",
            nothing.err.substr(0, dir.file("p").size() + 18));
  EXPECT_EQ(1, nothing.status);
  EXPECT_EQ(old, dir.read("p"));
  EXPECT_EQ(Words{"p"}, dir.list());
  for (const char* json : {"[]", R"({"a": null})"}) {
    EXPECT_EQ(1, nas_plist({"import", dir.file("q")}, json).status);
    EXPECT_EQ(Words{"p"}, dir.list());
  }
}

// ---- new, restore ----

TEST(NasPlistNew, MakesAnEmptyList) {
  const TempDir dir;
  EXPECT_EQ(0, nas_plist({"new", dir.file("p")}).status);
  EXPECT_EQ(Words{"p"}, dir.list());
  const Outcome show = nas_plist({"show", dir.file("p")});
  EXPECT_EQ("", show.out + show.err);
  EXPECT_EQ(0, show.status);
}

TEST(NasPlistNew, ReplacesNothing) {
  const TempDir dir;
  dir.write("p", "precious");
  const Outcome file = nas_plist({"new", dir.file("p")});
  EXPECT_EQ("nas-plist: " + dir.file("p") + ": is there already\n", file.err);
  EXPECT_EQ(1, file.status);
  EXPECT_EQ("precious", dir.read("p"));
  dir.write("q~", "precious");
  EXPECT_EQ("nas-plist: " + dir.file("q") + "~: is there already; restore makes it the file\n",
            nas_plist({"new", dir.file("q")}).err);
  EXPECT_EQ((Words{"p", "q~"}), dir.list());
}

TEST(NasPlistRestore, MakesTheBackupTheFile) {
  const TempDir dir;
  dir.write("p", "<plist");
  dir.write("p~", list_of("<true />"));
  EXPECT_EQ(ended(0), nas_plist({"restore", dir.file("p")}));
  EXPECT_EQ(list_of("<true />"), dir.read("p"));
  EXPECT_EQ("<plist", dir.read("p.replaced"));
  EXPECT_EQ((Words{"p", "p.replaced", "p~"}), dir.list());
}

TEST(NasPlistRestore, RefusesABackupThatDoesNotLoad) {
  const TempDir dir;
  dir.write("p", list_of("<true />"));
  EXPECT_EQ("nas-plist: " + dir.file("p") + ": there is no backup\n",
            nas_plist({"restore", dir.file("p")}).err);
  dir.write("p~", "<plist");
  const Outcome got = nas_plist({"restore", dir.file("p")});
  const std::string start = "nas-plist: " + dir.file("p") + "~: load failed";
  EXPECT_EQ(start, got.err.substr(0, start.size()));
  EXPECT_EQ(1, got.status);
  EXPECT_EQ((Words{"p", "p~"}), dir.list());
}

TEST_F(NasPlistCheck, SaysWhetherTheBackupWouldLoad) {
  const std::string file = dir.file("p");
  dir.write("p", list_of("<true />"));
  dir.write("p~", list_of("<false />"));
  EXPECT_EQ("", nas_plist({"check", file}).err);

  dir.write("p~", "<plist");
  const Outcome useless = nas_plist({"check", file});
  EXPECT_NE(std::string::npos, useless.err.find(file + "~: ")) << useless.err;
  EXPECT_NE(std::string::npos, useless.err.find(": the backup is of no use\n")) << useless.err;
  EXPECT_EQ(0, useless.status);

  dir.write("p", "<plist");
  const Outcome neither = nas_plist({"check", file});
  EXPECT_NE(std::string::npos, neither.err.find(": the backup is of no use\n")) << neither.err;
  EXPECT_EQ(1, neither.status);

  dir.write("p~", list_of("<false />"));
  const Outcome good = nas_plist({"check", file});
  EXPECT_NE(std::string::npos, good.err.find("\nnas-plist: " + file +
                                             "~: the backup is good; restore makes it the file\n"))
      << good.err;
  EXPECT_EQ(1, good.status);
}

// ---- diff ----

TEST_F(NasPlistDiff, PrintsWhatDiffers) {
  dir.write("a",
            list("<key>gone</key><dict><key>x/y</key><array><integer>1</integer></array></dict>"
                 "<key>kind</key><integer>1</integer><key>l</key><array><true/><true/></array>"
                 "<key>same</key><dict><key>a</key><real>0.1</real></dict>"
                 "<key>turned</key><dict/>"));
  dir.write("b", list("<key>came</key><string>a&#10;b</string>"
                      "<key>kind</key><real>1</real><key>l</key><array><false/></array>"
                      "<key>same</key><dict><key>a</key><real>0.1</real></dict>"
                      "<key>turned</key><array><string>x</string></array>"));
  EXPECT_EQ(ended(1, R"(+came: "a\nb"
-gone/x\/y[0]: 1
-kind: 1
+kind: 1.0
-l[0]: true
+l[0]: false
-l[1]: true
-turned: {}
+turned[0]: "x"
)"),
            nas_plist({"diff", dir.file("a"), dir.file("b")}));
}

TEST_F(NasPlistDiff, IsSilentAboutEqualLists) {
  dir.write("a", kMany);
  const Outcome got = nas_plist({"diff", dir.file("a"), "-"}, kMany);
  EXPECT_EQ("", got.out + got.err);
  EXPECT_EQ(0, got.status);
}

TEST_F(NasPlistDiff, TellsTroubleFromDifference) {
  dir.write("a", list_of("<true />"));
  EXPECT_EQ(2, nas_plist({"diff", dir.file("a"), dir.file("none")}).status);
  EXPECT_EQ(2, nas_plist({"diff", dir.file("a"), "-"}, list(""), "/dev/full").status);
}

TEST_F(NasPlistDiff, UsesColoursOnATerminal) {
  dir.write("a", list_of("<true />"));
  dir.write("b", list(""));
  const auto diff = [this](const std::string& environment) {
    return support::run_on_terminal({"/usr/bin/env", environment, "TERM=xterm", TOOL, "diff",
                                     dir.file("a"), dir.file("b")})
        .out;
  };
  EXPECT_EQ("\033[31m-a: true\033[0m\r\n", diff("NO_COLOR="));
  EXPECT_EQ("-a: true\r\n", diff("NO_COLOR=1"));
}

// ---- use ----

TEST(NasPlist, RefusesWrongUse) {
  const std::pair<Words, std::string> rows[] = {
      {{},
       "nas-plist: a command is needed: show, get, check, diff, json, js, new, set, delete, "
       "import, restore\n"                                                                      },
      {{"dump", "x"},
       "nas-plist: 'dump' is not a command: show, get, check, diff, json, js, new, set, delete, "
       "import, restore\n"                                                                      },
      {{"show"},                              "nas-plist: show needs more arguments\n"          },
      {{"show", "x", "y", "z"},               "nas-plist: show has too many arguments\n"        },
      {{"js", "--function", "1x", "x"},       "nas-plist: '1x' is not a name of a function\n"   },
      {{"js", "--function", "", "x"},         "nas-plist: '' is not a name of a function\n"     },
      {{"js", "--function", "f(){}", "x"},    "nas-plist: 'f(){}' is not a name of a function\n"},
      {{"show", "--function", "f", "x"},      "nas-plist: --function is for js\n"               },
      {{"set", "x", "k"},                     "nas-plist: set needs more arguments\n"           },
      {{"set", "x", "k", "integer"},          "nas-plist: integer needs a VALUE\n"              },
      {{"set", "x", "k", "dict", "1"},        "nas-plist: '1' needs a TYPE\n"                   },
      {{"set", "x", "k", "number", "1"},      "nas-plist: 'number' is not a TYPE\n"             },
      {{"show", "--type", "x"},               "nas-plist: --type is for get\n"                  },
      {{"get", "x"},                          "nas-plist: get needs more arguments\n"           },
      {{"get", "x", "a//b"},                  "nas-plist: 'a//b': a key is empty\n"             },
      {{"show", "x", "a//b"},                 "nas-plist: 'a//b': a key is empty\n"             },
      {{"delete", "x", "a", "a//b"},          "nas-plist: 'a//b': a key is empty\n"             },
      {{"delete", "x"},                       "nas-plist: delete needs more arguments\n"        },
      {{"set", "x", "k", "dict", "l"},        "nas-plist: 'l' needs a TYPE\n"                   },
      {{"new", "-"},                          "nas-plist: standard input cannot be changed\n"   },
      {{"import", "-"},                       "nas-plist: standard input cannot be changed\n"   },
      {{"set", "-", "k", "integer", "1"},     "nas-plist: standard input cannot be changed\n"   },
      {{"set", "x", "", "integer", "1"},      "nas-plist: '': a key is empty\n"                 },
      {{"set", "x", "a//b", "integer", "1"},  "nas-plist: 'a//b': a key is empty\n"             },
      {{"set", "x", "a[x]", "integer", "1"},
       "nas-plist: 'a[x]': expected a number and \"]\" behind a \"[\"\n"                        },
      {{"set", "x", "a[1", "integer", "1"},
       "nas-plist: 'a[1': expected a number and \"]\" behind a \"[\"\n"                         },
      {{"set", "x", "a[1]b", "integer", "1"},
       "nas-plist: 'a[1]b': expected \"/\" or \"[\" behind a \"]\"\n"                           },
      {{"set", "x", "a\\", "integer", "1"},   "nas-plist: 'a\\': ends with a \"\\\"\n"          },
      {{"check", "--all", "x"},               "nas-plist: '--all' is not an option\n"           },
      {{"check", "-1", "x"},                  "nas-plist: '-1' is not an option\n"              },
      {{"check", "--help=x"},                 "nas-plist: '--help' does not take an argument\n" },
      {{"js", "--function"},                  "nas-plist: '--function' needs an argument\n"     },
      {{"show", "--input-limit", "x", "y"},   "nas-plist: 'x' is not a number of MiB\n"         },
  };
  for (const auto& [arguments, message] : rows) {
    SCOPED_TRACE(message);
    EXPECT_EQ(ended(2, "", message + "Try 'nas-plist --help'.\n"), nas_plist(arguments));
  }
}

// ---- hostile input ----

TEST(NasPlist, WritesMessagesOnOneLineWithoutControls) {
  const std::string turned = "\xE2\x80\xAE";
  const Outcome option = nas_plist({"show", "--\033[31m" + turned, "x"});
  EXPECT_EQ("nas-plist: '--\\x1B[31m\\xE2\\x80\\xAE' is not an option\nTry 'nas-plist --help'.\n",
            option.err);
  const Outcome name = nas_plist({"show", "/x\nnas-plist: forged"});
  EXPECT_EQ("nas-plist: /x\\x0Anas-plist: forged: No such file or directory\n", name.err);
}

TEST(NasPlist, MakesMarksOfDirectionVisible) {
  const std::string file = list(pair("a",
                                     "<string>\xE2\x81\xA6"
                                     "fdp.exe\xD8\x9C</string>"));
  EXPECT_EQ(
      "a: \"\\xE2\\x81\\xA6"
      "fdp.exe\\xD8\\x9C\"\n",
      nas_plist({"show", "-"}, file).out);
}

TEST(NasPlist, WritesNoControlsOfAScriptToATerminal) {
  const TempDir dir;
  dir.write("p", list_of("<string>\033[31m</string>"));
  EXPECT_EQ("{ 'a' : '\\x1B[31m' }\r\n", support::run_on_terminal({TOOL, "js", dir.file("p")}).out);
  EXPECT_EQ("{ 'a' : '\033[31m' }\n", nas_plist({"js", dir.file("p")}).out);
}

TEST(NasPlist, RefusesStandardInputThatNeverEnds) {
  for (const Words& command : {
           Words{"show", "--input-limit", "1", "-"},
           Words{"show",   "-"                 }
  }) {
    Words words = {"/bin/sh", "-c", "exec \"$@\" </dev/zero", "sh", TOOL};
    words.insert(words.end(), command.begin(), command.end());
    const Outcome got = support::run(words);
    const std::string most = command.size() == 2 ? "64" : "1";
    EXPECT_EQ("nas-plist: standard input: more than " + most + " MiB; --input-limit allows more\n",
              got.err);
    EXPECT_EQ(1, got.status);
    EXPECT_LT(got.peak, 100 << 10);
  }
}

TEST(NasPlist, RefusesSpecialFiles) {
  const TempDir dir;
  const std::string fifo = dir.file("fifo");
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  ASSERT_EQ(0, mkfifo(dir.file("gone~").c_str(), 0600));
  EXPECT_EQ("nas-plist: " + fifo + ": is a FIFO, not a file\n", nas_plist({"show", fifo}).err);
  EXPECT_EQ("nas-plist: " + dir.file("gone~") + ": is a FIFO, not a file\n",
            nas_plist({"check", dir.file("gone")}).err);
  const Outcome device = nas_plist({"set", "/dev/zero", "a", "integer", "1"});
  EXPECT_EQ("nas-plist: /dev/zero: is a device, not a file\n", device.err);
  EXPECT_EQ(1, device.status);
}

TEST(NasPlist, ReadsWhatACommandWrites) {
  const TempDir dir;
  dir.write("p", list_of("<true />"));
  EXPECT_EQ(ended(0, "a: true\n"),
            support::run(
                {"/bin/bash", "-c", std::string(TOOL) + " show <(cat '" + dir.file("p") + "')"}));
}

// ---- its own words ----

TEST(NasPlist, ShowsItsVersion) {
  EXPECT_EQ(ended(0, "nas-plist (nasutil) " NASUTIL_VERSION "\n"), nas_plist({"--version"}));
}

TEST(NasPlist, HelpFitsOneScreen) {
  const std::string help = nas_plist({"--help"}).out;
  EXPECT_LE(std::count(help.begin(), help.end(), '\n'), 24);
  for (size_t at = 0; at < help.size(); at = help.find('\n', at) + 1) {
    EXPECT_LE(help.find('\n', at) - at, 80U) << help.substr(at, 80);
  }
}

TEST(NasPlist, HelpAndManualNameEveryCommandOptionAndType) {
  const Outcome help = nas_plist({"--help"});
  EXPECT_EQ(0, help.status);
  EXPECT_EQ(help.out, nas_plist({"-h"}).out);
  EXPECT_EQ(help.out, nas_plist({"show", "-h"}).out);
  const std::string manual = support::read_file(MANUAL);
  for (const std::string& command : Words{"show", "get", "check", "diff", "json", "js", "new",
                                          "set", "delete", "import", "restore"}) {
    EXPECT_NE(std::string::npos, help.out.find("\n  " + command + " ")) << command;
    EXPECT_NE(std::string::npos, manual.find("nas-plist " + command + " "))
        << command;  // an example
    EXPECT_NE(std::string::npos, manual.find(".It Cm " + command)) << command;
  }
  for (const std::string& option : Words{"type", "function", "input-limit", "help", "version"}) {
    EXPECT_NE(std::string::npos, help.out.find("--" + option)) << option;
    EXPECT_NE(std::string::npos, manual.find("Fl -" + option)) << option;
  }
  for (const std::string& type :
       Words{"integer", "real", "string", "boolean", "date", "data", "dict", "array"}) {
    EXPECT_NE(std::string::npos, help.out.find(type)) << type;
    EXPECT_NE(std::string::npos, manual.find(".It Li " + type)) << type;
  }
}
