// SPDX-License-Identifier: MIT
#include "tests/support/faults.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace support {
namespace {

thread_local Fault* innermost_fault = nullptr;
thread_local Recorder* innermost_recorder = nullptr;
Redirect* innermost_redirect = nullptr;
SyslogCapture* innermost_capture = nullptr;
int unsynced_guards = 0;

// True while the support code itself runs: what it calls is neither counted nor failed.
thread_local bool inside = false;

class Inside {
 public:
  Inside() { inside = true; }
  ~Inside() { inside = false; }
};

}  // namespace

Fault::Fault(const char* call, int error, int nth)
    : call_(call), error_(error), nth_(nth), outer_(std::exchange(innermost_fault, this)) {}

Fault::~Fault() { innermost_fault = outer_; }

int fault_for(const char* call) {
  if (inside) return 0;
  for (Fault* fault = innermost_fault; fault != nullptr; fault = fault->outer_) {
    if (strcmp(fault->call_, call) != 0) continue;
    ++fault->uses_;
    if (fault->nth_ != Fault::kEvery && fault->nth_ != fault->uses_) return 0;
    fault->fired_ = true;
    return fault->error_;
  }
  return 0;
}

Recorder::Recorder(std::vector<std::string> only)
    : only_(std::move(only)), outer_(std::exchange(innermost_recorder, this)) {}

Recorder::~Recorder() { innermost_recorder = outer_; }

int Recorder::count(const std::string& call) const {
  return static_cast<int>(std::count_if(
      calls_.begin(), calls_.end(),
      [&call](const std::string& entry) { return entry.substr(0, entry.find(' ')) == call; }));
}

void note_call(const char* call, const char* first, const char* second) {
  Recorder* const recorder = innermost_recorder;
  if (recorder == nullptr || inside) return;
  const Inside guard;
  const auto& only = recorder->only_;
  if (!only.empty() && std::find(only.begin(), only.end(), call) == only.end()) return;
  std::string entry = call;
  for (const char* argument : {first, second}) {
    if (argument != nullptr) entry.append(" ").append(argument);
  }
  if (recorder->before) recorder->before(entry);
  recorder->calls_.push_back(std::move(entry));
}

Redirect::Redirect(std::string from, std::string to)
    : from_(std::move(from)), to_(std::move(to)), outer_(std::exchange(innermost_redirect, this)) {}

Redirect::~Redirect() { innermost_redirect = outer_; }

const char* redirected(const char* path) {
  for (const Redirect* one = innermost_redirect; one != nullptr; one = one->outer_) {
    if (one->from_ == path) return one->to_.c_str();
  }
  return path;
}

Unsynced::Unsynced() { ++unsynced_guards; }

Unsynced::~Unsynced() { --unsynced_guards; }

bool unsynced() { return unsynced_guards > 0; }

SyslogCapture::SyslogCapture() : outer_(std::exchange(innermost_capture, this)) {}

SyslogCapture::~SyslogCapture() { innermost_capture = outer_; }

bool capture_syslog(int priority, const std::string& text) {
  if (innermost_capture == nullptr) return false;
  innermost_capture->records_.push_back("<" + std::to_string(priority) + "> " + text);
  return true;
}

}  // namespace support
