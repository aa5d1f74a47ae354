#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The shared library exports what cmake/exported_symbols.txt lists, and nothing else: namespace
# util, the XML layer, the printing operators, two plain C functions and one global. Template
# instances, and what names a type in them, come and go with compiler and optimiser: of these only
# the namespace counts.
#
#   check_symbols.sh <shared library> [--renew]      --renew writes the list anew
set -euo pipefail
export LC_ALL=C
list=$(cd "$(dirname "$0")/../.." && pwd)/cmake/exported_symbols.txt

symbols() {  # <classes of nm>: their names, demangled
  nm -D --defined-only "$library" | awk -v classes="$1" '$2 ~ classes { print $3 }' | c++filt |
    sort -u
}

# The integer types of an interface have other names where a long has 32 bits.
portable() {
  if [ "$(od -An -tu1 -j4 -N1 "$library" | tr -d ' ')" = 2 ]; then cat; else
    sed -E 's/unsigned (int|long long|long)/unsigned/g; s/long long/long/g'
  fi | sort -u
}

library=$1
if [ "${2:-}" = --renew ]; then
  symbols '[^W]' >"$list"
  exit
fi
missing=$(comm -23 <(portable <"$list") <(symbols . | portable))
others=$(comm -13 <(portable <"$list") <(symbols . | portable) |
  grep -vE '^typeinfo (name )?for (util|ticpp)::' |
  grep -vxFf <(symbols W | portable | grep -E '^([^(<]* )?(util|ticpp)::') || true)
if [ -n "$missing$others" ]; then
  echo "FAILED: not as in cmake/exported_symbols.txt"
  echo "missing:"
  echo "$missing"
  echo "exported besides:"
  echo "$others"
  exit 1
fi
echo "$(wc -l <"$list") symbols are exported, all of them the interface's"
