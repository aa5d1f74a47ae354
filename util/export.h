// SPDX-License-Identifier: MIT
// Marks what the shared library exports; everything else is hidden.
#pragma once

#define UTIL_EXPORT __attribute__((visibility("default")))

// Marks the definition of a class inside an exported one: it would be exported as well.
#define UTIL_HIDDEN __attribute__((visibility("hidden")))
