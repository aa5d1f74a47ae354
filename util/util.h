// SPDX-License-Identifier: MIT
// The shared header: byte_string, utime_t and every free function of the library.
#pragma once

#include "util/base64.h"
#include "util/datetime.h"
#include "util/escape.h"
#include "util/print_str.h"
#include "util/strnatcmp.h"
#include "util/types.h"
