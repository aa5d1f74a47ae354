// SPDX-License-Identifier: MIT
#include "service/internal/TimerQueue.h"

#include <algorithm>

namespace service {
namespace {

// Each has four children, so the heap is half as deep as with two.
constexpr size_t kBelow = 4;

size_t parent(size_t at) { return (at - 1) / kBelow; }

}  // namespace

void TimerQueue::add(Timed& timed) {
  timed.order = next_order_;
  heap_.push_back({timed.due, &timed});
  ++next_order_;
  raise(heap_.size() - 1, heap_.back());
}

void TimerQueue::remove(Timed& timed) noexcept {
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

void TimerQueue::postpone_front() noexcept {
  Timed& timed = *front();
  timed.order = next_order_++;
  lower(0, {timed.due, &timed});
}

void TimerQueue::put(size_t at, Entry entry) noexcept {
  heap_[at] = entry;
  entry.timed->place = at;
}

// Both find the place of an entry, starting at `at`, upwards or downwards.
void TimerQueue::raise(size_t at, Entry entry) noexcept {
  for (; at > 0 && entry < heap_[parent(at)]; at = parent(at)) put(at, heap_[parent(at)]);
  put(at, entry);
}

void TimerQueue::lower(size_t at, Entry entry) noexcept {
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

}  // namespace service
