// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace service {

// What is due at an instant; may be in one queue at a time.
struct Timed {
  int64_t due = 0;     // nanoseconds of the monotonic clock
  uint64_t order = 0;  // of those due at the same instant, the one added first comes first
  size_t place = 0;    // in the queue
};

// A binary heap, the next one at the front, in which each element knows its place and so can be
// removed. Does not own its elements.
class TimerQueue {
 public:
  bool empty() const { return heap_.empty(); }
  Timed* front() const { return heap_.front().timed; }
  int64_t next_due() const { return heap_.front().due; }

  // What is added from now on has an order of this or more.
  uint64_t next_order() const { return next_order_; }

  void add(Timed& timed) {
    timed.order = next_order_;
    heap_.push_back({timed.due, timed.order, &timed});
    ++next_order_;
    raise(heap_.size() - 1, heap_.back());
  }

  void remove(Timed& timed) noexcept {
    const Entry last = heap_.back();
    heap_.pop_back();
    if (last.timed == &timed) return;
    const size_t at = timed.place;
    if (at > 0 && last < heap_[(at - 1) / 2]) {
      raise(at, last);
    } else {
      lower(at, last);
    }
  }

  // Moves the first element to its new instant, which is later.
  void postpone_front() noexcept {
    Timed& timed = *front();
    timed.order = next_order_++;
    lower(0, {timed.due, timed.order, &timed});
  }

 private:
  // The key beside the pointer, so that comparing does not have to follow it.
  struct Entry {
    bool operator<(const Entry& other) const {
      return due != other.due ? due < other.due : order < other.order;
    }

    int64_t due;
    uint64_t order;
    Timed* timed;
  };

  void put(size_t at, Entry entry) noexcept {
    heap_[at] = entry;
    entry.timed->place = at;
  }

  // Both find the place of an entry from `at` on, upwards or downwards.
  void raise(size_t at, Entry entry) noexcept {
    for (; at > 0 && entry < heap_[(at - 1) / 2]; at = (at - 1) / 2) put(at, heap_[(at - 1) / 2]);
    put(at, entry);
  }
  void lower(size_t at, Entry entry) noexcept {
    for (size_t child = 2 * at + 1; child < heap_.size(); child = 2 * at + 1) {
      if (child + 1 < heap_.size() && heap_[child + 1] < heap_[child]) ++child;
      if (!(heap_[child] < entry)) break;
      put(at, heap_[child]);
      at = child;
    }
    put(at, entry);
  }

  std::vector<Entry> heap_;
  uint64_t next_order_ = 0;
};

}  // namespace service
