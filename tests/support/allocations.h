// SPDX-License-Identifier: MIT
// Counts what goes through operator new, and makes it fail, in suites linked with
// test_allocations.
#pragma once

namespace support {

// Uses of operator new by this process so far.
long allocations();

// Called by each use of operator delete, unless null.
extern void (*before_release)();

// From construction to destruction the `nth` use of operator new (1 is the next one) throws
// std::bad_alloc, or returns null if it was called with std::nothrow.
class AllocationFault {
 public:
  explicit AllocationFault(long nth);
  ~AllocationFault();
  AllocationFault(const AllocationFault&) = delete;
  AllocationFault& operator=(const AllocationFault&) = delete;

  bool fired() const;
};

}  // namespace support
