// SPDX-License-Identifier: MIT
// The web back end. GET answers with script text, the function nasStatus() that returns the state
// the daemon keeps; with "?events" with the state as JSON again and again, with "?log=" with
// entries of its log as JSON. POST with a token as its body acknowledges a warning.
//
//   NASD_STATE     the daemon's property list
//   NASD_CONTROL   where the daemon takes acknowledgements
#include "events.h"
#include "files.h"
#include "http.h"
#include "log_search.h"
#include "texts.h"
#include "token.h"

#include <arpa/inet.h>
#include <service/ControlSocket.h>
#include <service/json.h>
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
constexpr size_t kLongestText = 200;       // that is looked for
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

// What has been logged last, at little cost: it is asked for again and again.
constexpr LogLimits kNewest = {50, 65536, 65536, 65536, 1000};

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

// As the page gets it.
value_struct state_for_page() {
  value_struct state = load_state();
  if (state.empty()) return state;
  refuse_other_names(state["names"]);
  state.erase("names");
  state["now"] = utc_text(now());
  state["entries"] = search_log(state["log"], {}, kNewest)["entries"];
  state.erase("log");
  add_tokens(state["warnings"]);
  return state;
}

Answer show_state() {
  return {200, "text/javascript", util::JSEmit().emitFunction("nasStatus", state_for_page())};
}

LogQuery log_query(const std::map<std::string, std::string>& fields) {
  LogQuery query;
  const std::map<std::string, std::string*> known = {
      {"category", &query.category},
      {"log",      &query.position},
      {"since",    &query.since   },
      {"text",     &query.text    },
      {"until",    &query.until   }
  };
  for (const auto& [name, value] : fields) {
    if (known.count(name) == 0) throw Refusal(400, "The search has an unknown part.");
    if (value.size() > kLongestText) throw Refusal(400, "The search is too long.");
    *known.at(name) = value;
  }
  for (const std::string& bound : {query.since, query.until}) {
    if (!bound.empty() && !is_bound(bound)) {
      throw Refusal(400, "The search has a time that is not one like 2026-05-01T14:03.");
    }
  }
  if (!query.position.empty() && !is_position(query.position)) {
    throw Refusal(400, "The search is to go on at a place that is not one.");
  }
  return query;
}

Answer show_log(const std::map<std::string, std::string>& fields) {
  const LogQuery query = log_query(fields);
  value_struct state = load_state();
  if (state.empty()) throw Refusal(503, "The daemon has not written its state yet.");
  refuse_other_names(state["names"]);
  return {200, "application/json", service::to_json(search_log(state["log"], query, LogLimits()))};
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

// Sends the answer to what is asked.
void answer() {
  const std::string method = variable("REQUEST_METHOD");
  if (method != "GET" && method != "HEAD" && method != "POST") {
    throw Refusal(405, "This can be read and acknowledged, nothing else.");
  }
  refuse_other_sites();
  // A number makes the address new for each refresh.
  const std::string query = variable("QUERY_STRING");
  if (query.find_first_not_of("0123456789") == query.npos) {
    return send(method == "POST" ? acknowledge_warning() : show_state());
  }
  if (method == "GET" && query == "events") {
    return stream_events(required("NASD_STATE"), [] { return service::to_json(state_for_page()); });
  }
  const auto fields = read_query();
  if (method == "POST" || fields.count("log") == 0) throw Refusal(400, "The address is malformed.");
  send(show_log(fields));
}

}  // namespace
}  // namespace appliance

int main() {
  try {
    appliance::answer();
  } catch (const appliance::Refusal& refusal) {
    appliance::send({refusal.status(), "text/plain", std::string(refusal.what()) + "\n"});
  } catch (const std::exception& failure) {
    std::cerr << "status.cgi: " << failure.what() << "\n";  // for the web server's log
    appliance::send({500, "text/plain", "The status cannot be read.\n"});
  }
  return 0;
}
