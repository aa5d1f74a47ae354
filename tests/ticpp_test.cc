// SPDX-License-Identifier: MIT
#include "ticpp/ticpp.h"

#include <gtest/gtest.h>
TEST(Document, Makes) { ticpp::Document d; }
