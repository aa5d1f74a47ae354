// SPDX-License-Identifier: MIT
// nas-conf, run as a child on real files, and the library's check beside its reader.
#include "tests/support/files.h"
#include "tests/support/program.h"
#include "util/NASConfDB.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <ticpp.h>

using support::ended;
using support::Outcome;
using support::TempDir;

namespace {

using Words = std::vector<std::string>;

Outcome nas_conf(const Words& arguments, const std::string& input = "",
                 const std::string& output = "") {
  Words command = {TOOL};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return support::run(command, input, output);
}

// Everything the reader knows, each once.
const std::string kFull = R"(<?xml version="1.0"?>
<nas_conf_db>
  <version>3</version>
  <system>
    <timeformat>24h</timeformat>
    <hostname>nas</hostname>
    <domain>local</domain>
    <language>en</language>
    <dhcpenabled>true</dhcpenabled>
    <timezone>UTC</timezone>
    <printenabled>false</printenabled>
    <webgui><adminpasswd>swordfish</adminpasswd><protocol>tls</protocol></webgui>
    <hdparams>
      <disk>
        <device>sda</device>
        <inactivityperiod>20</inactivityperiod>
        <lastselftest>0</lastselftest>
      </disk>
    </hdparams>
    <platform>p1</platform>
    <drives>1</drives>
  </system>
  <interfaces>
    <lan><if>eth0</if><ipaddr>192.0.2.2</ipaddr><netmask>255.255.255.0</netmask></lan>
  </interfaces>
  <mounts>
    <mount><device>/dev/sda1</device><fstype>ext3</fstype><mountpoint/><options/></mount>
  </mounts>
  <samba>
    <netbiosname>NAS</netbiosname>
    <workgroup>WORKGROUP</workgroup>
    <serverdesc>files</serverdesc>
    <localmaster>yes</localmaster>
  </samba>
  <shares>
    <share>
      <sharename>it's "x"&#10;</sharename>
      <sharetype>public</sharetype>
      <sharestatus>active</sharestatus>
      <sharelocation>external_share</sharelocation>
      <access><users><user>
        <username>guest</username>
        <accesstype>full</accesstype>
      </user></users></access>
    </share>
  </shares>
  <access><users><user><username>guest</username><uid>1001</uid></user></users></access>
</nas_conf_db>
)";

const std::string kShown = R"(version: 3
system:
  timeformat: "24h"
  hostname: "nas"
  domain: "local"
  language: "en"
  dhcpenabled: true
  timezone: "UTC"
  printenabled: false
  webgui:
    adminpasswd: (hidden)
    protocol: "tls"
  disks:
    [0]:
      device: "sda"
      inactivityperiod: 20
      lastselftest: 0
  platform: "p1"
  drives: "1"
interfaces:
  [0]:
    if: "eth0"
    ipaddr: "192.0.2.2"
    netmask: "255.255.255.0"
    rand_ip: ""
mounts:
  [0]:
    device: "/dev/sda1"
    fstype: "ext3"
    mountpoint: ""
    options: ""
samba:
  netbiosname: "NAS"
  workgroup: "WORKGROUP"
  serverdesc: "files"
  localmaster: true
shares:
  [0]:
    name: "it's \"x\"\n"
    type: public
    status: active
    location: external_share
    users:
      [0]:
        username: "guest"
        accesstype: full
users:
  [0]:
    name: "guest"
    uid: 1001
)";

std::string with_system(const std::string& text) {
  return "<nas_conf_db><version>3</version><system>" + text + "</system></nas_conf_db>";
}

std::string with_others(const std::string& text) {
  return "<nas_conf_db><version>3</version><system/>\n" + text + "</nas_conf_db>";
}

bool reader_refuses(const std::string& path) {
  try {
    const util::NASConfDB database(path);
    return false;
  } catch (const ticpp::Exception&) {
    return true;
  }
}

// By the findings alone.
bool check_refuses(const std::string& path) {
  try {
    const auto findings = util::NASConfDB::check(path);
    return std::any_of(findings.begin(), findings.end(), [](const auto& one) { return one.fault; });
  } catch (const ticpp::Exception&) {
    return true;
  }
}

// The start of each element, without end tags and the declaration.
std::vector<size_t> elements(const std::string& document) {
  std::vector<size_t> starts;
  for (size_t at = document.find('<'); at != document.npos; at = document.find('<', at + 1)) {
    if (document[at + 1] != '/' && document[at + 1] != '?') starts.push_back(at);
  }
  return starts;
}

std::string name_at(const std::string& document, size_t at) {
  return document.substr(at + 1, document.find_first_of("/>", at) - at - 1);
}

// Where the element that starts there ends.
size_t end_of(const std::string& document, size_t at) {
  const size_t tag_end = document.find('>', at);
  if (document[tag_end - 1] == '/') return tag_end + 1;
  const std::string name = name_at(document, at);
  int depth = 0;
  for (size_t next = at; next != document.npos; next = document.find('<', next + 1)) {
    if (document.compare(next, name.size() + 2, "<" + name + ">") == 0) ++depth;
    if (document.compare(next, name.size() + 3, "</" + name + ">") == 0 && --depth == 0) {
      return next + name.size() + 3;
    }
  }
  return document.npos;
}

}  // namespace

// ---- show ----

TEST(NasConfShow, PrintsTheDatabase) {
  const TempDir dir;
  dir.write("x", kFull);
  EXPECT_EQ(ended(0, kShown), nas_conf({"show", dir.file("x")}));
}

TEST(NasConfShow, ReadsStandardInput) { EXPECT_EQ(kShown, nas_conf({"show", "-"}, kFull).out); }

TEST(NasConfShow, PrintsThePasswordWhenAskedFor) {
  const std::string out = nas_conf({"show", "--password", "-"}, kFull).out;
  EXPECT_NE(std::string::npos, out.find("adminpasswd: \"swordfish\"\n"));
}

TEST(NasConfShow, SaysThatThereIsNoPassword) {
  const std::string out =
      nas_conf({"show", "-"}, with_system("<webgui><adminpasswd/></webgui>")).out;
  EXPECT_NE(std::string::npos, out.find("adminpasswd: \"\"\n"));
}

TEST(NasConfShow, PrintsWhatTheReaderPutsInPlaceOfTheMissing) {
  EXPECT_EQ(ended(0, R"(version: 3
system:
  timeformat: ""
  hostname: ""
  domain: ""
  language: ""
  dhcpenabled: false
  timezone: ""
  printenabled: false
  webgui:
    adminpasswd: ""
    protocol: ""
  disks: none
  platform: ""
  drives: ""
interfaces: none
mounts: none
samba:
  netbiosname: ""
  workgroup: ""
  serverdesc: ""
  localmaster: false
shares:
  [0]:
    name: ""
    type: none
    status: none
    location: none
    users: none
users: none
)"),
            nas_conf({"show", "-"}, with_others("<shares><share/></shares>")));
}

TEST(NasConfShow, NamesEachWord) {
  const std::string out = nas_conf({"show", "-"}, with_others(R"(<shares>
<share><sharetype>private</sharetype><sharestatus>suspended</sharestatus>
<sharelocation>internal_share</sharelocation>
<access><users><user><username>a</username><accesstype>readonly</accesstype></user>
<user><username>b</username><accesstype>other</accesstype></user></users></access></share>
</shares>)"))
                              .out;
  for (const char* line : {"type: private\n", "status: suspended\n", "location: internal_share\n",
                           "accesstype: readonly\n", "accesstype: none\n"}) {
    EXPECT_NE(std::string::npos, out.find(line)) << line;
  }
}

TEST(NasConfShow, EscapesControlBytes) {
  const std::string out =
      nas_conf({"show", "-"}, with_system("<hostname>a&#27;[31m\xFF%s</hostname>")).out;
  EXPECT_NE(std::string::npos, out.find("hostname: \"a\\x1B[31m\\xFF%s\"\n")) << out;
}

TEST(NasConfShow, EscapesControlBytesInMessages) {
  const std::string document = "<nas_conf_db><version>&#27;[31m</version><system/></nas_conf_db>";
  EXPECT_EQ(
      "nas-conf: standard input:1:14: <version>: \"\\x1B[31m\" is not a number, or is out of "
      "range\n",
      nas_conf({"show", "-"}, document).err);
}

TEST(NasConfShow, SaysWhyADocumentIsRefused) {
  const TempDir dir;
  dir.write("x", with_system("<colour/><hostname/><domain/>"));
  for (const Words& command : {Words{"show"}, Words{"json"}}) {
    EXPECT_EQ(
        ended(1, "",
              "nas-conf: " + dir.file("x") + ":1:51: <hostname> has no text at its start\n" +
                  "nas-conf: " + dir.file("x") + ":1:62: <domain> has no text at its start\n"),
        nas_conf({command[0], dir.file("x")}));
  }
}

TEST(NasConfShow, TakesSeveralFiles) {
  const TempDir dir;
  dir.write("a", with_system(""));
  dir.write("bad", "<nas_conf_db/>");
  dir.write("b", with_system("<hostname>b</hostname>"));
  const Outcome got = nas_conf({"show", dir.file("a"), dir.file("bad"), dir.file("b")});
  EXPECT_EQ(0U, got.out.find(dir.file("a") + ":\nversion: 3\n"));
  EXPECT_NE(std::string::npos, got.out.find("users: none\n\n" + dir.file("b") + ":\nversion: 3\n"));
  EXPECT_EQ(1, got.status);
}

// ---- get and json ----

TEST(NasConfGet, PrintsAValue) {
  const std::pair<const char*, const char*> rows[] = {
      {"version",                     "3"             },
      {"system/hostname",             "nas"           },
      {"system/dhcpenabled",          "true"          },
      {"system/webgui/adminpasswd",   "swordfish"     },
      {"system/disks[0]/device",      "sda"           },
      {"interfaces[0]/rand_ip",       ""              },
      {"mounts[0]/fstype",            "ext3"          },
      {"samba/localmaster",           "true"          },
      {"shares[0]/location",          "external_share"},
      {"shares[0]/users[0]/username", "guest"         },
      {"users[0]/uid",                "1001"          },
  };
  for (const auto& [path, value] : rows) {
    const Outcome got = nas_conf({"get", "-", path}, kFull);
    EXPECT_EQ(std::string(value) + "\n", got.out) << path;
    EXPECT_EQ(0, got.status) << path;
  }
}

TEST(NasConfGet, PrintsNothingOfWhatIsMissing) {
  for (const char* path : {"system/colour", "shares[1]/name", "version/x"}) {
    const Outcome got = nas_conf({"get", "-", path}, kFull);
    EXPECT_EQ("", got.out + got.err) << path;
    EXPECT_EQ(1, got.status) << path;
  }
}

TEST(NasConfGet, RefusesWhatIsNotASingleValue) {
  EXPECT_EQ(
      ended(1, "",
            "nas-conf: standard input: system: is not a single value; show and json print it\n"),
      nas_conf({"get", "-", "system"}, kFull));
}

std::string python(const std::string& json, const std::string& expression) {
  const std::string program =
      "import json, sys; d = json.load(sys.stdin); print(" + expression + ")";
  return support::run({"/bin/sh", "-c", "exec python3 -c \"$0\"", program}, json).out;
}

TEST(NasConfJson, IsReadByOthers) {
  const std::string json = nas_conf({"json", "-"}, kFull).out;
  EXPECT_EQ("['interfaces', 'mounts', 'samba', 'shares', 'system', 'users', 'version']\n",
            python(json, "sorted(d)"));
  EXPECT_EQ("{'protocol': 'tls'}\n", python(json, "d['system']['webgui']"));
  EXPECT_EQ("(3, True, [{'device': 'sda', 'inactivityperiod': 20, 'lastselftest': 0}])\n",
            python(json, "(d['version'], d['system']['dhcpenabled'], d['system']['disks'])"));
  EXPECT_EQ("external_share\n", python(json, "d['shares'][0]['location']"));
  EXPECT_EQ("swordfish\n", python(nas_conf({"json", "--password", "-"}, kFull).out,
                                  "d['system']['webgui']['adminpasswd']"));
  EXPECT_EQ("[]\n", python(nas_conf({"json", "-"}, with_system("")).out, "d['shares']"));
}

TEST(NasConfShow, ReportsAFullDisk) {
  EXPECT_EQ(ended(1, "", "nas-conf: standard output: No space left on device\n"),
            nas_conf({"show", "-"}, kFull, "/dev/full"));
}

// ---- check ----

TEST(NasConfCheck, IsSilentAboutAGoodDocument) {
  EXPECT_EQ(ended(0), nas_conf({"check", "-"}, kFull));
}

TEST(NasConfCheck, ListsAllInOneRun) {
  const TempDir dir;
  dir.write("x", R"(<nas_conf_db>
  <version>3 beta</version>
  <system>
    <hostname/>
    <dhcpenabled>yes</dhcpenabled>
    <colour>red</colour>
    <webgui>swordfish<adminpasswd>swordfish<x/></adminpasswd></webgui>
    <hdparams>
      <disk><inactivityperiod>soon</inactivityperiod></disk>
    </hdparams>
  </system>
  <system><hostname/></system>
  <samba><localmaster>true</localmaster></samba>
  <access><users>
    <user><uid>99999999999</uid></user>
  </users></access>
</nas_conf_db>
)");
  const Outcome got = nas_conf({"check", dir.file("x")});
  const std::string expected[] = {
      R"(2:3: ignored: what follows the number in <version>: "3 beta" is read as 3)",
      R"(4:5: <hostname> has no text at its start)",
      R"(5:5: ignored: <dhcpenabled>: "yes" is neither "true" nor "false")",
      R"(6:5: ignored: <colour> is not known here)",
      R"(7:5: ignored: the text in <webgui>)",
      R"(7:44: ignored: <x> is not known here)",
      R"(9:7: <device> is missing in <disk>)",
      R"(9:7: <lastselftest> is missing in <disk>)",
      R"(9:13: <inactivityperiod>: "soon" is not a number, or is out of range)",
      R"(12:3: ignored: another <system>, only the first is read)",
      R"(13:10: ignored: <localmaster>: "true" is neither "yes" nor "no")",
      R"(15:5: <username> is missing in <user>)",
      R"(15:11: <uid>: "99999999999" is not a number, or is out of range)",
  };
  std::string all;
  for (const std::string& line : expected) {
    all += "nas-conf: " + dir.file("x") + ":" + line + "\n";
  }
  EXPECT_EQ(all, got.err);
  EXPECT_EQ("", got.out);
  EXPECT_EQ(1, got.status);
}

TEST(NasConfCheck, TakesWhatIsIgnoredForAFaultIfAsked) {
  const TempDir dir;
  dir.write("good", kFull);
  dir.write("x", with_system("<dhcpenabled>yes</dhcpenabled>"));
  const std::string finding = "nas-conf: " + dir.file("x") +
                              ":1:42: ignored: <dhcpenabled>: \"yes\" is neither \"true\" nor "
                              "\"false\"\n";
  EXPECT_EQ(ended(0, "", finding), nas_conf({"check", dir.file("x")}));
  const Outcome strict = nas_conf({"check", "--strict", dir.file("good"), dir.file("x")});
  EXPECT_EQ(finding, strict.err);
  EXPECT_EQ(1, strict.status);
  EXPECT_EQ(0, nas_conf({"check", "--strict", dir.file("good")}).status);
}

TEST(NasConfCheck, TakesSeveralFiles) {
  const TempDir dir;
  dir.write("a", with_system("<hostname/>"));
  dir.write("b", with_system("<domain/>"));
  EXPECT_EQ(
      ended(1, "",
            "nas-conf: " + dir.file("a") + ":1:42: <hostname> has no text at its start\n" +
                "nas-conf: Couldn't load " + dir.file("none") + ": No such file or directory\n" +
                "nas-conf: " + dir.file("b") + ":1:42: <domain> has no text at its start\n"),
      nas_conf({"check", dir.file("a"), dir.file("none"), dir.file("b")}));
}

TEST(NasConfCheck, NeverShowsThePassword) {
  const Outcome got = nas_conf({"check", "-"}, with_system("<webgui>swordfish<adminpasswd>swordfish"
                                                           "</adminpasswd><adminpasswd>swordfish"
                                                           "</adminpasswd></webgui><adminpasswd>"
                                                           "swordfish</adminpasswd><hostname/>"));
  EXPECT_NE("", got.err);
  EXPECT_EQ(std::string::npos, got.err.find("swordfish")) << got.err;
}

// One document a row; its verdict is the reader's own.
TEST(NasConfCheck, AgreesWithTheReader) {
  const TempDir dir;
  const std::string file = dir.file("x");
  const auto check = [&](const std::string& document, const std::string& finding) {
    SCOPED_TRACE(document);
    dir.write("x", document);
    EXPECT_EQ(ended(reader_refuses(file) ? 1 : 0, "",
                    finding.empty() ? "" : "nas-conf: " + file + ":" + finding + "\n"),
              nas_conf({"check", file}));
    EXPECT_EQ(reader_refuses(file), check_refuses(file));
  };
  check("<a/><nas_conf_db><version>3</version><system/></nas_conf_db>",
        "1:1: ignored: <a> is not known here");
  check("<nas_conf_db><version>3</version><system/></nas_conf_db><nas_conf_db/>",
        "1:57: ignored: another <nas_conf_db>, only the first is read");
  check("<nas_conf_db><system/></nas_conf_db>", "1:1: <version> is missing in <nas_conf_db>");
  check("<nas_conf_db><version>3</version></nas_conf_db>",
        "1:1: <system> is missing in <nas_conf_db>");
  check("<nas_conf_db><version/><system/></nas_conf_db>",
        "1:14: <version> has no text at its start");
  check("<nas_conf_db><version>-7</version><system/></nas_conf_db>", "");
  check("<nas_conf_db><version>0x10</version><system/></nas_conf_db>",
        "1:14: ignored: what follows the number in <version>: \"0x10\" is read as 0");
  check("<nas_conf_db><version>2147483648</version><system/></nas_conf_db>",
        "1:14: <version>: \"2147483648\" is not a number, or is out of range");
  check("<nas_conf_db><version>x3</version><system/></nas_conf_db>",
        "1:14: <version>: \"x3\" is not a number, or is out of range");
  check("<nas_conf_db><version>3</version><System/><system/></nas_conf_db>",
        "1:34: ignored: <System> is not known here");
  check(with_system(""), "");
  check(with_system("<webgui><adminpasswd/></webgui>"), "");
  check(with_system("<webgui><protocol/></webgui>"), "1:50: <protocol> has no text at its start");
  check(with_system("<hostname><!-- c -->nas</hostname>"),
        "1:42: <hostname> has no text at its start");
  check(with_system("<hostname><![CDATA[]]></hostname>"), "");
  check(with_system("<hostname>nas<b/></hostname>"), "1:55: ignored: <b> is not known here");
  check(with_system("<dhcpenabled/>"), "1:42: <dhcpenabled> has no text at its start");
  check(with_system("<printenabled>TRUE</printenabled>"),
        "1:42: ignored: <printenabled>: \"TRUE\" is neither \"true\" nor \"false\"");
  check(with_system("<hdparams/>"), "");
  check(with_system("<disk/>"), "1:42: ignored: <disk> is not known here");
  check(with_others("<interfaces><lan/><lan><if/></lan></interfaces>"),
        "2:24: <if> has no text at its start");
  check(with_others("<mounts><mount><mountpoint/><options/></mount></mounts>"), "");
  check(with_others("<mounts><mount><device/></mount></mounts>"),
        "2:16: <device> has no text at its start");
  check(with_others("<samba><localmaster>no</localmaster></samba>"), "");
  check(with_others("<shares><share><sharetype>Public</sharetype></share></shares>"),
        "2:16: ignored: <sharetype>: \"Public\" is neither \"public\" nor \"private\"");
  check(with_others("<shares><share><sharestatus/></share></shares>"),
        "2:16: <sharestatus> has no text at its start");
  check(with_others("<shares><share><sharelocation>x</sharelocation></share></shares>"),
        "2:16: ignored: <sharelocation>: \"x\" is neither \"internal_share\" nor "
        "\"external_share\"");
  check(with_others("<shares><share><access><users><user><username>u</username></user></users>"
                    "</access></share></shares>"),
        "2:31: <accesstype> is missing in <user>");
  check(with_others("<access><users><user><username>u</username></user></users></access>"),
        "2:16: <uid> is missing in <user>");
  check(with_others("<access><users/><users><user/></users></access>"),
        "2:17: ignored: another <users>, only the first is read");
  check(with_others("<access><users><user><username>u</username><uid>1</uid><accesstype>full"
                    "</accesstype></user></users></access>"),
        "2:56: ignored: <accesstype> is not known here");
}

TEST(NasConfCheck, AgreesWhereverTheDocumentIsCut) {
  const TempDir dir;
  for (size_t size = 0; size <= kFull.size(); ++size) {
    dir.write("x", kFull.substr(0, size));
    ASSERT_EQ(reader_refuses(dir.file("x")), check_refuses(dir.file("x"))) << size;
  }
}

// Each element left out, emptied, renamed, doubled, and given an odd text or an element as content.
TEST(NasConfCheck, AgreesWhateverIsDoneToAnElement) {
  const TempDir dir;
  int refused = 0;
  int accepted = 0;
  for (const size_t start : elements(kFull)) {
    const std::string name = name_at(kFull, start);
    const size_t end = end_of(kFull, start);
    const std::string element = kFull.substr(start, end - start);
    for (const std::string& other :
         {std::string(), "<" + name + "/>", "<odd>" + element + "</odd>", element + element,
          "<" + name + "/>" + element, element + "<" + name + "/>",
          "<" + name + ">7 odd</" + name + ">", "<" + name + ">odd</" + name + ">",
          "<" + name + "> </" + name + ">", "<" + name + "><odd/>7</" + name + ">"}) {
      const std::string document = kFull.substr(0, start) + other + kFull.substr(end);
      dir.write("x", document);
      const bool expected = reader_refuses(dir.file("x"));
      ++(expected ? refused : accepted);
      EXPECT_EQ(expected, check_refuses(dir.file("x"))) << document;
    }
  }
  EXPECT_GT(refused, 100);
  EXPECT_GT(accepted, 100);
}

TEST(NasConfCheck, ReportsWhatIsNoDocument) {
  const TempDir dir;
  dir.write("cut", "<nas_conf_db><version>3");
  dir.write("deep", [] {
    std::string text;
    for (int i = 0; i < 20000; ++i) text += "<a>";
    return text;
  }());
  const std::pair<std::string, std::string> rows[] = {
      {dir.file("none"), ": No such file or directory"       },
      {dir.path(),       ": Is a directory"                  },
      {dir.file("deep"), ": elements nested deeper than 1024"},
      {dir.file("cut"),  ": "                                },
  };
  for (const auto& [file, message] : rows) {
    SCOPED_TRACE(file);
    for (const char* command : {"check", "show"}) {
      const Outcome got = nas_conf({command, file});
      const std::string expected = "Couldn't load " + file + message;
      EXPECT_NE(std::string::npos, got.err.find(expected)) << got.err;
      EXPECT_EQ(1, got.status);
    }
  }
}

TEST(NasConfCheck, EscapesControlBytes) {
  const Outcome got = nas_conf({"check", "-"}, with_system("<a\x9B/>"));
  EXPECT_NE(std::string::npos, got.err.find(" ignored: <a\\x9B> is not known here\n")) << got.err;
}

TEST(NasConfCheck, NamesStandardInputInMessages) {
  EXPECT_EQ("nas-conf: standard input:1:14: <version> has no text at its start\n",
            nas_conf({"check", "-"}, "<nas_conf_db><version/><system/></nas_conf_db>").err);
  const std::string err = nas_conf({"check", "-"}, "<nas_conf_db>\n<version></nas_conf_db>").err;
  EXPECT_EQ(0U, err.find("nas-conf: standard input:2:")) << err;
  EXPECT_NE(std::string::npos, err.find(": Couldn't load standard input: ")) << err;
}

TEST(NasConfCheck, ReportsStandardInputThatIsClosed) {
  EXPECT_EQ(ended(1, "", "nas-conf: standard input: Bad file descriptor\n"),
            support::run({"/bin/sh", "-c", std::string("exec '") + TOOL + "' check - <&-"}));
}

// ---- use ----

TEST(NasConf, RefusesWrongUse) {
  const std::pair<Words, std::string> rows[] = {
      {{},                           "nas-conf: a command and a FILE are needed\n"                },
      {{"check"},                    "nas-conf: check needs a FILE\n"                             },
      {{"get", "x"},                 "nas-conf: get needs a FILE and a PATH\n"                    },
      {{"json", "x", "y"},           "nas-conf: json needs a FILE\n"                              },
      {{"list", "x"},                "nas-conf: 'list' is not a command: show, get, json, check\n"},
      {{"check", "--password", "x"}, "nas-conf: check takes no --password\n"                      },
      {{"show", "--strict", "x"},    "nas-conf: show takes no --strict\n"                         },
      {{"show", "--passwort", "x"},  "nas-conf: '--passwort' is not an option\n"                  },
  };
  for (const auto& [arguments, message] : rows) {
    SCOPED_TRACE(message);
    EXPECT_EQ(ended(2, "", message + "Try 'nas-conf --help'.\n"), nas_conf(arguments));
  }
}

TEST(NasConf, ShowsItsVersion) {
  EXPECT_EQ(ended(0, "nas-conf (nasutil) " NASUTIL_VERSION "\n"), nas_conf({"--version"}));
}

TEST(NasConf, HelpAndManualNameEveryCommandAndOption) {
  const Outcome help = nas_conf({"--help"});
  EXPECT_EQ(0, help.status);
  const std::string manual = support::read_file(MANUAL);
  for (const std::string& command : Words{"show", "get", "json", "check"}) {
    EXPECT_NE(std::string::npos, help.out.find("  " + command + " ")) << command;
    EXPECT_NE(std::string::npos, manual.find(".It Cm " + command)) << command;
  }
  for (const std::string& option : Words{"password", "strict", "help", "version"}) {
    EXPECT_NE(std::string::npos, help.out.find("--" + option)) << option;
    EXPECT_NE(std::string::npos, manual.find("Fl -" + option)) << option;
  }
}
