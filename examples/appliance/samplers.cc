// SPDX-License-Identifier: MIT
#include "samplers.h"

#include "history.h"

#include <sys/statvfs.h>
#include <util/system_exception.h>

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <optional>
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

using ByInterface = std::map<std::string, Traffic>;

// The counters of all interfaces. Two lines of headings, then "<interface>: <bytes received> and
// seven more <bytes sent> ...".
ByInterface read_traffic() {
  std::ifstream in = open("/proc/net/dev");
  ByInterface counters;
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

void operator+=(Traffic& to, const Traffic& more) {
  to.received += more.received;
  to.sent += more.sent;
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

class LoadSampler : public Sampler {
 public:
  explicit LoadSampler(Machine& machine) : Sampler("load"), load_(machine.load) {}

  void summarize() override {
    if (highest_) UTIL_LOG(log(), SUMMARY, "load at most %.2f", *highest_);
    highest_.reset();
  }

 private:
  void sample() override {
    std::ifstream in = open("/proc/loadavg");
    std::vector<double> load(3);
    for (double& each : load) in >> each;
    if (!in) throw std::runtime_error("not three numbers");
    load_ = load;
    highest_ = std::max(highest_.value_or(load[0]), load[0]);
    UTIL_LOG(log(), SAMPLE, "load %.2f %.2f %.2f", load[0], load[1], load[2]);
  }

  std::vector<double>& load_;
  std::optional<double> highest_;
};

class MemorySampler : public Sampler {
 public:
  explicit MemorySampler(Machine& machine) : Sampler("memory"), machine_(machine) {}

  void summarize() override {
    if (least_) UTIL_LOG(log(), SUMMARY, "memory at least %llu KiB available", ull{*least_});
    least_.reset();
  }

 private:
  void sample() override {
    std::stringstream text;
    text << open("/proc/meminfo").rdbuf();
    const uint64_t available = machine_.memory_available = field(text.str(), "MemAvailable");
    machine_.memory_total = field(text.str(), "MemTotal");
    least_ = std::min(least_.value_or(available), available);
    UTIL_LOG(log(), SAMPLE, "memory %llu of %llu KiB available", ull{available},
             ull{machine_.memory_total});
  }

  Machine& machine_;
  std::optional<uint64_t> least_;
};

class TrafficSampler : public Sampler {
 public:
  explicit TrafficSampler(Machine& machine) : Sampler("traffic"), machine_(machine) {}

  void summarize() override {
    if (sum_) {
      UTIL_LOG(log(), SUMMARY, "traffic %llu bytes in, %llu out", ull{sum_->received},
               ull{sum_->sent});
    }
    sum_.reset();
  }

 private:
  void sample() override {
    const ByInterface counters = read_traffic();
    const double now = uptime();
    machine_.rates.clear();
    Traffic total;
    for (const auto& [name, counter] : counters) {
      const auto before = counters_.find(name);
      if (before == counters_.end()) continue;
      const Traffic grown = growth(before->second, counter);
      machine_.rates[name] = per_second(grown, now - counted_at_);
      if (name != "lo") total += grown;
    }
    machine_.rate = per_second(total, now - counted_at_);
    counters_ = counters;
    counted_at_ = now;

    if (!sum_) sum_.emplace();
    *sum_ += total;
    UTIL_LOG(log(), SAMPLE, "traffic %llu bytes in, %llu out", ull{total.received},
             ull{total.sent});
  }

  Machine& machine_;
  ByInterface counters_;
  double counted_at_ = 0;  // the uptime
  std::optional<Traffic> sum_;
};

class SpaceSampler : public Sampler {
 public:
  explicit SpaceSampler(std::string path) : Sampler("space"), path_(std::move(path)) {}

  void summarize() override {
    if (least_) {
      UTIL_LOG(log(), SUMMARY, "space at least %llu MiB free in %s", ull{*least_}, path_.c_str());
    }
    least_.reset();
  }

 private:
  void sample() override {
    struct statvfs found = {};
    if (statvfs(path_.c_str(), &found) != 0) throw util::system_exception();
    const uint64_t free = uint64_t{found.f_bavail} * found.f_frsize >> 20;
    const uint64_t total = uint64_t{found.f_blocks} * found.f_frsize >> 20;
    least_ = std::min(least_.value_or(free), free);
    UTIL_LOG(log(), SAMPLE, "space %llu of %llu MiB free in %s", ull{free}, ull{total},
             path_.c_str());
  }

  const std::string path_;
  std::optional<uint64_t> least_;  // MiB
};

class BoardSampler : public Sampler {
 public:
  explicit BoardSampler(Machine& machine) : Sampler("board"), board_(machine.board) {}

  void summarize() override {}

 private:
  void sample() override {
    board_.refresh();
    UTIL_LOG(log(), SAMPLE, "board 0x%x", board_.getValue());
  }

  util::ZEB_GPIO& board_;
};

}  // namespace

void Sampler::runLoop(util::utime_t) {
  attempt_([this] { sample(); });
}

std::vector<std::unique_ptr<Sampler>> make_samplers(Machine& machine, const std::string& disk) {
  std::vector<std::unique_ptr<Sampler>> all;
  all.push_back(std::make_unique<LoadSampler>(machine));
  all.push_back(std::make_unique<MemorySampler>(machine));
  all.push_back(std::make_unique<TrafficSampler>(machine));
  all.push_back(std::make_unique<SpaceSampler>(disk));
  all.push_back(std::make_unique<BoardSampler>(machine));
  return all;
}

}  // namespace appliance
