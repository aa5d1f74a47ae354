// SPDX-License-Identifier: MIT
// The two types that the whole library shares.
#pragma once

#include <cstdint>
#include <string>

namespace util {

// Raw bytes: keys, signatures, binary property-list data, network addresses.
using byte_string = std::basic_string<unsigned char>;

// Milliseconds. Instants count from the Unix epoch, durations use the same unit. Arithmetic is
// unsigned: a difference taken the wrong way round wraps instead of going negative.
using utime_t = std::uint64_t;

}  // namespace util
