// SPDX-License-Identifier: MIT
// The web back end. GET answers with script text, the function nasStatus() that returns the state
// the daemon keeps; POST with a token as its body acknowledges a warning.
//
//   NASD_STATE     the daemon's property list
//   NASD_CONTROL   where the daemon takes acknowledgements
#include "files.h"
#include "http.h"
#include "texts.h"
#include "token.h"

#include <arpa/inet.h>
#include <service/ControlSocket.h>
#include <service/LogReader.h>
#include <service/utf8.h>
#include <util/JSEmit.h>
#include <util/PropertyList.h>
#include <util/Timer.h>

#include <algorithm>
#include <cctype>
#include <ctime>
#include <iostream>

namespace appliance {
namespace {

using util::value_array;
using util::value_struct;

constexpr size_t kLongestToken = 256;
constexpr size_t kLogEntries = 200;
constexpr util::utime_t kPatience = 5000;  // milliseconds
const std::string kAcknowledge = "acknowledge:";

time_t now() { return static_cast<time_t>(util::Timer::now() / 1000); }

std::string required(const char* name) {
  std::string value = variable(name);
  if (value.empty()) throw std::runtime_error(std::string(name) + " is not set");
  return value;
}

// Empty while the daemon has not written its state yet.
value_struct load_state() {
  util::PropertyList list(required("NASD_STATE"));
  load(list);
  return list.getProperties();
}

value_array log_entries(const std::string& log) {
  value_array entries;
  for (const service::LogEntry& entry : service::newest_log_entries(log, kLogEntries)) {
    entries.push_back(value_struct{
        {"time",     entry.time                          },
        {"where",    service::valid_utf8(entry.where())  },
        {"category", service::valid_utf8(entry.category) },
        {"text",     service::valid_utf8(entry.message())}
    });
  }
  return entries;
}

void add_tokens(value_array& warnings) {
  for (value_struct& warning : warnings) {
    const std::string& id = warning["id"];
    if (!warning["acknowledged"]) warning["token"] = issue_token(kAcknowledge + id, now());
  }
}

// A name or an address as it may be compared: without a port, brackets, a dot at the end, and an
// IPv6 address in its one short form.
std::string host_of(std::string host) {
  const size_t colon = host.find_last_of(":]");
  if (colon != host.npos && host[colon] == ':' && (host.find(':') == colon || host[0] == '[')) {
    host.resize(colon);
  }
  if (!host.empty() && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  }
  if (!host.empty() && host.back() == '.') host.pop_back();
  for (char& c : host) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  in6_addr address = {};
  char text[INET6_ADDRSTRLEN];
  if (inet_pton(AF_INET6, host.c_str(), &address) != 1) return host;
  return inet_ntop(AF_INET6, &address, text, sizeof text);
}

// A page elsewhere whose name has been made to point to this machine would be its own site to a
// browser; but it is asked for by that name.
void refuse_other_names(const value_array& own) {
  if (variable("HTTP_HOST").empty()) return;
  const std::string asked = host_of(variable("HTTP_HOST"));
  const bool known = std::any_of(
      own.begin(), own.end(), [&asked](const std::string& name) { return host_of(name) == asked; });
  if (!known) throw Refusal(421, "This machine does not go by that name.");
}

Answer show_state() {
  value_struct state = load_state();
  if (!state.empty()) {
    refuse_other_names(state["names"]);
    state.erase("names");
    state["now"] = utc_text(now());
    state["entries"] = log_entries(state["log"]);
    state.erase("log");
    add_tokens(state["warnings"]);
  }
  return {200, "text/javascript", util::JSEmit().emitFunction("nasStatus", state)};
}

Answer acknowledge_warning() {
  const std::string token = read_body(kLongestToken);
  const bool plain =
      std::all_of(token.begin(), token.end(), [](char c) { return c > ' ' && c < 127; });
  if (token.empty() || !plain) throw Refusal(400, "The request is not a token.");

  const std::optional<std::string> permitted = permitted_by(token, now());
  if (!permitted || permitted->compare(0, kAcknowledge.size(), kAcknowledge) != 0) {
    throw Refusal(403, "The page's leave to do this is not valid or too old.");
  }
  const std::string id = permitted->substr(kAcknowledge.size());
  try {
    service::ask(required("NASD_CONTROL"), "acknowledge " + id, kPatience);
  } catch (const service::Refused&) {
    throw Refusal(404, "There is no such warning any more.");
  }
  return {202, "text/plain", "The daemon has taken note.\n"};
}

// Browsers say which site a request comes from. Other sites neither see the state nor get a token.
void refuse_other_sites() {
  const std::string site = variable("HTTP_SEC_FETCH_SITE");
  if (!site.empty() && site != "same-origin" && site != "none") {
    throw Refusal(403, "This is for the status page only.");
  }
}

// A number that makes the address new for each refresh, or nothing.
void check_query() {
  const std::string query = variable("QUERY_STRING");
  if (query.find_first_not_of("0123456789") != query.npos) {
    throw Refusal(400, "The address is malformed.");
  }
}

Answer answer() {
  const std::string method = variable("REQUEST_METHOD");
  if (method != "GET" && method != "HEAD" && method != "POST") {
    throw Refusal(405, "This can be read and acknowledged, nothing else.");
  }
  refuse_other_sites();
  check_query();
  return method == "POST" ? acknowledge_warning() : show_state();
}

Answer answer_or_refusal() {
  try {
    return answer();
  } catch (const Refusal& refusal) {
    return {refusal.status(), "text/plain", std::string(refusal.what()) + "\n"};
  } catch (const std::exception& failure) {
    std::cerr << "status.cgi: " << failure.what() << "\n";  // for the web server's log
    return {500, "text/plain", "The status cannot be read.\n"};
  }
}

}  // namespace
}  // namespace appliance

int main() {
  appliance::send(appliance::answer_or_refusal());
  return 0;
}
