// SPDX-License-Identifier: MIT
#include "samplers.h"

#include "history.h"

#include <sys/statvfs.h>
#include <util/system_exception.h>

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace appliance {
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

// The counters of all interfaces. Two lines of headings, then "<interface>: <bytes received> and
// seven more <bytes sent> ...".
std::map<std::string, Traffic> read_traffic() {
  std::ifstream in = open("/proc/net/dev");
  std::map<std::string, Traffic> counters;
  std::string line;
  while (std::getline(in, line)) {
    const size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    std::istringstream numbers(line.substr(colon + 1));
    uint64_t column[9] = {};
    for (uint64_t& number : column) numbers >> number;
    if (!numbers) throw std::runtime_error("not nine numbers: " + line);
    const size_t start = line.find_first_not_of(' ');
    counters[line.substr(start, colon - start)] = {column[0], column[8]};
  }
  return counters;
}

// What counters have grown by; one that fell was started anew.
uint64_t growth(uint64_t from, uint64_t to) { return to >= from ? to - from : to; }
Traffic growth(const Traffic& from, const Traffic& to) {
  return {growth(from.received, to.received), growth(from.sent, to.sent)};
}

Traffic per_second(const Traffic& bytes, double seconds) {
  const double time = std::max(seconds, 0.001);
  return {static_cast<uint64_t>(static_cast<double>(bytes.received) / time),
          static_cast<uint64_t>(static_cast<double>(bytes.sent) / time)};
}

}  // namespace

void Sampler::runLoop(util::utime_t) {
  attempt_([this] { sample(); });
}

void LoadSampler::sample() {
  std::ifstream in = open("/proc/loadavg");
  std::vector<double> load(3);
  for (double& each : load) in >> each;
  if (!in) throw std::runtime_error("not three numbers");
  load_ = load;
  highest_ = std::max(highest_.value_or(load[0]), load[0]);
  UTIL_LOG(log(), SAMPLE, "load %.2f %.2f %.2f", load[0], load[1], load[2]);
}

void LoadSampler::summarize() {
  if (highest_) UTIL_LOG(log(), SUMMARY, "load at most %.2f", *highest_);
  highest_.reset();
}

void MemorySampler::sample() {
  std::stringstream text;
  text << open("/proc/meminfo").rdbuf();
  available_ = field(text.str(), "MemAvailable");
  total_ = field(text.str(), "MemTotal");
  least_available_ = std::min(least_available_.value_or(available_), available_);
  UTIL_LOG(log(), SAMPLE, "memory %llu of %llu KiB available", ull{available_}, ull{total_});
}

void MemorySampler::summarize() {
  if (least_available_) {
    UTIL_LOG(log(), SUMMARY, "memory at least %llu KiB available", ull{*least_available_});
  }
  least_available_.reset();
}

Traffic& Traffic::operator+=(const Traffic& more) {
  received += more.received;
  sent += more.sent;
  return *this;
}

void TrafficSampler::sample() {
  const ByInterface counters = read_traffic();
  const double now = uptime();
  rates_.clear();
  Traffic total;
  for (const auto& [name, counter] : counters) {
    const auto before = counters_.find(name);
    if (before == counters_.end()) continue;
    const Traffic grown = growth(before->second, counter);
    rates_[name] = per_second(grown, now - counted_at_);
    if (name != "lo") total += grown;
  }
  rate_ = per_second(total, now - counted_at_);
  counters_ = counters;
  counted_at_ = now;

  if (!since_summary_) since_summary_.emplace();
  *since_summary_ += total;
  UTIL_LOG(log(), SAMPLE, "traffic %llu bytes in, %llu out", ull{total.received}, ull{total.sent});
}

Traffic TrafficSampler::rate(const std::string& interface) const {
  const auto found = rates_.find(interface);
  return found == rates_.end() ? Traffic() : found->second;
}

void TrafficSampler::summarize() {
  if (since_summary_) {
    UTIL_LOG(log(), SUMMARY, "traffic %llu bytes in, %llu out", ull{since_summary_->received},
             ull{since_summary_->sent});
  }
  since_summary_.reset();
}

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

void BoardSampler::sample() {
  pins_.refresh();
  UTIL_LOG(log(), SAMPLE, "board 0x%x", pins_.getValue());
}

}  // namespace appliance
