// SPDX-License-Identifier: MIT
// What the configuration reader tells about its work on standard output.
#include "tests/support/files.h"
#include "util/NASConfDB.h"

#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ticpp.h>

using namespace util;
using support::Captured;
using support::TempDir;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

using Lines = std::vector<std::string>;

constexpr char kSmallest[] = "<nas_conf_db><version>3</version><system/></nas_conf_db>";

// Sets the level until destruction.
struct TraceLevel {
  explicit TraceLevel(int level) { __g_util_NASConfDB_debug = level; }
  ~TraceLevel() { __g_util_NASConfDB_debug = 0; }
  TraceLevel(const TraceLevel&) = delete;
  TraceLevel& operator=(const TraceLevel&) = delete;
};

// What a reading writes to standard output, whether it succeeds or not.
std::string output(int level, const std::string& path) {
  const TraceLevel traced(level);
  Captured out(stdout);
  try {
    const NASConfDB database(path);
  } catch (const ticpp::Exception& error) {
    std::cout << "exception";
  }
  return out.text();
}

std::string output_of(int level, const std::string& text) {
  const TempDir dir;
  dir.write("conf.xml", text);
  return output(level, dir.file("conf.xml"));
}

Lines lines_of(const std::string& text) {
  Lines lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

struct Trace {
  std::string signature;
  std::string line;
  std::string message;
};

// "signature(line): message"
Trace parts(const std::string& trace) {
  const size_t close = trace.find("): ");
  const size_t open = trace.rfind('(', close);
  return {trace.substr(0, open), trace.substr(open + 1, close - open - 1), trace.substr(close + 3)};
}

// The element traces of a reading at level 2, the handles shown as "x" for an element: what stands
// between "read version" and "parsed".
Lines elements(const std::string& text) {
  Lines messages;
  for (const std::string& line : lines_of(output_of(2, text))) {
    std::string message = parts(line).message;
    const size_t end = message.find(" element0x");
    if (end != std::string::npos) message = message.substr(0, end) + " elementx";
    messages.push_back(message);
  }
  EXPECT_THAT(messages.at(0), testing::StartsWith("reading /"));
  EXPECT_THAT(messages.at(1), testing::StartsWith("read version"));
  EXPECT_THAT(messages.back(), testing::StartsWith("parsednas_conf_db("));
  return {messages.begin() + 2, messages.end() - 1};
}

}  // namespace

TEST(NASConfDBTrace, LevelIsZeroAtStart) { EXPECT_EQ(0, __g_util_NASConfDB_debug); }

TEST(NASConfDBTrace, LevelIsOneVariableInBothNamespaces) {
  EXPECT_EQ(&::__g_util_NASConfDB_debug, &util::__g_util_NASConfDB_debug);
}

TEST(NASConfDBTrace, LevelZeroIsSilent) {
  EXPECT_EQ("", output_of(0, kSmallest));
  EXPECT_EQ("", output_of(-1, kSmallest));
  EXPECT_EQ("exception", output_of(0, "<nas_conf_db/>"));
}

TEST(NASConfDBTrace, LevelOneTellsThePath) {
  const TempDir dir;
  dir.write("conf.xml", kSmallest);
  const Trace trace = parts(output(1, dir.file("conf.xml")));
  EXPECT_EQ("void util::NASConfDB::parse(const std::string&)", trace.signature);
  EXPECT_THAT(trace.line, testing::MatchesRegex("[1-9][0-9]*"));
  EXPECT_EQ("reading " + dir.file("conf.xml") + "\n", trace.message);
}

TEST(NASConfDBTrace, ThePathIsToldBeforeItIsOpened) {
  const Lines lines = lines_of(output(1, "/nonexistent/%s%n.xml"));
  ASSERT_EQ(2U, lines.size());
  EXPECT_EQ("reading /nonexistent/%s%n.xml", parts(lines[0]).message);
  EXPECT_EQ("exception", lines[1]);
}

TEST(NASConfDBTrace, EveryLineBearsTheSignature) {
  for (const std::string& line : lines_of(output_of(2, kSmallest))) {
    EXPECT_EQ("void util::NASConfDB::parse(const std::string&)", parts(line).signature) << line;
  }
}

TEST(NASConfDBTrace, LevelTwoTellsEveryLookUpInReadingOrder) {
  EXPECT_THAT(elements(kSmallest),
              ElementsAre("read system elementx",               //
                          "read system.timeformat element0",    //
                          "read system.hostname element0",      //
                          "read system.domain element0",        //
                          "read system.language element0",      //
                          "read system.dhcpenabled element0",   //
                          "read system.timezone element0",      //
                          "read system.printenabled element0",  //
                          "read system.webgui element0",        //
                          "read system.hdparams element0",      //
                          "read system.platform element0",      //
                          "read system.drives element0",        //
                          "read interfaces element0",           //
                          "read mounts element0",               //
                          "read samba element0",                //
                          "read shares element0",               //
                          "read access element0"));
}

TEST(NASConfDBTrace, LevelTwoTellsWhatEmptyRecordsLack) {
  EXPECT_THAT(
      elements("<nas_conf_db><version>3</version><system><webgui/><hdparams/></system>"
               "<interfaces><lan/></interfaces><mounts><mount/></mounts><samba/>"
               "<shares><share/></shares><access/></nas_conf_db>"),
      ElementsAre(
          "read system elementx", "read system.timeformat element0",
          "read system.hostname element0", "read system.domain element0",
          "read system.language element0", "read system.dhcpenabled element0",
          "read system.timezone element0", "read system.printenabled element0",
          "read system.webgui elementx", "read system.webgui.adminpasswd element0",
          "read system.webgui.protocol element0", "read system.hdparams elementx",
          "read system.disk element0", "read system.platform element0",
          "read system.drives element0", "read interfaces elementx", "read interfaces.lan elementx",
          "read interfaces.lan.if element0", "read interfaces.lan.ipaddr element0",
          "read interfaces.lan.netmask element0", "read interfaces.lan.rand_ip element0",
          "read interfaces.lan element0", "read mounts elementx", "read mounts.mount elementx",
          "read mounts.mount.device element0", "read mounts.mount.fstype element0",
          "read mounts.mount.mountpoint element0", "read mounts.mount.options element0",
          "read mounts.mount element0", "read samba elementx", "read samba.netbiosname element0",
          "read samba.workgroup element0", "read samba.serverdesc element0",
          "read samba.localmaster element0", "read shares elementx", "read shares.share elementx",
          "read shares.share.sharename element0", "read shares.share.sharetype element0",
          "read shares.share.sharestatus element0", "read shares.share.sharelocation element0",
          "read shares.share.access element0", "read shares.share element0", "read access elementx",
          "read access.users element0"));
}

TEST(NASConfDBTrace, LevelTwoTellsEveryElementThatIsThere) {
  EXPECT_THAT(
      elements(
          "<nas_conf_db><version>3</version><system><timeformat>a</timeformat>"
          "<hostname>a</hostname><domain>a</domain><language>a</language>"
          "<dhcpenabled>a</dhcpenabled><timezone>a</timezone><printenabled>a</printenabled>"
          "<webgui><adminpasswd>a</adminpasswd><protocol>a</protocol></webgui><hdparams><disk>"
          "<device>a</device><inactivityperiod>1</inactivityperiod><lastselftest>1</lastselftest>"
          "</disk></hdparams><platform>a</platform><drives>a</drives></system>"
          "<interfaces><lan><if>a</if><ipaddr>a</ipaddr><netmask>a</netmask><rand_ip>a</rand_ip>"
          "</lan></interfaces><mounts><mount><device>a</device><fstype>a</fstype>"
          "<mountpoint>a</mountpoint><options>a</options></mount></mounts><samba>"
          "<netbiosname>a</netbiosname><workgroup>a</workgroup><serverdesc>a</serverdesc>"
          "<localmaster>a</localmaster></samba><shares><share><sharename>a</sharename>"
          "<sharetype>a</sharetype><sharestatus>a</sharestatus><sharelocation>a</sharelocation>"
          "<access><users><user><username>a</username><accesstype>a</accesstype></user></users>"
          "</access></share></shares><access><users><user><username>a</username><uid>1</uid></user>"
          "</users></access></nas_conf_db>"),
      ElementsAre(
          "read system elementx", "read system.timeformat elementx",
          "read system.hostname elementx", "read system.domain elementx",
          "read system.language elementx", "read system.dhcpenabled elementx",
          "read system.timezone elementx", "read system.printenabled elementx",
          "read system.webgui elementx", "read system.webgui.adminpasswd elementx",
          "read system.webgui.protocol elementx", "read system.hdparams elementx",
          "read system.disk elementx", "read system.disk.device elementx",
          "read system.disk.inactivityperiod elementx", "read system.disk.lastselftest elementx",
          "read system.disk element0", "read system.platform elementx",
          "read system.drives elementx", "read interfaces elementx", "read interfaces.lan elementx",
          "read interfaces.lan.if elementx", "read interfaces.lan.ipaddr elementx",
          "read interfaces.lan.netmask elementx", "read interfaces.lan.rand_ip elementx",
          "read interfaces.lan element0", "read mounts elementx", "read mounts.mount elementx",
          "read mounts.mount.device elementx", "read mounts.mount.fstype elementx",
          "read mounts.mount.mountpoint elementx", "read mounts.mount.options elementx",
          "read mounts.mount element0", "read samba elementx", "read samba.netbiosname elementx",
          "read samba.workgroup elementx", "read samba.serverdesc elementx",
          "read samba.localmaster elementx", "read shares elementx", "read shares.share elementx",
          "read shares.share.sharename elementx", "read shares.share.sharetype elementx",
          "read shares.share.sharestatus elementx", "read shares.share.sharelocation elementx",
          "read shares.share.access elementx", "read shares.share.users elementx",
          "read shares.share.users.user elementx",
          "read shares.share.access.users.user.username elementx",
          "read shares.share.access.users.user.accesstype elementx",
          "read shares.share.users.user element0", "read shares.share element0",
          "read access elementx", "read access.users elementx", "read access.users.user elementx",
          "read access.users.user.username elementx", "read access.users.user.uid elementx",
          "read access.users.user element0"));
}

TEST(NASConfDBTrace, EveryLookUpOfARepeatedElementIsTold) {
  const Lines all = elements(
      "<nas_conf_db><version>3</version><system/><interfaces><lan/><x/><lan/></interfaces>"
      "</nas_conf_db>");
  Lines lans;
  for (const std::string& message : all) {
    if (message.find("read interfaces.lan element") == 0) lans.push_back(message);
  }
  EXPECT_THAT(lans, ElementsAre("read interfaces.lan elementx", "read interfaces.lan elementx",
                                "read interfaces.lan element0"));
}

TEST(NASConfDBTrace, TheVersionIsToldAsANumber) {
  EXPECT_EQ(
      "read version-12",
      parts(lines_of(output_of(2, "<nas_conf_db><version>-12x</version><system/></nas_conf_db>"))
                .at(1))
          .message);
}

TEST(NASConfDBTrace, ARequiredElementIsToldOnlyWhenFound) {
  const std::pair<const char*, const char*> rows[] = {
      {"<x/>",                                            "reading "                         },
      {"<nas_conf_db/>",                                  "reading "                         },
      {"<nas_conf_db><version>x</version></nas_conf_db>", "reading "                         },
      {"<nas_conf_db><version>3</version></nas_conf_db>", "read version3"                    },
      {"<nas_conf_db><version>3</version><system><hdparams><disk/></hdparams></system>"
       "</nas_conf_db>",                           "read system.disk element0x"       },
      {"<nas_conf_db><version>3</version><system><hdparams><disk><device/></disk></hdparams>"
       "</system></nas_conf_db>",                  "read system.disk.device element0x"},
  };
  for (const auto& [text, last] : rows) {
    const Lines lines = lines_of(output_of(2, text));
    EXPECT_EQ("exception", lines.back());
    EXPECT_THAT(parts(lines.at(lines.size() - 2)).message, testing::StartsWith(last));
  }
}

TEST(NASConfDBTrace, TheWholeDatabaseIsToldAtTheEnd) {
  EXPECT_EQ(
      "parsednas_conf_db(version: 3; system(timeformat: ; hostname: ; domain: ; language: ; "
      "dhcpenabled: false; timezone: ; printenabeld: false; webgui(adminpasswd: ; protocol: ); "
      "disks: (); platform: ; drives: ); interfaces: (); samba(netbiosname: ; workgroup: ; "
      "serverdesc: ; localmaster: false); shares: (); users: ())",
      parts(lines_of(output_of(2, kSmallest)).back()).message);
}

TEST(NASConfDBTrace, LevelsAboveTwoAreLikeTwo) {
  EXPECT_EQ(lines_of(output_of(2, kSmallest)).size(), lines_of(output_of(3, kSmallest)).size());
}

TEST(NASConfDBTrace, TextsComeThroughUnharmed) {
  EXPECT_THAT(output_of(2,
                        "<nas_conf_db><version>3</version><system><hostname>%s%n&#27;\xc3\xbc "
                        "</hostname></system></nas_conf_db>"),
              HasSubstr("; hostname: %s%n\x1b\xc3\xbc; domain: "));
}

TEST(NASConfDBTrace, ShowsTheLineThatReads) {
  const Lines source = lines_of(support::read_file(NASUTIL_SOURCE_DIR "/util/NASConfDB.cc"));
  ASSERT_LT(100U, source.size());
  const std::string text =
      "<nas_conf_db><version>3</version><system><webgui/><hdparams><disk><device>a</device>"
      "<inactivityperiod>1</inactivityperiod><lastselftest>1</lastselftest></disk></hdparams>"
      "</system><interfaces><lan/><lan/></interfaces><mounts><mount/></mounts><samba/><shares>"
      "<share><access><users><user><username>a</username><accesstype>a</accesstype></user></users>"
      "</access></share></shares><access><users><user><username>a</username><uid>1</uid></user>"
      "</users></access></nas_conf_db>";
  for (const std::string& line : lines_of(output_of(2, text))) {
    const Trace trace = parts(line);
    const std::string& row = source.at(std::stoul(trace.line) - 1);
    const size_t end = trace.message.find(" element");
    if (trace.message.find("parsed") == 0) {
      EXPECT_THAT(row, HasSubstr("\"parsed\""));
    } else if (end == std::string::npos) {
      EXPECT_THAT(row, testing::AnyOf(HasSubstr("\"reading \""), HasSubstr("\"read version\"")));
    } else {
      EXPECT_THAT(row, HasSubstr("\"" + trace.message.substr(5, end - 5) + "\""));
    }
  }
}

TEST(NASConfDBTrace, FormatsOfTheStreamHaveNoInfluence) {
  const std::string plain = output_of(2, "<nas_conf_db><version>30</version></nas_conf_db>");
  const auto flags = std::cout.flags();
  std::cout << std::hex << std::showbase << std::showpos << std::uppercase << std::setw(99);
  const std::string changed = output_of(2, "<nas_conf_db><version>30</version></nas_conf_db>");
  std::cout.flags(flags);
  std::cout.width(0);
  EXPECT_EQ(parts(lines_of(plain).at(1)).line, parts(lines_of(changed).at(1)).line);
  EXPECT_EQ("read version30", parts(lines_of(changed).at(1)).message);
}
