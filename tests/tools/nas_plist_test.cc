// SPDX-License-Identifier: MIT
// nas-plist, run as a child on real files.
#include "tests/support/clock.h"
#include "tests/support/files.h"
#include "tests/support/program.h"

#include <sys/stat.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

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

}  // namespace

// ---- show ----

TEST(NasPlistShow, PrintsAnOutline) {
  const TempDir dir;
  dir.write("p", kMany);
  const Outcome got = nas_plist({"show", dir.file("p")});
  EXPECT_EQ(R"("a date": date 2008-05-01T14:03:59Z
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
)",
            got.out);
  EXPECT_EQ("", got.err);
  EXPECT_EQ(0, got.status);
}

TEST(NasPlistShow, PrintsNothingOfAnEmptyList) {
  const Outcome got = nas_plist({"show", "-"}, list(""));
  EXPECT_EQ("", got.out);
  EXPECT_EQ(0, got.status);
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
  for (const char* command : {"show", "check", "js", "set"}) {
    SCOPED_TRACE(command);
    Words arguments = {command, file};
    if (arguments[0] == "set") arguments.insert(arguments.end(), {"a", "integer", "1"});
    const Outcome got = nas_plist(arguments);
    EXPECT_EQ("", got.out);
    EXPECT_EQ("nas-plist: " + file + ": No such file or directory\n", got.err);
    EXPECT_EQ(1, got.status);
  }
  EXPECT_EQ(Words{}, dir.list());
}

TEST(NasPlist, ReportsAFullDisk) {
  for (const char* command : {"show", "js"}) {
    const Outcome got = nas_plist({command, "-"}, list_of("<true/>"), "/dev/full");
    EXPECT_EQ("nas-plist: standard output: No space left on device\n", got.err);
    EXPECT_EQ(1, got.status);
  }
}

// ---- check ----

TEST(NasPlistCheck, IsSilentAboutAGoodList) {
  const TempDir dir;
  dir.write("p", list(pair("a", "<string>text</string>") + pair("b", "<real>0.25</real>")));
  const Outcome got = nas_plist({"check", dir.file("p")});
  EXPECT_EQ("", got.out);
  EXPECT_EQ("", got.err);
  EXPECT_EQ(0, got.status);
}

TEST(NasPlistCheck, ListsWhatASaveWouldNotKeep) {
  const TempDir dir;
  dir.write("p", list(pair("a", "<real>3.14159265</real>") +
                      pair("b", "<array><string>x</string><string>a&#32;&#32;b</string></array>")));
  const Outcome got = nas_plist({"check", dir.file("p")});
  const std::string start = "nas-plist: " + dir.file("p") + ": ";
  ASSERT_EQ(start + "a: ", got.err.substr(0, start.size() + 3));
  const std::string second = got.err.substr(got.err.find('\n') + 1);
  EXPECT_EQ(start + "b[1]: ", second.substr(0, start.size() + 6));
  EXPECT_EQ(second.size() - 1, second.find('\n'));
  EXPECT_EQ(1, got.status);
}

TEST(NasPlistCheck, SaysWhyAListDoesNotLoad) {
  const TempDir dir;
  const std::string file = dir.file("p");
  const struct {
    std::string content;
    std::string message;
  } rows[] = {
      {"",                                  "load failed: Couldn't load " + file                  },
      {"<plist><dict",                      "load failed: Couldn't load " + file                  },
      {"<other/>",                          "load failed: "                                       },
      {"<plist><array/></plist>",
       "load failed: Element (plist) does NOT contain a child with the value of 'dict'"           },
      {list_of("<array><string/></array>"),
       "load failed: Text does not exists in the current element (/plist/dict/array/string, row 5"},
      {list_of("<integer>x</integer>"),     "expected integer\n"                                  },
      {list_of("<true>x</true>"),           "malformed boolean\n"                                 },
      {list_of("<text>x</text>"),           "unknown element\n"                                   },
      {list("<key>a</key>"),                "expecting a key name, followed by a value element\n" },
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.content);
    dir.write("p", row.content);
    for (const char* command : {"check", "show", "js"}) {
      const Outcome got = nas_plist({command, file});
      const std::string expected = "nas-plist: " + file + ": " + row.message;
      EXPECT_EQ("", got.out);
      EXPECT_EQ(expected, got.err.substr(0, expected.size()));
      EXPECT_EQ(1, got.status);
    }
  }
}

TEST(NasPlistCheck, SaysThatAFolderIsNoList) {
  const TempDir dir;
  const Outcome got = nas_plist({"check", dir.path()});
  EXPECT_EQ("nas-plist: " + dir.path() + ": load failed: Couldn't load " + dir.path() +
                ": Is a directory\n",
            got.err);
  EXPECT_EQ(1, got.status);
}

TEST(NasPlistCheck, NamesStandardInputInMessages) {
  EXPECT_EQ("nas-plist: standard input: load failed: Couldn't load standard input: ",
            nas_plist({"check", "-"}, "<plist").err.substr(0, 70));
}

// ---- js ----

TEST(NasPlistJs, PrintsALiteral) {
  const Outcome got = nas_plist(
      {"js", "-"}, list(pair("n", "<integer>5</integer>") + pair("s", "<string>it's</string>")));
  EXPECT_EQ("{ 'n' : 5, 's' : 'it\\'s' }\n", got.out);
  EXPECT_EQ("", got.err);
  EXPECT_EQ(0, got.status);
}

TEST(NasPlistJs, PrintsAFunction) {
  const Outcome got =
      nas_plist({"js", "--function", "getStatus", "-"}, list(pair("n", "<integer>5</integer>")));
  EXPECT_EQ("function getStatus()\n{\n  return { 'n' : 5 };\n}\n", got.out);
  EXPECT_EQ(0, got.status);
}

TEST(NasPlistJs, WarnsOfDates) {
  const Outcome got =
      nas_plist({"js", "-"}, list_of("<array><date>2008-05-01T14:03:59Z</date></array>"));
  EXPECT_EQ("{ 'a' : [ 2008-05-01T14:03:59UTC ] }\n", got.out);
  EXPECT_EQ("nas-plist: standard input: dates are bare text, which no script can read\n", got.err);
  EXPECT_EQ(0, got.status);
}

// ---- set ----

TEST(NasPlistSet, WritesEachType) {
  const TempDir dir;
  const struct {
    Words words;
    std::string element;
  } rows[] = {
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
  for (const auto& row : rows) {
    SCOPED_TRACE(row.element);
    dir.write("p", list(pair("k", "<string>old</string>")));
    Words arguments = {"set", dir.file("p"), "k"};
    arguments.insert(arguments.end(), row.words.begin(), row.words.end());
    const Outcome got = nas_plist(arguments);
    EXPECT_EQ(list(pair("k", row.element)), dir.read("p"));
    EXPECT_EQ("", got.out);
    EXPECT_EQ("", got.err);
    EXPECT_EQ(0, got.status);
  }
}

TEST(NasPlistSet, KeepsTheOldListAsTheBackup) {
  const TempDir dir;
  const std::string old = list(pair("k", "<integer>1</integer>"));
  dir.write("p", old);
  EXPECT_EQ(0, nas_plist({"set", dir.file("p"), "k", "integer", "2"}).status);
  EXPECT_EQ(list(pair("k", "<integer>2</integer>")), dir.read("p"));
  EXPECT_EQ(old, dir.read("p~"));
  EXPECT_EQ((Words{"p", "p~"}), dir.list());
}

TEST(NasPlistSet, ChangesTheBackupOfAMissingFile) {
  const TempDir dir;
  dir.write("p~", list_of("<true />"));
  const Outcome got = nas_plist({"set", dir.file("p"), "b", "boolean", "true"});
  EXPECT_EQ(list(pair("a", "<true />") + pair("b", "<true />")), dir.read("p"));
  EXPECT_NE(std::string::npos, got.err.find("~ was read")) << got.err;
  EXPECT_EQ(0, got.status);
}

TEST(NasPlistSet, FollowsKeyPaths) {
  const struct {
    std::string key;
    std::string outline;
  } rows[] = {
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
  const TempDir dir;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.key);
    dir.write("p", list("<key>d</key><dict><key>a</key><integer>1</integer></dict><key>l</key>"
                        "<array><integer>1</integer><integer>2</integer></array>"));
    EXPECT_EQ(0, nas_plist({"set", dir.file("p"), row.key, "integer", "7"}).status);
    EXPECT_EQ(row.outline, nas_plist({"show", dir.file("p")}).out);
  }
}

TEST(NasPlistSet, RefusesKeysThatDoNotFit) {
  const TempDir dir;
  const std::string old = list(pair("n", "<integer>1</integer>") + pair("l", "<array />"));
  dir.write("p", old);
  const struct {
    std::string key;
    std::string message;
  } rows[] = {
      {"n/a",  "n/a: n is not a dictionary"        },
      {"n[0]", "n[0]: n is not an array"           },
      {"l/a",  "l/a: l is not a dictionary"        },
      {"l[1]", "l[1]: the next element of l is [0]"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.key);
    const Outcome got = nas_plist({"set", dir.file("p"), row.key, "integer", "7"});
    EXPECT_EQ("nas-plist: " + dir.file("p") + ": " + row.message + "\n", got.err);
    EXPECT_EQ(1, got.status);
  }
  EXPECT_EQ(old, dir.read("p"));
  EXPECT_EQ(Words{"p"}, dir.list());
}

TEST(NasPlistSet, RefusesValuesThatAreNone) {
  const TempDir dir;
  const std::string old = list(pair("k", "<true />"));
  dir.write("p", old);
  const struct {
    std::string type;
    std::string value;
  } rows[] = {
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
  for (const auto& row : rows) {
    SCOPED_TRACE(row.type + " " + row.value);
    const Outcome got = nas_plist({"set", dir.file("p"), "k", row.type, row.value});
    EXPECT_EQ("nas-plist: '" + row.value + "' is no " + row.type + "\nTry 'nas-plist --help'.\n",
              got.err);
    EXPECT_EQ(2, got.status);
  }
  EXPECT_EQ(old, dir.read("p"));
}

TEST(NasPlistSet, RefusesATimeThatTheClockSkips) {
  const support::TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  const TempDir dir;
  dir.write("p", list(""));
  EXPECT_EQ(2, nas_plist({"set", dir.file("p"), "k", "date", "2008-03-30T02:30:00Z"}).status);
  EXPECT_EQ(0, nas_plist({"set", dir.file("p"), "k", "date", "2008-03-30T03:30:00Z"}).status);
}

TEST(NasPlistSet, RefusesWhatWouldNotBeKept) {
  const TempDir dir;
  const std::string old = list(pair("k", "<true />"));
  dir.write("p", old);
  for (const Words& value : {
           Words{"string", ""          },
           Words{"string", "a  b"      },
           Words{"real",   "3.14159265"}
  }) {
    for (const bool forced : {false, true}) {
      SCOPED_TRACE(value[1]);
      Words arguments = {"set", "--force", dir.file("p"), "k"};
      if (!forced) arguments.erase(arguments.begin() + 1);
      arguments.insert(arguments.end(), value.begin(), value.end());
      const Outcome got = nas_plist(arguments);
      EXPECT_EQ("nas-plist: " + dir.file("p") + ": k: ",
                got.err.substr(0, dir.file("p").size() + 16));
      EXPECT_NE(std::string::npos, got.err.find(": not saved\n")) << got.err;
      EXPECT_EQ(1, got.status);
    }
  }
  EXPECT_EQ(old, dir.read("p"));
  EXPECT_EQ(Words{"p"}, dir.list());
}

TEST(NasPlistSet, LosesWhatTheListHadOnlyByForce) {
  const TempDir dir;
  const std::string old = list_of("<real>3.14159265</real>");
  dir.write("p", old);
  EXPECT_EQ(1, nas_plist({"set", dir.file("p"), "k", "boolean", "true"}).status);
  EXPECT_EQ(old, dir.read("p"));
  const Outcome got = nas_plist({"set", "--force", dir.file("p"), "k", "boolean", "true"});
  EXPECT_EQ(list(pair("a", "<real>3.14159</real>") + pair("k", "<true />")), dir.read("p"));
  EXPECT_NE("", got.err);
  EXPECT_EQ(0, got.status);
}

TEST(NasPlistSet, KeepsByForceNothingThatCannotBeSaved) {
  const TempDir dir;
  const std::string old = "<plist><dict><key>r\xEC</key><true/></dict></plist>";
  dir.write("p", old);
  const Outcome got = nas_plist({"set", "--force", dir.file("p"), "k", "boolean", "true"});
  EXPECT_NE(std::string::npos, got.err.find(": a text ends inside a character\n")) << got.err;
  EXPECT_EQ(1, got.status);
  EXPECT_EQ(old, dir.read("p"));
  EXPECT_EQ(Words{"p"}, dir.list());
}

TEST(NasPlistSet, LosesNothingOfManyAtOnce) {
  const TempDir dir;
  dir.write("p", list(""));
  const Outcome got = support::run(
      {"/bin/bash", "-c",
       "for i in {10..49}; do \"$0\" set \"$1\" k$i integer $i & processes+=($!); done\n"
       "for one in ${processes[@]}; do wait $one || exit 1; done",
       TOOL, dir.file("p")});
  EXPECT_EQ("", got.err);
  EXPECT_EQ(0, got.status);
  std::string expected;
  for (int i = 10; i < 50; ++i) {
    expected += "k" + std::to_string(i) + ": " + std::to_string(i) + "\n";
  }
  EXPECT_EQ(expected, nas_plist({"show", dir.file("p")}).out);
  EXPECT_EQ((Words{"p", "p~"}), dir.list());
}

TEST(NasPlistSet, ReportsAFailedSave) {
  const TempDir dir;
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

TEST(NasPlistSet, DoesNotWriteMessagesIntoTheList) {
  const TempDir dir;
  dir.write("p", list_of("<real>3.14159265</real>"));
  const Outcome got = support::run({"/bin/sh", "-c",
                                    std::string("exec '") + TOOL + "' set --force '" +
                                        dir.file("p") + "' k boolean true <&- >&- 2>&-"});
  EXPECT_EQ(list(pair("a", "<real>3.14159</real>") + pair("k", "<true />")), dir.read("p"));
}

// ---- use ----

TEST(NasPlist, RefusesWrongUse) {
  const struct {
    Words arguments;
    std::string message;
  } rows[] = {
      {{},                                    "nas-plist: a command is needed: show, check, js, set\n" },
      {{"dump", "x"},                         "nas-plist: 'dump' is no command: show, check, js, set\n"},
      {{"show"},                              "nas-plist: show needs more arguments\n"                 },
      {{"show", "x", "y"},                    "nas-plist: show has too many arguments\n"               },
      {{"js", "--function", "1x", "x"},       "nas-plist: '1x' is no name of a function\n"             },
      {{"js", "--function", "", "x"},         "nas-plist: '' is no name of a function\n"               },
      {{"js", "--function", "f(){}", "x"},    "nas-plist: 'f(){}' is no name of a function\n"          },
      {{"show", "--function", "f", "x"},      "nas-plist: --function is for js\n"                      },
      {{"show", "--force", "x"},              "nas-plist: --force is for set\n"                        },
      {{"set", "x", "k"},                     "nas-plist: set needs more arguments\n"                  },
      {{"set", "x", "k", "integer"},          "nas-plist: integer needs a VALUE\n"                     },
      {{"set", "x", "k", "dict", "1"},        "nas-plist: dict has no VALUE\n"                         },
      {{"set", "x", "k", "number", "1"},      "nas-plist: 'number' is no TYPE\n"                       },
      {{"set", "-", "k", "integer", "1"},     "nas-plist: standard input cannot be changed\n"          },
      {{"set", "x", "", "integer", "1"},      "nas-plist: '': a key is empty\n"                        },
      {{"set", "x", "a//b", "integer", "1"},  "nas-plist: 'a//b': a key is empty\n"                    },
      {{"set", "x", "a[x]", "integer", "1"},
       "nas-plist: 'a[x]': expected a number and \"]\" behind a \"[\"\n"                               },
      {{"set", "x", "a[1", "integer", "1"},
       "nas-plist: 'a[1': expected a number and \"]\" behind a \"[\"\n"                                },
      {{"set", "x", "a[1]b", "integer", "1"},
       "nas-plist: 'a[1]b': expected \"/\" or \"[\" behind a \"]\"\n"                                  },
      {{"set", "x", "a\\", "integer", "1"},   "nas-plist: 'a\\': ends with a \"\\\"\n"                 },
      {{"check", "--all", "x"},               "nas-plist: '--all' is not an option\n"                  },
      {{"check", "-1", "x"},                  "nas-plist: '-1' is not an option\n"                     },
      {{"check", "--help=x"},                 "nas-plist: '--help' does not take an argument\n"        },
      {{"js", "--function"},                  "nas-plist: '--function' needs an argument\n"            },
      {{"show", "--input-limit", "x", "y"},   "nas-plist: 'x' is not a number of MiB\n"                },
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    const Outcome got = nas_plist(row.arguments);
    EXPECT_EQ("", got.out);
    EXPECT_EQ(row.message + "Try 'nas-plist --help'.\n", got.err);
    EXPECT_EQ(2, got.status);
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
  const Outcome got =
      support::run({"/bin/bash", "-c", std::string(TOOL) + " show <(cat '" + dir.file("p") + "')"});
  EXPECT_EQ("a: true\n", got.out);
  EXPECT_EQ("", got.err);
}

// ---- its own words ----

TEST(NasPlist, ShowsItsVersion) {
  const Outcome got = nas_plist({"--version"});
  EXPECT_EQ("nas-plist (nasutil) " NASUTIL_VERSION "\n", got.out);
  EXPECT_EQ(0, got.status);
}

TEST(NasPlist, HelpAndManualNameEveryCommandOptionAndType) {
  const Outcome help = nas_plist({"--help"});
  EXPECT_EQ(0, help.status);
  const std::string manual = support::read_file(MANUAL);
  for (const std::string& command : Words{"show", "check", "js", "set"}) {
    EXPECT_NE(std::string::npos, help.out.find("\n  " + command + " ")) << command;
    EXPECT_NE(std::string::npos, manual.find(".It Cm " + command)) << command;
  }
  for (const std::string& option : Words{"function", "force", "input-limit", "help", "version"}) {
    EXPECT_NE(std::string::npos, help.out.find("--" + option)) << option;
    EXPECT_NE(std::string::npos, manual.find("Fl -" + option)) << option;
  }
  for (const std::string& type :
       Words{"integer", "real", "string", "boolean", "date", "data", "dict", "array"}) {
    EXPECT_NE(std::string::npos, help.out.find(type)) << type;
    EXPECT_NE(std::string::npos, manual.find(".It Li " + type)) << type;
  }
}
