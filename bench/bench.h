// SPDX-License-Identifier: MIT
// What the benchmark programs share. A case is one work done by one library: by "ours", by a peer,
// or by hand, which is the "floor". All cases of a work leave the same result.
#pragma once

#include <valgrind/callgrind.h>

#include <functional>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace bench {

struct Case {
  std::string work;
  std::string who;
  std::function<void(benchmark::State&)> time;
  std::function<void()> count;  // instructions, where the program runs under callgrind
};

std::vector<Case>& cases();

// Fills cases(); each program has its own.
void add_cases();

// Blocks that this thread has got from the heap so far.
long allocations();

// Ends the program where a case does not leave what it should.
void require(bool holds, const std::string& what);

// A path in a folder of its own, in memory where the system has such a place; removed at the end.
std::string scratch_file(const std::string& name);

std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& text);

// Makes the compiler believe that `result` is looked at.
template <class T>
void keep(const T& result) {
  benchmark::DoNotOptimize(&result);
  benchmark::ClobberMemory();
}

constexpr int kCountedUnits = 10;

// Adds a case. `make` prepares it and returns the unit of work, which is called again and again,
// after `before`, which is neither timed nor counted: void(unit).
template <class Make, class Before>
void add(const std::string& work, const std::string& who, Make make, Before before) {
  const auto time = [make, before](benchmark::State& state) {
    auto unit = make();
    before(unit);
    unit();
    long used = 0;
    for (auto round : state) {
      state.PauseTiming();
      before(unit);
      used -= allocations();
      state.ResumeTiming();
      unit();
      used += allocations();
    }
    state.counters["allocations"] =
        benchmark::Counter(static_cast<double>(used), benchmark::Counter::kAvgIterations);
  };
  const auto count = [make, before] {
    auto unit = make();
    before(unit);
    unit();
    for (int i = 0; i < kCountedUnits; ++i) {
      before(unit);
      CALLGRIND_START_INSTRUMENTATION;
      unit();
      CALLGRIND_STOP_INSTRUMENTATION;
    }
  };
  cases().push_back({work, who, time, count});
}

// The same without a step before each unit.
template <class Make>
void add(const std::string& work, const std::string& who, Make make) {
  const auto time = [make](benchmark::State& state) {
    auto unit = make();
    unit();
    const long used = allocations();
    for (auto round : state) {
      unit();
      benchmark::ClobberMemory();
    }
    state.counters["allocations"] = benchmark::Counter(static_cast<double>(allocations() - used),
                                                       benchmark::Counter::kAvgIterations);
  };
  const auto count = [make] {
    auto unit = make();
    unit();
    CALLGRIND_START_INSTRUMENTATION;
    for (int i = 0; i < kCountedUnits; ++i) unit();
    CALLGRIND_STOP_INSTRUMENTATION;
  };
  cases().push_back({work, who, time, count});
}

}  // namespace bench
