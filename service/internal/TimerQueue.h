// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace service {

// Something that is due at an instant; it may be in one queue at a time.
struct Timed {
  int64_t due = 0;     // nanoseconds of the monotonic clock
  uint64_t order = 0;  // of those due at the same instant, the one added first comes first
  size_t place = 0;    // in the queue
};

// A heap with the next timer at the front. Each element knows its place, so that it can be removed.
// Does not own its elements.
class TimerQueue {
 public:
  bool empty() const { return heap_.empty(); }
  Timed* front() const { return heap_.front().timed; }
  int64_t next_due() const { return heap_.front().due; }

  // Timers added from now on have this order or a higher one.
  uint64_t next_order() const { return next_order_; }

  void add(Timed& timed);
  void remove(Timed& timed) noexcept;

  // Moves the first element to its new instant, which is later.
  void postpone_front() noexcept;

 private:
  // The key is beside the pointer, so that comparing hardly ever has to follow it.
  struct Entry {
    bool operator<(const Entry& other) const {
      return due != other.due ? due < other.due : timed->order < other.timed->order;
    }

    int64_t due;
    Timed* timed;
  };

  void put(size_t at, Entry entry) noexcept;
  void raise(size_t at, Entry entry) noexcept;
  void lower(size_t at, Entry entry) noexcept;

  std::vector<Entry> heap_;
  uint64_t next_order_ = 0;
};

}  // namespace service
