// SPDX-License-Identifier: MIT
#include "tests/support/allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> used = 0;
std::atomic<long> fail_at = 0;  // the value of `used` at which operator new throws; 0: never

void* counted_or_null(size_t size) {
  return ++used == fail_at ? nullptr : malloc(size == 0 ? 1 : size);
}

void* counted(size_t size) {
  void* const memory = counted_or_null(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void release(void* memory) {
  if (support::before_release != nullptr) support::before_release();
  free(memory);
}

}  // namespace

namespace support {

void (*before_release)() = nullptr;

long allocations() { return used; }

AllocationFault::AllocationFault(long nth) { fail_at = used + nth; }

AllocationFault::~AllocationFault() { fail_at = 0; }

bool AllocationFault::fired() const { return used >= fail_at; }

}  // namespace support

void* operator new(size_t size) { return counted(size); }
void* operator new[](size_t size) { return counted(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return counted_or_null(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return counted_or_null(size); }
void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, size_t) noexcept { release(memory); }
void operator delete[](void* memory, size_t) noexcept { release(memory); }
