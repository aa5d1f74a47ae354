// SPDX-License-Identifier: MIT
#include "util/EventLoop.h"

namespace util {

const char* EventLoop::name() { return "<<unknown>>"; }

}  // namespace util
