// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
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

  void add(Timed& timed) {
    timed.order = next_order_;
    heap_.push_back({timed.due, &timed});
    ++next_order_;
    raise(heap_.size() - 1, heap_.back());
  }

  void remove(Timed& timed) noexcept {
    const Entry last = heap_.back();
    heap_.pop_back();
    if (last.timed == &timed) return;
    const size_t at = timed.place;
    if (at > 0 && last < heap_[parent(at)]) {
      raise(at, last);
    } else {
      lower(at, last);
    }
  }

  // Moves the first element to its new instant, which is later.
  void postpone_front() noexcept {
    Timed& timed = *front();
    timed.order = next_order_++;
    lower(0, {timed.due, &timed});
  }

 private:
  // The key is beside the pointer, so that comparing hardly ever has to follow it.
  struct Entry {
    bool operator<(const Entry& other) const {
      return due != other.due ? due < other.due : timed->order < other.timed->order;
    }

    int64_t due;
    Timed* timed;
  };

  // Each has four children, so the heap is half as deep as with two.
  static constexpr size_t kBelow = 4;
  static size_t parent(size_t at) { return (at - 1) / kBelow; }

  void put(size_t at, Entry entry) noexcept {
    heap_[at] = entry;
    entry.timed->place = at;
  }

  // Both find the place of an entry, starting at `at`, upwards or downwards.
  void raise(size_t at, Entry entry) noexcept {
    for (; at > 0 && entry < heap_[parent(at)]; at = parent(at)) put(at, heap_[parent(at)]);
    put(at, entry);
  }
  void lower(size_t at, Entry entry) noexcept {
    for (size_t below = kBelow * at + 1; below < heap_.size(); below = kBelow * at + 1) {
      const size_t end = std::min(below + kBelow, heap_.size());
      size_t next = below;
      for (size_t other = below + 1; other < end; ++other) {
        if (heap_[other] < heap_[next]) next = other;
      }
      if (!(heap_[next] < entry)) break;
      put(at, heap_[next]);
      at = next;
    }
    put(at, entry);
  }

  std::vector<Entry> heap_;
  uint64_t next_order_ = 0;
};

}  // namespace service
