#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# An optimised library is hardened and keeps its assertions.
#
#   check_hardening.sh <shared library>
set -euo pipefail
dynamic=$(readelf -dW "$1")
segments=$(readelf -lW "$1")
calls=$(nm -D --undefined-only "$1")

has() { grep -qE "$2" <<<"$1" || { echo "FAILED: no $3"; exit 1; }; }
has "$segments" 'GNU_RELRO' "read-only relocations"
has "$dynamic" 'FLAGS_1.* NOW' "binding at start, so the relocations stay writable"
has "$segments" 'GNU_STACK +.* RW ' "stack without execution"
has "$calls" ' __stack_chk_fail@' "stack protector"
has "$calls" ' __vsnprintf_chk@' "fortified call"
has "$calls" ' __assert_fail@' "assertion"
echo "the library is hardened"
