// SPDX-License-Identifier: MIT
// Marks what the shared library exports; everything else is hidden.
#pragma once

#define UTIL_EXPORT __attribute__((visibility("default")))
