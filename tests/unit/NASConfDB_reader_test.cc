// SPDX-License-Identifier: MIT
// Reading the configuration document, good and bad.
#include "tests/support/files.h"
#include "util/NASConfDB.h"

#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ticpp.h>

using namespace util;
using support::TempDir;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr char kDocument[] = R"(<nas_conf_db>
  <version>3</version>
  <system>
    <timeformat>24h</timeformat><hostname>nas</hostname><domain>local</domain>
    <language>en</language><dhcpenabled>true</dhcpenabled><timezone>UTC</timezone>
    <printenabled>false</printenabled>
    <webgui><adminpasswd></adminpasswd><protocol>tls</protocol></webgui>
    <hdparams><disk><device>sda</device><inactivityperiod>20</inactivityperiod>
      <lastselftest>0</lastselftest></disk></hdparams>
    <platform>p1</platform><drives>1</drives>
  </system>
  <interfaces><lan><if>eth0</if>
    <ipaddr>192.168.0.2</ipaddr><netmask>255.255.255.0</netmask></lan></interfaces>
  <mounts><mount><device>/dev/sda1</device><fstype>ext3</fstype>
    <mountpoint>/data</mountpoint><options/></mount></mounts>
  <samba><netbiosname>NAS</netbiosname><workgroup>WORKGROUP</workgroup>
    <serverdesc>files</serverdesc><localmaster>yes</localmaster></samba>
  <shares><share><sharename>music</sharename><sharetype>public</sharetype>
    <sharestatus>active</sharestatus><sharelocation>internal_share</sharelocation>
    <access><users>
      <user><username>guest</username><accesstype>full</accesstype></user></users></access>
  </share></shares>
  <access><users><user><username>guest</username><uid>1001</uid></user></users></access>
</nas_conf_db>
)";

// The reading of a document of this text.
NASConfDB read(const std::string& text) {
  const TempDir dir;
  dir.write("conf.xml", text);
  return NASConfDB(dir.file("conf.xml"));
}

// A document with what is required, `system` inside <system> and `rest` behind it.
std::string document(const std::string& system, const std::string& rest = "") {
  return "<nas_conf_db><version>1</version><system>" + system + "</system>" + rest +
         "</nas_conf_db>";
}

NASSystem read_system(const std::string& system) { return read(document(system)).get_system(); }

NASShare read_share(const std::string& share) {
  return read(document("", "<shares><share>" + share + "</share></shares>")).get_shares().front();
}

NASAccess read_access(const std::string& type) {
  return read_share("<access><users><user><username>u</username><accesstype>" + type +
                    "</accesstype></user></users></access>")
      .users.front();
}

// What the exception says that the text's reading throws.
std::string failure(const std::string& text) {
  try {
    read(text);
  } catch (const ticpp::Exception& error) {
    return error.what();
  }
  return "read without a fault";
}

std::string printed(const NASConfDB& database) {
  std::ostringstream os;
  os << database;
  return os.str();
}

template <class T>
std::vector<std::string> printed(const std::list<T>& items) {
  std::vector<std::string> lines;
  for (const T& item : items) {
    std::ostringstream os;
    os << item;
    lines.push_back(os.str());
  }
  return lines;
}

using Lines = std::vector<std::string>;

// The document without the first of these elements, which hold no others of their name.
std::string without(const std::string& element, std::string text = kDocument) {
  const std::string end = "</" + element + ">";
  const size_t from = text.find("<" + element + ">");
  return text.erase(from, text.find(end) + end.size() - from);
}

}  // namespace

// ---- the example, element by element ----

TEST(NASConfDBReader, ReadsTheVersion) { EXPECT_EQ(3, read(kDocument).get_version()); }

TEST(NASConfDBReader, ReadsADocumentWithZerosBehindIt) {
  EXPECT_EQ(3, read(kDocument + std::string(4096, '\0') + "<nas_conf_db>").get_version());
}

TEST(NASConfDBReader, ReadsTheSystem) {
  const NASConfDB database = read(kDocument);
  const NASSystem& system = database.get_system();
  EXPECT_EQ("24h", system.timeformat);
  EXPECT_EQ("nas", system.hostname);
  EXPECT_EQ("local", system.domain);
  EXPECT_EQ("en", system.language);
  EXPECT_TRUE(system.dhcpenabled);
  EXPECT_EQ("UTC", system.timezone);
  EXPECT_FALSE(system.printenabled);
  EXPECT_EQ("", system.webgui_adminpasswd);
  EXPECT_EQ("tls", system.webgui_protocol);
  EXPECT_EQ("p1", system.platform);
  EXPECT_EQ("1", system.drives);
  EXPECT_EQ((Lines{"disk(device: sdainactivityperiod: 20; lastselftest: 0)"}),
            printed(system.disks));
}

TEST(NASConfDBReader, ReadsInterfaces) {
  EXPECT_EQ((Lines{"lan(if: eth0; ipaddr: 192.168.0.2; netmask: 255.255.255.0; rand_ip: )"}),
            printed(read(kDocument).get_lan_ifs()));
}

TEST(NASConfDBReader, ReadsMounts) {
  EXPECT_EQ((Lines{"mount(device: /dev/sda1; fstype: ext3; mountpoint: /data; options: )"}),
            printed(read(kDocument).get_mounts()));
}

TEST(NASConfDBReader, ReadsSamba) {
  const NASConfDB database = read(kDocument);
  const NASSamba& samba = database.get_samba();
  EXPECT_EQ("NAS", samba.netbiosname);
  EXPECT_EQ("WORKGROUP", samba.workgroup);
  EXPECT_EQ("files", samba.serverdesc);
  EXPECT_TRUE(samba.localmaster);
}

TEST(NASConfDBReader, ReadsShares) {
  EXPECT_EQ((Lines{"share(name: music; type: Public; status: Active; location: InternalShare; "
                   "users: (access(username: guest; accesstype: Full)))"}),
            printed(read(kDocument).get_shares()));
}

TEST(NASConfDBReader, ReadsUsers) {
  EXPECT_EQ((Lines{"user(name: guest; uid: 1001)"}), printed(read(kDocument).get_users()));
}

TEST(NASConfDBReader, ReadsEveryTextIntoItsOwnField) {
  const NASConfDB database = read(document(
      "<drives>s8</drives><platform>s7</platform><webgui><protocol>s6</protocol>"
      "<adminpasswd>s5</adminpasswd></webgui><printenabled>true</printenabled>"
      "<timezone>s4</timezone><language>s3</language><domain>s2</domain>"
      "<hostname>s1</hostname><timeformat>s0</timeformat>",
      "<samba><serverdesc>b2</serverdesc><workgroup>b1</workgroup><netbiosname>b0</netbiosname>"
      "</samba><mounts><mount><options>m3</options><mountpoint>m2</mountpoint><fstype>m1</fstype>"
      "<device>m0</device></mount></mounts><interfaces><lan><rand_ip>l3</rand_ip>"
      "<netmask>l2</netmask><ipaddr>l1</ipaddr><if>l0</if></lan></interfaces>"));
  EXPECT_EQ(
      "nas_conf_db(version: 1; system(timeformat: s0; hostname: s1; domain: s2; language: s3; "
      "dhcpenabled: false; timezone: s4; printenabeld: true; webgui(adminpasswd: s5; protocol: "
      "s6); disks: (); platform: s7; drives: s8); interfaces: (lan(if: l0; ipaddr: l1; netmask: "
      "l2; rand_ip: l3)); samba(netbiosname: b0; workgroup: b1; serverdesc: b2; localmaster: "
      "false); shares: (); users: ())",
      printed(database));
  EXPECT_EQ((Lines{"mount(device: m0; fstype: m1; mountpoint: m2; options: m3)"}),
            printed(database.get_mounts()));
}

// ---- what may be missing ----

TEST(NASConfDBReader, ReadsADocumentWithOnlyWhatIsRequired) {
  const NASConfDB database =
      read("<nas_conf_db><version>7</version><system></system></nas_conf_db>");
  EXPECT_EQ(
      "nas_conf_db(version: 7; system(timeformat: ; hostname: ; domain: ; language: ; dhcpenabled: "
      "false; timezone: ; printenabeld: false; webgui(adminpasswd: ; protocol: ); disks: (); "
      "platform: ; drives: ); interfaces: (); samba(netbiosname: ; workgroup: ; serverdesc: ; "
      "localmaster: false); shares: (); users: ())",
      printed(database));
  EXPECT_TRUE(database.get_mounts().empty());
}

TEST(NASConfDBReader, EveryOtherElementIsOptional) {
  for (const char* const element :
       {"timeformat",   "hostname",  "domain",      "language",      "dhcpenabled", "timezone",
        "printenabled", "webgui",    "adminpasswd", "protocol",      "hdparams",    "disk",
        "platform",     "drives",    "interfaces",  "lan",           "if",          "ipaddr",
        "netmask",      "mounts",    "mount",       "fstype",        "mountpoint",  "samba",
        "netbiosname",  "workgroup", "serverdesc",  "localmaster",   "shares",      "share",
        "sharename",    "sharetype", "sharestatus", "sharelocation", "access",      "users"}) {
    EXPECT_EQ("read without a fault", failure(without(element))) << element;
  }
}

TEST(NASConfDBReader, EmptyContainersGiveEmptyLists) {
  const NASConfDB database = read(document(
      "<webgui/><hdparams/>",
      "<interfaces/><mounts/><samba/><shares><share><access/></share><share><access><users/>"
      "</access></share></shares><access><users/></access>"));
  EXPECT_TRUE(database.get_system().disks.empty());
  EXPECT_TRUE(database.get_lan_ifs().empty());
  EXPECT_TRUE(database.get_mounts().empty());
  EXPECT_TRUE(database.get_shares().front().users.empty());
  EXPECT_TRUE(database.get_shares().back().users.empty());
  EXPECT_TRUE(database.get_users().empty());
}

TEST(NASConfDBReader, EveryRequiredElementMissingInTurnIsAFault) {
  EXPECT_THAT(failure("<conf/>"),
              HasSubstr("does NOT contain a child with the value of 'nas_conf_db'"));
  const struct {
    std::string element, parent;
  } rows[] = {
      {"version",          "nas_conf_db"},
      {"system",           "nas_conf_db"},
      {"device",           "disk"       },
      {"inactivityperiod", "disk"       },
      {"lastselftest",     "disk"       },
      {"username",         "user"       },
      {"accesstype",       "user"       },
      {"uid",              "user"       },
  };
  const auto missing = [](const auto& row) {
    return HasSubstr("Element (" + row.parent + ") does NOT contain a child with the value of '" +
                     row.element + "'");
  };
  for (const auto& row : rows) EXPECT_THAT(failure(without(row.element.c_str())), missing(row));
  EXPECT_THAT(failure(without("username", without("shares"))), missing(rows[5]));
}

TEST(NASConfDBReader, ARequiredElementOfALaterRecordIsMissedToo) {
  EXPECT_THAT(failure(document("",
                               "<access><users><user><username>a</username><uid>1</uid></user>"
                               "<user><username>b</username></user></users></access>")),
              StartsWith("Element (user) does NOT contain a child with the value of 'uid'"));
}

// ---- texts ----

TEST(NASConfDBReader, AnEmptyTextIsAFault) {
  for (const char* const element :
       {"version",          "timeformat",   "hostname",     "domain",      "language",
        "dhcpenabled",      "timezone",     "printenabled", "protocol",    "device",
        "inactivityperiod", "lastselftest", "platform",     "drives",      "if",
        "ipaddr",           "netmask",      "fstype",       "netbiosname", "workgroup",
        "serverdesc",       "localmaster",  "sharename",    "sharetype",   "sharestatus",
        "sharelocation",    "username",     "accesstype",   "uid"}) {
    const std::string name = element;
    for (const std::string& empty : {"<" + name + "/>", "<" + name + "> \n </" + name + ">"}) {
      std::string text = without(element);
      text.insert(std::string(kDocument).find("<" + name + ">"), empty);
      EXPECT_THAT(failure(text), StartsWith("Text does not exists in the current element"))
          << empty;
    }
  }
}

TEST(NASConfDBReader, EmptyTextsOfListedRecordsAreFaults) {
  for (const char* const rest :
       {"<interfaces><lan><rand_ip/></lan></interfaces>",
        "<mounts><mount><device/></mount></mounts>",
        "<access><users><user><username/><uid>1</uid></user></users></access>"}) {
    EXPECT_THAT(failure(document("", rest)),
                StartsWith("Text does not exists in the current element"))
        << rest;
  }
}

TEST(NASConfDBReader, PasswordMountpointAndOptionsMayBeEmpty) {
  EXPECT_EQ("", read_system("<webgui><adminpasswd/></webgui>").webgui_adminpasswd);
  EXPECT_EQ((Lines{"mount(device: ; fstype: ; mountpoint: ; options: )"}),
            printed(read(document("",
                                  "<mounts><mount><mountpoint/><options> </options></mount>"
                                  "</mounts>"))
                        .get_mounts()));
}

TEST(NASConfDBReader, OnlyATextThatIsTheFirstChildCounts) {
  EXPECT_EQ("nas", read_system("<hostname>nas<b/></hostname>").hostname);
  EXPECT_THAT(failure(document("<hostname><b/>nas</hostname>")),
              StartsWith("Text does not exists in the current element"));
}

TEST(NASConfDBReader, TextsComeThroughUnharmed) {
  const std::pair<const char*, const char*> rows[] = {
      {"%s%n%99999d",                     "%s%n%99999d"                    },
      {"Gr\xc3\xbc\xc3\x9f \xe2\x82\xac", "Gr\xc3\xbc\xc3\x9f \xe2\x82\xac"},
      {"&lt;b&gt; &amp; &quot;&apos;",    "<b> & \"'"                      },
      {"a&#27;[31m&#x7;b",
       "a\x1b[31m\x07"
       "b"                                                                 },
      {"a\x01\x7f"
       "b",                        "a\x01\x7f"
       "b"                                               },
      {"<![CDATA[<a> & %d  ]]>",          "<a> & %d  "                     },
      {"; uid: 0)",                       "; uid: 0)"                      },
  };
  for (const auto& [written, read] : rows) {
    SCOPED_TRACE(written);
    const std::string text = written;
    const NASSystem system = read_system("<hostname>" + text + "</hostname><webgui><adminpasswd>" +
                                         text + "</adminpasswd></webgui>");
    EXPECT_EQ(read, system.hostname);
    EXPECT_EQ(read, system.webgui_adminpasswd);
    EXPECT_EQ(read, read_share("<sharename>" + text + "</sharename>").name);
  }
}

TEST(NASConfDBReader, ReadsATextOfAMillionBytes) {
  const std::string text(1000000, 'x');
  EXPECT_EQ(text, read_system("<hostname>" + text + "</hostname>").hostname);
}

// ---- numbers ----

TEST(NASConfDBReader, ReadsDecimalNumbers) {
  const std::pair<std::string, int> rows[] = {
      {"0",           0              },
      {"-5",          -5             },
      {"+5",          5              },
      {"007",         7              },
      {" 12 ",        12             },
      {"2147483647",  2147483647     },
      {"-2147483648", -2147483647 - 1},
      {"20abc",       20             },
      {"20.9",        20             },
      {"1 2",         1              },
      {"0x10",        0              },
  };
  for (const auto& [text, value] : rows) {
    EXPECT_EQ(
        value,
        read("<nas_conf_db><version>" + text + "</version><system/></nas_conf_db>").get_version())
        << text;
    EXPECT_EQ(value, read(document("", "<access><users><user><username>a</username><uid>" + text +
                                           "</uid></user></users></access>"))
                         .get_users()
                         .front()
                         .uid)
        << text;
  }
}

TEST(NASConfDBReader, ATextThatIsNoNumberIsAFault) {
  for (const std::string text :
       {"abc", "x1", "-", "--1", ".5", "2147483648", "-2147483649", "99999999999999999999", "%d"}) {
    const std::string fault = "Could not convert \"" + text + "\" to target type";
    EXPECT_THAT(failure("<nas_conf_db><version>" + text + "</version><system/></nas_conf_db>"),
                StartsWith(fault));
    for (const char* const element : {"inactivityperiod", "lastselftest", "uid"}) {
      const std::string name = element;
      std::string document = without(element);
      document.insert(std::string(kDocument).find("<" + name + ">"),
                      "<" + name + ">" + text + "</" + name + ">");
      EXPECT_THAT(failure(document), StartsWith(fault)) << element;
    }
  }
}

// ---- words ----

TEST(NASConfDBReader, DhcpAndPrintingAreOnForTrueAlone) {
  for (const char* const word : {"yes", "True", "TRUE", "1", "true1", "tru", "false"}) {
    const std::string text = word;
    EXPECT_FALSE(read_system("<dhcpenabled>" + text + "</dhcpenabled>").dhcpenabled) << word;
    EXPECT_FALSE(read_system("<printenabled>" + text + "</printenabled>").printenabled) << word;
  }
  EXPECT_TRUE(read_system("<dhcpenabled>true</dhcpenabled>").dhcpenabled);
  EXPECT_TRUE(read_system("<printenabled>true</printenabled>").printenabled);
}

TEST(NASConfDBReader, LocalmasterIsOnForYesAlone) {
  const auto localmaster = [](const std::string& word) {
    return read(document("", "<samba><localmaster>" + word + "</localmaster></samba>"))
        .get_samba()
        .localmaster;
  };
  EXPECT_TRUE(localmaster("yes"));
  for (const char* const word : {"true", "Yes", "YES", "1", "yes!", "ye", "no"}) {
    EXPECT_FALSE(localmaster(word)) << word;
  }
}

TEST(NASConfDBReader, ReadsShareTypes) {
  EXPECT_EQ(Public, read_share("<sharetype>public</sharetype>").type);
  EXPECT_EQ(Private, read_share("<sharetype>private</sharetype>").type);
  EXPECT_EQ(NoType, read_share("<sharetype>Public</sharetype>").type);
  EXPECT_EQ(NoType, read_share("<sharetype>publicly</sharetype>").type);
  EXPECT_EQ(NoType, read_share("").type);
}

TEST(NASConfDBReader, ReadsShareStatuses) {
  EXPECT_EQ(Active, read_share("<sharestatus>active</sharestatus>").status);
  EXPECT_EQ(Suspended, read_share("<sharestatus>suspended</sharestatus>").status);
  EXPECT_EQ(NoStatus, read_share("<sharestatus>Active</sharestatus>").status);
  EXPECT_EQ(NoStatus, read_share("").status);
}

TEST(NASConfDBReader, ReadsShareLocations) {
  const auto location = [](const std::string& word) {
    return read_share("<sharelocation>" + word + "</sharelocation>").location;
  };
  EXPECT_EQ(InternalShare, location("internal_share"));
  EXPECT_EQ(ExternalShare, location("external_share"));
  EXPECT_EQ(NoLocation, location("Internal_share"));
  EXPECT_EQ(NoLocation, read_share("").location);
}

TEST(NASConfDBReader, ReadsAccessTypes) {
  EXPECT_EQ(Full, read_access("full").accesstype);
  EXPECT_EQ(ReadOnly, read_access("readonly").accesstype);
  EXPECT_EQ(None, read_access("Full").accesstype);
  EXPECT_EQ(None, read_access("none").accesstype);
}

// ---- what is there more than once, or should not be there ----

TEST(NASConfDBReader, RepeatedRecordsComeInDocumentOrder) {
  const NASConfDB database = read(document(
      "<hdparams><disk><device>a</device><inactivityperiod>1</inactivityperiod>"
      "<lastselftest>2</lastselftest></disk><disk><lastselftest>4</lastselftest>"
      "<device>b</device><inactivityperiod>3</inactivityperiod></disk></hdparams>",
      "<shares><share><sharename>z</sharename><access><users>"
      "<user><username>u2</username><accesstype>full</accesstype></user>"
      "<user><username>u1</username><accesstype>none</accesstype></user></users></access></share>"
      "<share><sharename>y</sharename></share></shares>"
      "<access><users><user><username>z</username><uid>2</uid></user>"
      "<user><username>a</username><uid>1</uid></user></users></access>"));
  EXPECT_EQ((Lines{"disk(device: ainactivityperiod: 1; lastselftest: 2)",
                   "disk(device: binactivityperiod: 3; lastselftest: 4)"}),
            printed(database.get_system().disks));
  EXPECT_EQ((Lines{"share(name: z; type: ; status: ; location: ; users: (access(username: u2; "
                   "accesstype: Full), access(username: u1; accesstype: None)))",
                   "share(name: y; type: ; status: ; location: ; users: ())"}),
            printed(database.get_shares()));
  EXPECT_EQ((Lines{"user(name: z; uid: 2)", "user(name: a; uid: 1)"}),
            printed(database.get_users()));
}

TEST(NASConfDBReader, EachRecordStartsFresh) {
  const NASConfDB database = read(
      document("",
               "<interfaces><lan><if>eth0</if><ipaddr>1</ipaddr></lan><lan/></interfaces>"
               "<mounts><mount><device>a</device><options>ro</options></mount><mount/></mounts>"));
  EXPECT_EQ((Lines{"lan(if: eth0; ipaddr: 1; netmask: ; rand_ip: )",
                   "lan(if: ; ipaddr: ; netmask: ; rand_ip: )"}),
            printed(database.get_lan_ifs()));
  EXPECT_EQ((Lines{"mount(device: a; fstype: ; mountpoint: ; options: ro)",
                   "mount(device: ; fstype: ; mountpoint: ; options: )"}),
            printed(database.get_mounts()));
}

TEST(NASConfDBReader, OfTwoSystemsOnlyTheFirstIsRead) {
  const NASConfDB database = read(
      "<nas_conf_db><version>1</version><system><hostname>first</hostname></system>"
      "<system><hostname/><domain>second</domain></system></nas_conf_db>");
  EXPECT_EQ("first", database.get_system().hostname);
  EXPECT_EQ("", database.get_system().domain);
}

TEST(NASConfDBReader, OfTwoElementsOnlyTheFirstIsRead) {
  const NASConfDB database = read(document(
      "<hostname>a</hostname><hostname/><webgui><protocol>b</protocol></webgui>"
      "<webgui><adminpasswd>x</adminpasswd></webgui><hdparams/><hdparams><disk/></hdparams>",
      "<version>x</version><interfaces/><interfaces><lan/></interfaces><mounts/>"
      "<mounts><mount/></mounts><samba/><samba><workgroup/></samba><shares/><shares><share/>"
      "</shares><access><users/><users><user/></users></access><access><users><user/></users>"
      "</access>"));
  EXPECT_EQ(1, database.get_version());
  EXPECT_EQ("a", database.get_system().hostname);
  EXPECT_EQ("b", database.get_system().webgui_protocol);
  EXPECT_EQ("", database.get_system().webgui_adminpasswd);
  EXPECT_TRUE(database.get_system().disks.empty());
  EXPECT_TRUE(database.get_lan_ifs().empty());
  EXPECT_TRUE(database.get_mounts().empty());
  EXPECT_TRUE(database.get_shares().empty());
  EXPECT_TRUE(database.get_users().empty());
}

TEST(NASConfDBReader, TwoRootsAreReadAsTheFirst) {
  EXPECT_EQ(1, read(document("") + "<nas_conf_db/>").get_version());
}

TEST(NASConfDBReader, UnknownElementsAreSkipped) {
  const NASConfDB database = read(
      "<?xml version=\"1.0\"?><!-- c --><other/><nas_conf_db a=\"b\"><x><system/></x>"
      "<version>1</version><system><x/><hostname>h</hostname><hdparams><x><disk/></x></hdparams>"
      "</system><shares><Share/><share><x/><sharename>s</sharename></share><x/><share/><x/>"
      "</shares><access><user/><users><x/><user><x/><username>u</username><uid>1</uid></user>"
      "</users></access></nas_conf_db>");
  EXPECT_EQ("h", database.get_system().hostname);
  EXPECT_TRUE(database.get_system().disks.empty());
  EXPECT_EQ(2U, database.get_shares().size());
  EXPECT_EQ("s", database.get_shares().front().name);
  EXPECT_EQ(1U, database.get_users().size());
}

TEST(NASConfDBReader, TheSameNamesInOtherPlacesAreNotMixedUp) {
  const NASConfDB database = read(document(
      "<device>x</device><username>x</username>",
      "<users><user/></users><sharename/><mounts><mount><device>m</device></mount></mounts>"
      "<access><users><user><username>account</username><uid>5</uid></user></users></access>"
      "<shares><share><users><user/></users><access><users><user><username>right</username>"
      "<accesstype>full</accesstype></user></users></access></share></shares>"));
  EXPECT_EQ((Lines{"user(name: account; uid: 5)"}), printed(database.get_users()));
  EXPECT_EQ((Lines{"access(username: right; accesstype: Full)"}),
            printed(database.get_shares().front().users));
}

// ---- files that are no such document ----

TEST(NASConfDBReader, AFileThatCannotBeReadIsAFault) {
  const TempDir dir;
  const std::string missing = dir.file("%s/none.xml");
  for (const std::string& path : {missing, dir.path(), std::string()}) {
    EXPECT_THAT([&] { const NASConfDB database(path); },
                testing::ThrowsMessage<ticpp::Exception>(StartsWith("Couldn't load " + path)));
  }
}

TEST(NASConfDBReader, AFileThatIsNoXmlIsAFault) {
  for (const std::string text : {"", " ", "no markup", "<nas_conf_db>", "<nas_conf_db></other>",
                                 "<nas_conf_db", "<nas_conf_db><version>3</version><system/>",
                                 "\x7f"
                                 "ELF"}) {
    EXPECT_NE("read without a fault", failure(text)) << text;
  }
}

TEST(NASConfDBReader, ADocumentCutAtAnyByteIsAFault) {
  const std::string text = kDocument;
  const TempDir dir;
  const int before = support::open_descriptors();
  for (size_t size = 0; size < text.rfind('>'); ++size) {
    dir.write("conf.xml", text.substr(0, size));
    EXPECT_THROW(NASConfDB(dir.file("conf.xml")), ticpp::Exception) << size;
  }
  EXPECT_EQ(before, support::open_descriptors());
}

TEST(NASConfDBReader, TwentyThousandLevelsAreAFault) {
  std::string deep;
  for (int level = 0; level < 20000; ++level) deep += "<a>";
  std::string closed = deep;
  for (int level = 0; level < 20000; ++level) closed += "</a>";
  EXPECT_NE("read without a fault", failure(document("", closed)));
  EXPECT_NE("read without a fault", failure("<nas_conf_db>" + deep));
}

TEST(NASConfDBReader, AFaultLeavesTheOldDatabaseWhole) {
  NASConfDB database = read(kDocument);
  const std::string before = printed(database);
  EXPECT_THROW(database = read(without("uid")), ticpp::Exception);
  EXPECT_EQ(before, printed(database));
}

TEST(NASConfDBReader, KeepsNoFileOpen) {
  const int before = support::open_descriptors();
  const NASConfDB good = read(kDocument);
  EXPECT_THAT(failure(without("uid")), StartsWith("Element (user) does NOT"));
  EXPECT_EQ(before, support::open_descriptors());
}

TEST(NASConfDBReader, AFaultIsToldWithItsPlace) {
  EXPECT_EQ(
      "Text does not exists in the current element (/nas_conf_db/system/hostname, row 3, column "
      "11)",
      failure("<nas_conf_db>\n<version>1</version>\n <system> <hostname/></system></nas_conf_db>"));
  EXPECT_EQ(
      "Could not convert \"x\" to target type (/nas_conf_db/access/users/user/uid, row 2, column "
      "23)",
      failure(document("",
                       "<access><users><user>\n<username>a</username><uid>x</uid></user>"
                       "</users></access>")));
  EXPECT_EQ(
      "Element (disk) does NOT contain a child with the value of 'lastselftest' "
      "(/nas_conf_db/system/hdparams/disk, row 2, column 1)",
      failure(document("<hdparams>\n<disk><device>a</device><inactivityperiod>1</inactivityperiod>"
                       "</disk></hdparams>")));
}

// ---- checking ----

TEST(NASConfDBCheck, FindsFaultsAndWhatIsIgnoredInTheOrderOfTheDocument) {
  const TempDir dir;
  dir.write("x",
            "<nas_conf_db>\n<version>x</version>\n<system><colour/><hostname/>\n"
            "<dhcpenabled>yes</dhcpenabled></system></nas_conf_db>");
  const std::list<NASFinding> found = NASConfDB::check(dir.file("x"));
  const std::vector<NASFinding> findings(found.begin(), found.end());
  ASSERT_EQ(4U, findings.size());
  EXPECT_TRUE(findings[0].fault);
  EXPECT_EQ(2, findings[0].row);
  EXPECT_EQ(1, findings[0].column);
  EXPECT_EQ("<version>: \"x\" is not a number, or is out of range", findings[0].text);
  EXPECT_FALSE(findings[1].fault);
  EXPECT_EQ("ignored: <colour> is not known here", findings[1].text);
  EXPECT_TRUE(findings[2].fault);
  EXPECT_EQ(18, findings[2].column);
  EXPECT_EQ("<hostname> has no text at its start", findings[2].text);
  EXPECT_EQ("ignored: <dhcpenabled>: \"yes\" is neither \"true\" nor \"false\"", findings[3].text);
}

TEST(NASConfDBCheck, FindsNothingInAGoodDocument) {
  const TempDir dir;
  dir.write("x", kDocument);
  EXPECT_TRUE(NASConfDB::check(dir.file("x")).empty());
}

TEST(NASConfDBCheck, NamesTheMissingRoot) {
  const TempDir dir;
  dir.write("x", "<other/>");
  const std::list<NASFinding> found = NASConfDB::check(dir.file("x"));
  const std::vector<NASFinding> findings(found.begin(), found.end());
  ASSERT_EQ(2U, findings.size());
  EXPECT_EQ("ignored: <other> is not known here", findings[0].text);
  EXPECT_EQ("<nas_conf_db> is missing", findings[1].text);
}

TEST(NASConfDBCheck, ThrowsForAFileThatCannotBeRead) {
  EXPECT_THROW(NASConfDB::check("/nonexistent/x"), ticpp::Exception);
}

TEST(NASConfDBWords, AreThoseOfTheDocument) {
  EXPECT_STREQ("public", word_of(Public));
  EXPECT_STREQ("private", word_of(Private));
  EXPECT_STREQ("active", word_of(Active));
  EXPECT_STREQ("suspended", word_of(Suspended));
  EXPECT_STREQ("internal_share", word_of(InternalShare));
  EXPECT_STREQ("external_share", word_of(ExternalShare));
  EXPECT_STREQ("readonly", word_of(ReadOnly));
  EXPECT_STREQ("full", word_of(Full));
  for (const char* none :
       {word_of(NoType), word_of(NoStatus), word_of(NoLocation), word_of(None)}) {
    EXPECT_STREQ("", none);
  }
}
