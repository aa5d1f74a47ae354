// SPDX-License-Identifier: MIT
// An input is the document.
#include "fuzz/documents.h"
#include "fuzz/fuzz.h"
#include "fuzz/tool.h"
#include "tests/support/files.h"
#include "util/NASConfDB.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>
#include <vector>

#include <ticpp.h>

int nas_conf(int argc, char** argv);

namespace {

// ---- what check reports ----

// What may be in a document, by the names that lead there, and how it is read: "t" text, "o" text
// or nothing, "n" number, "e" elements, or two words, of which the first of a switch is "true" or
// "yes". "!": it must be there; "*": any number of it. What is missing is reported, and what is
// read is shown, in this order; the last column is the name under which it is shown, if it is.
struct Row {
  std::string path, rule, shown;
};

constexpr char kTable[] = R"(/nas_conf_db                                           !e
/nas_conf_db/version                                   !n             version
/nas_conf_db/system                                    !e             system
/nas_conf_db/system/timeformat                         t              timeformat
/nas_conf_db/system/hostname                           t              hostname
/nas_conf_db/system/domain                             t              domain
/nas_conf_db/system/language                           t              language
/nas_conf_db/system/dhcpenabled                        true|false     dhcpenabled
/nas_conf_db/system/timezone                           t              timezone
/nas_conf_db/system/printenabled                       true|false     printenabled
/nas_conf_db/system/webgui                             e              webgui
/nas_conf_db/system/webgui/adminpasswd                 o              adminpasswd
/nas_conf_db/system/webgui/protocol                    t              protocol
/nas_conf_db/system/hdparams                           e
/nas_conf_db/system/hdparams/disk                      *e             disks
/nas_conf_db/system/hdparams/disk/device               !t             device
/nas_conf_db/system/hdparams/disk/inactivityperiod     !n             inactivityperiod
/nas_conf_db/system/hdparams/disk/lastselftest         !n             lastselftest
/nas_conf_db/system/platform                           t              platform
/nas_conf_db/system/drives                             t              drives
/nas_conf_db/interfaces                                e
/nas_conf_db/interfaces/lan                            *e             interfaces
/nas_conf_db/interfaces/lan/if                         t              if
/nas_conf_db/interfaces/lan/ipaddr                     t              ipaddr
/nas_conf_db/interfaces/lan/netmask                    t              netmask
/nas_conf_db/interfaces/lan/rand_ip                    t              rand_ip
/nas_conf_db/mounts                                    e
/nas_conf_db/mounts/mount                              *e             mounts
/nas_conf_db/mounts/mount/device                       t              device
/nas_conf_db/mounts/mount/fstype                       t              fstype
/nas_conf_db/mounts/mount/mountpoint                   o              mountpoint
/nas_conf_db/mounts/mount/options                      o              options
/nas_conf_db/samba                                     e              samba
/nas_conf_db/samba/netbiosname                         t              netbiosname
/nas_conf_db/samba/workgroup                           t              workgroup
/nas_conf_db/samba/serverdesc                          t              serverdesc
/nas_conf_db/samba/localmaster                         yes|no         localmaster
/nas_conf_db/shares                                    e
/nas_conf_db/shares/share                              *e             shares
/nas_conf_db/shares/share/sharename                    t              name
/nas_conf_db/shares/share/sharetype                    public|private type
/nas_conf_db/shares/share/sharestatus                  active|suspended status
/nas_conf_db/shares/share/sharelocation                internal_share|external_share location
/nas_conf_db/shares/share/access                       e
/nas_conf_db/shares/share/access/users                 e
/nas_conf_db/shares/share/access/users/user            *e             users
/nas_conf_db/shares/share/access/users/user/username   !t             username
/nas_conf_db/shares/share/access/users/user/accesstype !readonly|full accesstype
/nas_conf_db/access                                    e
/nas_conf_db/access/users                              e
/nas_conf_db/access/users/user                         *e             users
/nas_conf_db/access/users/user/username                !t             name
/nas_conf_db/access/users/user/uid                     !n             uid)";

const std::vector<Row> kRows = [] {
  std::vector<Row> rows;
  std::istringstream lines(kTable);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    rows.emplace_back();
    words >> rows.back().path >> rows.back().rule >> rows.back().shown;
  }
  return rows;
}();

std::string name_of(const Row& row) { return row.path.substr(row.path.rfind('/') + 1); }

std::string rule_in(const Row& row) {
  return row.rule.substr(row.rule[0] == '!' || row.rule[0] == '*' ? 1 : 0);
}

std::vector<Row> rows_in(const std::string& path) {
  std::vector<Row> rows;
  std::copy_if(kRows.begin(), kRows.end(), std::back_inserter(rows),
               [&path](const Row& row) { return row.path.substr(0, row.path.rfind('/')) == path; });
  return rows;
}

// As messages show a text of the document, on one line.
std::string in_quotes(const std::string& text) {
  std::string to = "\"";
  for (const char c : text) to += c == '\n' ? "\\x0A" : std::string(1, c);
  return to + '"';
}

struct Remark {
  int row, column;
  bool refuses;
  std::string text;
};

class Reader {
 public:
  void read(const TiXmlNode& parent, const std::string& path) {
    for (const auto* e = parent.FirstChildElement(); e != nullptr; e = e->NextSiblingElement()) {
      const std::string tag = "<" + e->ValueStr() + ">";
      const std::string name = path + "/" + e->ValueStr();
      const auto known = std::find_if(kRows.begin(), kRows.end(),
                                      [&name](const Row& row) { return row.path == name; });
      if (known == kRows.end()) {
        remark(*e, false, tag + " is not known here");
      } else if (known->rule[0] != '*' && parent.FirstChildElement(e->Value()) != e) {
        remark(*e, false, "another " + tag + ", only the first is read");
      } else {
        read_element(*e, tag, rule_in(*known));
        read(*e, known->path);
      }
    }
    for (const Row& row : rows_in(path)) {
      if (row.rule[0] != '!' || parent.FirstChildElement(name_of(row)) != nullptr) continue;
      const std::string in = path.empty() ? "" : " in <" + parent.ValueStr() + ">";
      remark(parent, true, "<" + name_of(row) + "> is missing" + in);
    }
  }

  std::vector<Remark> remarks;

 private:
  void read_element(const TiXmlElement& e, const std::string& tag, const std::string& rule) {
    const std::string* const text = fuzz::text_of(e);
    if (rule == "e" && text != nullptr && !text->empty()) remark(e, false, "the text in " + tag);
    if (rule == "e" || rule == "o") return;
    if (text == nullptr) return remark(e, true, tag + " has no text at its start");
    if (rule == "n") return read_number(e, tag, *text);
    const size_t bar = rule.find('|');
    if (bar == rule.npos) return;
    const std::string one = rule.substr(0, bar);
    const std::string other = rule.substr(bar + 1);
    if (*text == one || *text == other) return;
    remark(e, false,
           tag + ": " + in_quotes(*text) + " is neither " + in_quotes(one) + " nor " +
               in_quotes(other));
  }

  void read_number(const TiXmlElement& e, const std::string& tag, const std::string& text) {
    const std::optional<int> number = fuzz::number_in<int>(&text);
    if (!number) {
      remark(e, true, tag + ": " + in_quotes(text) + " is not a number, or is out of range");
      return;
    }
    const size_t digits = text.find_first_of("0123456789");
    const size_t end = text.find_first_not_of("0123456789", digits);
    if (text.find_first_not_of(" \t\n\v\f\r", end) == text.npos) return;
    remark(e, false,
           "what follows the number in " + tag + ": " + in_quotes(text) + " is read as " +
               std::to_string(*number));
  }

  void remark(const TiXmlNode& at, bool refuses, const std::string& text) {
    remarks.push_back({at.Row(), at.Column(), refuses, text});
  }
};

std::string expected_report(const std::string& path, const TiXmlDocument& xml, bool& refused) {
  Reader reader;
  reader.read(xml, "");
  std::stable_sort(
      reader.remarks.begin(), reader.remarks.end(), [](const Remark& one, const Remark& other) {
        return one.row < other.row || (one.row == other.row && one.column < other.column);
      });
  std::string report;
  for (const Remark& remark : reader.remarks) {
    refused = refused || remark.refuses;
    report += "tool: " + path;
    if (remark.row > 0) {
      report += ":" + std::to_string(remark.row) + ":" + std::to_string(remark.column);
    }
    report += std::string(": ") + (remark.refuses ? "" : "ignored: ") + remark.text + "\n";
  }
  return fuzz::printable(report);
}

// ---- what show prints ----

// An element as it is shown; null for one that is not there.
std::string value_of(const TiXmlElement* e, const std::string& rule) {
  const std::string* const text = e == nullptr ? nullptr : fuzz::text_of(*e);
  const size_t bar = rule.find('|');
  if (rule == "n") return std::to_string(fuzz::number_in<int>(text).value_or(0));
  if (bar == rule.npos) return fuzz::quoted(text == nullptr ? "" : *text);
  const std::string word = rule.substr(0, bar);
  if (word == "true" || word == "yes") return text != nullptr && *text == word ? "true" : "false";
  const bool known = text != nullptr && (*text == word || *text == rule.substr(bar + 1));
  return known ? *text : "none";
}

std::string outline(const TiXmlNode* parent, const std::string& path, const std::string& indent) {
  std::string to;
  for (const Row& row : rows_in(path)) {
    const auto* e = parent == nullptr ? nullptr : parent->FirstChildElement(name_of(row));
    const std::string name = indent + row.shown + ":";
    if (row.rule == "*e") {
      to += name + (e == nullptr ? " none\n" : "\n");
      for (int i = 0; e != nullptr; e = e->NextSiblingElement(name_of(row))) {
        to += indent + "  [" + std::to_string(i++) + "]:\n" + outline(e, row.path, indent + "    ");
      }
    } else if (rule_in(row) != "e") {
      to += name + " " + value_of(e, rule_in(row)) + "\n";
    } else if (row.shown.empty()) {
      to += outline(e, row.path, indent);
    } else {
      to += name + "\n" + outline(e, row.path, indent + "  ");
    }
  }
  return to;
}

std::string without_password(std::string outline, const std::string& password) {
  const std::string line = "\n    adminpasswd: ";
  const std::string text = fuzz::quoted(password);
  if (!password.empty()) outline.replace(outline.find(line) + line.size(), text.size(), "(hidden)");
  return outline;
}

// The reading, with and without traces, which go nowhere. Null where it is refused.
std::unique_ptr<util::NASConfDB> read(const std::string& path, int level) {
  std::ostringstream traces;
  std::streambuf* const old = std::cout.rdbuf(traces.rdbuf());
  __g_util_NASConfDB_debug = level;
  std::unique_ptr<util::NASConfDB> db;
  try {
    db = std::make_unique<util::NASConfDB>(path);
  } catch (const ticpp::Exception& e) {
    fuzz::require(*e.what() != '\0', "a refusal says why");
  }
  __g_util_NASConfDB_debug = 0;
  std::cout.rdbuf(old);
  return db;
}

void check_showing(const std::string& path, const TiXmlDocument* xml) {
  const auto db = read(path, 0);
  fuzz::require((db != nullptr) == (read(path, 2) != nullptr), "traces change nothing");
  const fuzz::ToolRun with = fuzz::run(nas_conf, {"show", "--password", path});
  const fuzz::ToolRun without = fuzz::run(nas_conf, {"show", path});
  fuzz::require(with.status == without.status, "the password decides nothing");
  fuzz::require_equal(fuzz::printable(with.out + with.err), with.out + with.err,
                      "what a terminal may see");
  fuzz::require(with.status == (db ? 0 : 1), "what is read is shown, and nothing else");
  if (!db) return fuzz::require(with.out.empty(), "what is refused is not shown");
  fuzz::require_equal(without_password(with.out, db->get_system().webgui_adminpasswd), without.out,
                      "hiding the password");
  if (xml != nullptr) fuzz::require_equal(outline(xml, "", ""), with.out, "what is shown");
}

// `xml` is null where the model cannot read the document as the library's parser does.
void check_checking(const std::string& path, const TiXmlDocument* xml) {
  const fuzz::ToolRun run = fuzz::run(nas_conf, {"check", path});
  const bool refused = read(path, 0) == nullptr;
  fuzz::require(run.out.empty(), "findings are messages");
  fuzz::require_equal(fuzz::printable(run.err), run.err, "what a terminal may see");
  fuzz::require(run.status == (refused ? 1 : 0), "check gives the reader's verdict");
  fuzz::require(!refused || !run.err.empty(), "a refusal says why");
  if (xml == nullptr) return;
  bool expected_refusal = false;
  fuzz::require_equal(expected_report(path, *xml, expected_refusal), run.err, "the findings");
  fuzz::require(expected_refusal == refused, "a finding for each refusal");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const support::TempDir dir;
  const std::string document(data, data + size);
  const std::string path = dir.file("nas_conf_db.xml");
  support::write_file(path, document);
  TiXmlDocument xml;
  const bool refused = read(path, 0) == nullptr;
  bool known = fuzz::is_harmless(document) && !(refused && fuzz::has_declaration(document));
  try {
    if (known) fuzz::parse(document, xml);
  } catch (const fuzz::Refused&) {
    fuzz::require(refused, "what is not XML is refused");
    known = false;
  }
  check_checking(path, known ? &xml : nullptr);
  check_showing(path, known ? &xml : nullptr);
  return 0;
}
