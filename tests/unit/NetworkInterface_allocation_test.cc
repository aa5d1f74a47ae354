// SPDX-License-Identifier: MIT
// Memory that runs out while the interfaces are listed.
#include "tests/support/allocations.h"
#include "tests/support/files.h"
#include "tests/support/network.h"
#include "util/NetworkInterface.h"

#include <new>

#include <gtest/gtest.h>

using support::AllocationFault;
using util::NetworkInterface;

TEST(NetworkInterface, LeaksNothingWhereMemoryRunsOut) {
  support::FakeInterfaces fake{
      {"eth0", "10.0.0.1" },
      {"eth0", "fe80::1"  },
      {"lo",   "127.0.0.1"},
  };
  fake.hardware = {
      {"eth0", "\x01\x02\x03\x04\x05\x06"},
      {"lo",   "\x01\x02\x03\x04\x05\x06"}
  };
  const int before = support::open_descriptors();
  int failures = 0;
  for (bool fired = true; fired;) {
    {
      const AllocationFault fault(failures + 1);
      try {
        NetworkInterface::get_interfaces();
      } catch (const std::bad_alloc&) {
        ++failures;
      }
      fired = fault.fired();
    }
    EXPECT_EQ(0, fake.open_lists());
    EXPECT_EQ(before, support::open_descriptors());
  }
  EXPECT_LT(5, failures);
}
