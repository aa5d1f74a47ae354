// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

namespace appliance {

// Answers with server-sent events: what `event` returns, one line, at once, again when the file has
// been replaced, at most once a second, and every few seconds anyway. Ends after a while, with an
// event "end", so that no back end stays for ever; NASD_EVENTS_SECONDS says when, 300 by default.
//
// There are at most four streams of a file at a time, for each takes a connection; throws Refusal
// for another one, and what the first call of `event` throws. A later failure ends the stream.
void stream_events(const std::string& file, const std::function<std::string()>& event);

}  // namespace appliance
