// SPDX-License-Identifier: MIT
// The records of the configuration and their printers.
#include "util/NASConfDB.h"

#include "tests/support/files.h"

#include <iomanip>
#include <locale>
#include <sstream>
#include <type_traits>

#include <gtest/gtest.h>

using namespace util;
using support::TempDir;

namespace {

template <class T>
std::string printed(const T& value) {
  std::ostringstream os;
  os << value;
  return os.str();
}

NASConfDB read(const std::string& text) {
  const TempDir dir;
  dir.write("conf.xml", text);
  return NASConfDB(dir.file("conf.xml"));
}

// Groups thousands by apostrophes, as a stream may be told to.
struct Grouping : std::numpunct<char> {
  char do_thousands_sep() const override { return '\''; }
  std::string do_grouping() const override { return "\3"; }
};

const NASSystem kSystem = {"24h", "nas", "local",          "en", true, "UTC", false,
                           "",    "tls", {{"sda", 20, 0}}, "p1", "1"};

}  // namespace

// ---- records ----

TEST(NASRecords, EnumeratorsHaveTheirValues) {
  EXPECT_EQ(0, NoType);
  EXPECT_EQ(1, Public);
  EXPECT_EQ(2, Private);
  EXPECT_EQ(0, NoStatus);
  EXPECT_EQ(1, Active);
  EXPECT_EQ(2, Suspended);
  EXPECT_EQ(0, NoLocation);
  EXPECT_EQ(1, InternalShare);
  EXPECT_EQ(2, ExternalShare);
  EXPECT_EQ(0, None);
  EXPECT_EQ(1, ReadOnly);
  EXPECT_EQ(2, Full);
  EXPECT_EQ(4U, sizeof(NASShareType));
  EXPECT_EQ(4U, sizeof(NASShareStatus));
  EXPECT_EQ(4U, sizeof(NASShareLocation));
  EXPECT_EQ(4U, sizeof(NASAccessType));
}

TEST(NASRecords, StartWithTheirDefaults) {
  EXPECT_EQ("disk(device: inactivityperiod: 0; lastselftest: 0)", printed(NASDisk()));
  EXPECT_EQ(
      "system(timeformat: ; hostname: ; domain: ; language: ; dhcpenabled: false; timezone: ; "
      "printenabeld: false; webgui(adminpasswd: ; protocol: ); disks: (); platform: ; drives: )",
      printed(NASSystem()));
  EXPECT_EQ("lan(if: ; ipaddr: ; netmask: ; rand_ip: )", printed(NASLANInterface()));
  EXPECT_EQ("mount(device: ; fstype: ; mountpoint: ; options: )", printed(NASMount()));
  EXPECT_EQ("samba(netbiosname: ; workgroup: ; serverdesc: ; localmaster: false)",
            printed(NASSamba()));
  EXPECT_EQ("access(username: ; accesstype: None)", printed(NASAccess()));
  EXPECT_EQ("share(name: ; type: ; status: ; location: ; users: ())", printed(NASShare()));
}

TEST(NASRecords, ADefaultUserHasNoUid) {
  EXPECT_EQ(-1, NASUser().uid);
  EXPECT_EQ("user(name: ; uid: -1)", printed(NASUser()));
}

TEST(NASRecords, AreCopiedByValue) {
  const NASShare share = {"music", Public, Active, InternalShare, {{"guest", Full}}};
  NASShare copy;
  copy = share;
  copy.users.front().username = "other";
  EXPECT_EQ("guest", share.users.front().username);
  EXPECT_EQ("other", copy.users.front().username);
}

TEST(NASRecords, ADatabaseIsOnlyMadeFromADocument) {
  EXPECT_FALSE(std::is_default_constructible<NASConfDB>::value);
  EXPECT_TRUE((std::is_constructible<NASConfDB, const std::string&>::value));
  EXPECT_TRUE(std::is_copy_constructible<NASConfDB>::value);
  EXPECT_TRUE(std::is_copy_assignable<NASConfDB>::value);
}

// ---- root_path ----

TEST(NASShareRootPath, LiesBelowTheBaseOfItsLocation) {
  EXPECT_EQ("/shares/internal/music",
            (NASShare{"music", Public, Active, InternalShare, {}}.root_path()));
  EXPECT_EQ("/shares/external/music",
            (NASShare{"music", Public, Active, ExternalShare, {}}.root_path()));
}

TEST(NASShareRootPath, JoinsWhateverTheNameIs) {
  EXPECT_EQ("/shares/internal/../etc",
            (NASShare{"../etc", Public, Active, InternalShare, {}}.root_path()));
  EXPECT_EQ("/shares/internal/", (NASShare{"", Public, Active, InternalShare, {}}.root_path()));
}

TEST(NASShareRootPath, IsUnknownWithoutALocation) {
  for (const int location : {0, 3, -1}) {
    NASShare share;
    share.location = static_cast<NASShareLocation>(location);
    EXPECT_THROW(share.root_path(), bad_location) << location;
  }
}

TEST(BadLocation, SaysWhatIsMissing) {
  EXPECT_STREQ("can't determine share location", bad_location().what());
  EXPECT_TRUE((std::is_base_of<std::exception, bad_location>::value));
  EXPECT_EQ(sizeof(std::exception), sizeof(bad_location));
}

// ---- printers ----

TEST(NASPrinters, EnumeratorsPrintTheirNames) {
  EXPECT_EQ("", printed(NoType));
  EXPECT_EQ("Public", printed(Public));
  EXPECT_EQ("Private", printed(Private));
  EXPECT_EQ("", printed(NoStatus));
  EXPECT_EQ("Active", printed(Active));
  EXPECT_EQ("Suspended", printed(Suspended));
  EXPECT_EQ("", printed(NoLocation));
  EXPECT_EQ("InternalShare", printed(InternalShare));
  EXPECT_EQ("None", printed(None));
  EXPECT_EQ("ReadOnly", printed(ReadOnly));
  EXPECT_EQ("Full", printed(Full));
}

TEST(NASPrinters, ExternalShareHasNoName) { EXPECT_EQ("", printed(ExternalShare)); }

TEST(NASPrinters, ValuesThatAreNotListedPrintNothing) {
  for (const int value : {3, -1, 2147483647, -2147483647 - 1}) {
    EXPECT_EQ("", printed(static_cast<NASShareType>(value))) << value;
    EXPECT_EQ("", printed(static_cast<NASShareStatus>(value))) << value;
    EXPECT_EQ("", printed(static_cast<NASShareLocation>(value))) << value;
    EXPECT_EQ("", printed(static_cast<NASAccessType>(value))) << value;
  }
}

TEST(NASPrinters, Disk) {
  EXPECT_EQ("disk(device: sdainactivityperiod: 20; lastselftest: -7)",
            printed(NASDisk{"sda", 20, -7}));
}

TEST(NASPrinters, SystemMisspellsPrintenabled) {
  EXPECT_EQ(
      "system(timeformat: 24h; hostname: nas; domain: local; language: en; dhcpenabled: true; "
      "timezone: UTC; printenabeld: false; webgui(adminpasswd: ; protocol: tls); disks: "
      "(disk(device: sdainactivityperiod: 20; lastselftest: 0)); platform: p1; drives: 1)",
      printed(kSystem));
}

TEST(NASPrinters, SystemTellsItsTwoSwitchesApart) {
  NASSystem system;
  system.printenabled = true;
  EXPECT_NE(std::string::npos, printed(system).find("; dhcpenabled: false; "));
  EXPECT_NE(std::string::npos, printed(system).find("; printenabeld: true; "));
}

TEST(NASPrinters, SystemShowsThePassword) {
  NASSystem system;
  system.webgui_adminpasswd = "secret";
  EXPECT_NE(std::string::npos, printed(system).find("webgui(adminpasswd: secret; protocol: )"));
}

TEST(NASPrinters, LanInterface) {
  EXPECT_EQ("lan(if: eth0; ipaddr: 192.168.0.2; netmask: 255.255.255.0; rand_ip: 10.0.0.1)",
            printed(NASLANInterface{"eth0", "192.168.0.2", "255.255.255.0", "10.0.0.1"}));
}

TEST(NASPrinters, Mount) {
  EXPECT_EQ("mount(device: /dev/sda1; fstype: ext3; mountpoint: /data; options: ro)",
            printed(NASMount{"/dev/sda1", "ext3", "/data", "ro"}));
}

TEST(NASPrinters, Samba) {
  EXPECT_EQ("samba(netbiosname: NAS; workgroup: WORKGROUP; serverdesc: files; localmaster: true)",
            printed(NASSamba{"NAS", "WORKGROUP", "files", true}));
}

TEST(NASPrinters, Access) {
  EXPECT_EQ("access(username: guest; accesstype: ReadOnly)", printed(NASAccess{"guest", ReadOnly}));
}

TEST(NASPrinters, User) {
  EXPECT_EQ("user(name: guest; uid: 1001)", printed(NASUser{"guest", 1001}));
}

TEST(NASPrinters, AnExternalShareShowsNoLocation) {
  EXPECT_EQ("share(name: music; type: Private; status: Suspended; location: ; users: ())",
            printed(NASShare{"music", Private, Suspended, ExternalShare, {}}));
}

TEST(NASPrinters, ListsPutACommaBetweenTheirElements) {
  EXPECT_EQ(
      "share(name: music; type: Public; status: Active; location: InternalShare; users: "
      "(access(username: a; accesstype: Full), access(username: b; accesstype: None), "
      "access(username: c; accesstype: ReadOnly)))",
      printed(NASShare{
          "music", Public, Active, InternalShare, {{"a", Full}, {"b", None}, {"c", ReadOnly}}
  }));
}

TEST(NASPrinters, DatabaseLeavesItsMountsOut) {
  EXPECT_EQ(
      "nas_conf_db(version: 3; system(timeformat: 24h; hostname: nas; domain: local; language: en; "
      "dhcpenabled: true; timezone: UTC; printenabeld: false; webgui(adminpasswd: ; protocol: "
      "tls); disks: (disk(device: sdainactivityperiod: 20; lastselftest: 0)); platform: p1; "
      "drives: 1); interfaces: (lan(if: eth0; ipaddr: 192.168.0.2; netmask: 255.255.255.0; "
      "rand_ip: )); samba(netbiosname: NAS; workgroup: WORKGROUP; serverdesc: files; localmaster: "
      "false); shares: (share(name: music; type: Public; status: Active; location: InternalShare; "
      "users: (access(username: guest; accesstype: Full)))); users: (user(name: guest; uid: "
      "1001)))",
      printed(read(R"(<nas_conf_db><version>3</version>
        <system><timeformat>24h</timeformat><hostname>nas</hostname><domain>local</domain>
          <language>en</language><dhcpenabled>true</dhcpenabled><timezone>UTC</timezone>
          <printenabled>false</printenabled>
          <webgui><adminpasswd/><protocol>tls</protocol></webgui>
          <hdparams><disk><device>sda</device><inactivityperiod>20</inactivityperiod>
            <lastselftest>0</lastselftest></disk></hdparams>
          <platform>p1</platform><drives>1</drives></system>
        <interfaces><lan><if>eth0</if><ipaddr>192.168.0.2</ipaddr>
          <netmask>255.255.255.0</netmask></lan></interfaces>
        <mounts><mount><device>/dev/sda1</device></mount></mounts>
        <samba><netbiosname>NAS</netbiosname><workgroup>WORKGROUP</workgroup>
          <serverdesc>files</serverdesc><localmaster>no</localmaster></samba>
        <shares><share><sharename>music</sharename><sharetype>public</sharetype>
          <sharestatus>active</sharestatus><sharelocation>internal_share</sharelocation>
          <access><users><user><username>guest</username><accesstype>full</accesstype></user>
          </users></access></share></shares>
        <access><users><user><username>guest</username><uid>1001</uid></user></users></access>
        </nas_conf_db>)")));
}

TEST(NASPrinters, DatabaseSeparatesItsRecords) {
  const std::string text = printed(read(R"(<nas_conf_db><version>1</version><system/>
      <interfaces><lan/><lan/></interfaces><shares><share/><share/></shares>
      <access><users><user><username>a</username><uid>1</uid></user>
        <user><username>b</username><uid>2</uid></user></users></access></nas_conf_db>)"));
  EXPECT_NE(std::string::npos,
            text.find("; interfaces: (lan(if: ; ipaddr: ; netmask: ; rand_ip: ), "
                      "lan(if: ; ipaddr: ; netmask: ; rand_ip: )); samba("));
  EXPECT_NE(std::string::npos,
            text.find("; shares: (share(name: ; type: ; status: ; location: ; users: ()), "
                      "share(name: ; type: ; status: ; location: ; users: ())); users: ("));
  EXPECT_NE(std::string::npos, text.find("users: (user(name: a; uid: 1), user(name: b; uid: 2)))"));
}

TEST(NASPrinters, StringsAreWrittenAsTheyAre) {
  const std::string bytes("%s%n \0\x01\x1b\n\xff\xc3\xa9 ; )", 16);
  EXPECT_EQ("user(name: " + bytes + "; uid: 0)", printed(NASUser{bytes, 0}));
}

TEST(NASPrinters, NumbersAreDecimalWhateverTheStreamIsSetTo) {
  std::ostringstream os;
  os.imbue(std::locale(std::locale::classic(), new Grouping));
  os << std::hex << std::showbase << std::showpos << std::boolalpha << std::uppercase;
  os << NASUser{"a", 1001} << NASDisk{"b", 70000, 10} << read(R"(<nas_conf_db>
      <version>255</version><system/></nas_conf_db>)");
  EXPECT_EQ(0U, os.str().find("user(name: a; uid: 1001)disk(device: binactivityperiod: 70000; "
                              "lastselftest: 10)nas_conf_db(version: 255; "));
}

TEST(NASPrinters, LeaveTheStreamsFlagsAsTheyAre) {
  std::ostringstream os;
  os << std::oct << std::showbase << std::left << std::noboolalpha << std::setfill('*');
  const auto flags = os.flags();
  os << kSystem << NASUser{"a", 1} << NASAccess{"b", Full} << NASSamba();
  EXPECT_EQ(flags, os.flags());
  EXPECT_EQ('*', os.fill());
}

TEST(NASPrinters, AWidthPadsNothingAndIsUsedUp) {
  std::ostringstream os;
  os << std::setfill('*') << std::setw(60) << NASUser{"a", 1};
  os << std::setw(60) << NoType << std::setw(60) << Full << std::setw(60) << kSystem.disks.front();
  os << '.';
  EXPECT_EQ("user(name: a; uid: 1)Fulldisk(device: sdainactivityperiod: 20; lastselftest: 0).",
            os.str());
}

TEST(NASPrinters, ReturnTheStream) {
  std::ostringstream os;
  EXPECT_EQ(&os, &(os << Public));
  EXPECT_EQ(&os, &(os << kSystem));
}
