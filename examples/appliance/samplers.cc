// SPDX-License-Identifier: MIT
#include "samplers.h"

#include "log.h"

#include <sys/statvfs.h>
#include <util/system_exception.h>

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace nasd {
namespace {

using ull = unsigned long long;  // as printf knows it

std::ifstream open(const char* file) {
  std::ifstream in(file);
  if (!in) throw util::system_exception();
  return in;
}

// The number after "<key>:" in /proc/meminfo.
uint64_t field(const std::string& text, const std::string& key) {
  const size_t at = text.find(key + ":");
  if (at == std::string::npos) throw std::runtime_error("no " + key);
  return std::stoull(text.substr(at + key.size() + 1));
}

// Two lines of headings, then "<interface>: <bytes received> and seven more <bytes sent> ...".
Traffic read_traffic() {
  std::ifstream in = open("/proc/net/dev");
  Traffic total;
  std::string line;
  while (std::getline(in, line)) {
    const size_t colon = line.find(':');
    if (colon == std::string::npos || line.find(" lo:") != std::string::npos) continue;
    std::istringstream numbers(line.substr(colon + 1));
    uint64_t column[9] = {};
    for (uint64_t& number : column) numbers >> number;
    if (!numbers) throw std::runtime_error("not nine numbers: " + line);
    total.received += column[0];
    total.sent += column[8];
  }
  return total;
}

// What a counter has grown by; one that fell was started anew.
uint64_t growth(uint64_t from, uint64_t to) { return to >= from ? to - from : to; }

}  // namespace

void Sampler::runLoop(util::utime_t) {
  try {
    sample();
  } catch (const std::exception& error) {
    UTIL_LOG(log(), util::WARNING, "no sample of %s: %s", name(), error.what());
  }
}

void LoadSampler::sample() {
  std::ifstream in = open("/proc/loadavg");
  double one = 0;
  double five = 0;
  double fifteen = 0;
  if (!(in >> one >> five >> fifteen)) throw std::runtime_error("not three numbers");
  highest_ = std::max(highest_.value_or(one), one);
  UTIL_LOG(log(), SAMPLE, "load %.2f %.2f %.2f", one, five, fifteen);
}

void LoadSampler::summarize() {
  if (highest_) UTIL_LOG(log(), SUMMARY, "load at most %.2f", *highest_);
  highest_.reset();
}

void MemorySampler::sample() {
  std::stringstream text;
  text << open("/proc/meminfo").rdbuf();
  const uint64_t available = field(text.str(), "MemAvailable");
  const uint64_t total = field(text.str(), "MemTotal");
  least_available_ = std::min(least_available_.value_or(available), available);
  UTIL_LOG(log(), SAMPLE, "memory %llu of %llu KiB available", ull{available}, ull{total});
}

void MemorySampler::summarize() {
  if (least_available_) {
    UTIL_LOG(log(), SUMMARY, "memory at least %llu KiB available", ull{*least_available_});
  }
  least_available_.reset();
}

void TrafficSampler::sample() {
  const Traffic now = read_traffic();
  const Traffic before = std::exchange(last_, now).value_or(now);
  const uint64_t received = growth(before.received, now.received);
  const uint64_t sent = growth(before.sent, now.sent);
  if (!since_summary_) since_summary_.emplace();
  since_summary_->received += received;
  since_summary_->sent += sent;
  UTIL_LOG(log(), SAMPLE, "traffic %llu bytes in, %llu out", ull{received}, ull{sent});
}

void TrafficSampler::summarize() {
  if (since_summary_) {
    UTIL_LOG(log(), SUMMARY, "traffic %llu bytes in, %llu out", ull{since_summary_->received},
             ull{since_summary_->sent});
  }
  since_summary_.reset();
}

SpaceSampler::SpaceSampler(std::string path) : path_(std::move(path)) {}

void SpaceSampler::sample() {
  struct statvfs found = {};
  if (statvfs(path_.c_str(), &found) != 0) throw util::system_exception();
  const uint64_t free = uint64_t{found.f_bavail} * found.f_frsize >> 20;
  const uint64_t total = uint64_t{found.f_blocks} * found.f_frsize >> 20;
  least_free_ = std::min(least_free_.value_or(free), free);
  UTIL_LOG(log(), SAMPLE, "space %llu of %llu MiB free in %s", ull{free}, ull{total},
           path_.c_str());
}

void SpaceSampler::summarize() {
  if (least_free_) {
    UTIL_LOG(log(), SUMMARY, "space at least %llu MiB free in %s", ull{*least_free_},
             path_.c_str());
  }
  least_free_.reset();
}

}  // namespace nasd
