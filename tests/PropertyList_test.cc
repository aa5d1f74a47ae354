// SPDX-License-Identifier: MIT
#include "util/PropertyList.h"
#include <gtest/gtest.h>
TEST(P, p) { util::PropertyList l("/tmp/tx/l"); l["a"]=5; l.save(); l.load(); l.dump(); EXPECT_EQ(5,l.intForKey("a")); }
