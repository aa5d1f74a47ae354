#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The shared library exports what cmake/exported_symbols.txt lists, and nothing else: namespace
# util, the XML layer, the printing operators, two plain C functions and one global. Template
# instances come and go with compiler and optimiser; of them only the namespace counts.
#
#   check_symbols.sh <shared library> [--renew]      --renew writes the list anew
set -euo pipefail
list=$(cd "$(dirname "$0")/.." && pwd)/cmake/exported_symbols.txt

symbols() {  # <classes of nm>: their names, demangled
  nm -D --defined-only "$library" | awk -v classes="$1" '$2 ~ classes { print $3 }' | c++filt |
    LC_ALL=C sort -u
}

# The integer types of an interface have other names where a long has 32 bits.
portable() {
  if [ "$(od -An -tu1 -j4 -N1 "$library" | tr -d ' ')" = 2 ]; then cat; else
    sed -E 's/unsigned (int|long long|long)/unsigned/g; s/long long/long/g'
  fi | LC_ALL=C sort -u
}

library=$1
if [ "${2:-}" = --renew ]; then
  symbols '[^W]' >"$list"
  exit
fi
if ! difference=$(diff <(portable <"$list") <(symbols '[^W]' | portable)); then
  echo "FAILED: not as in cmake/exported_symbols.txt (<: missing, >: exported besides)"
  echo "$difference"
  exit 1
fi
if others=$(symbols W | grep -vE '^([^(<]* )?(util|ticpp)::'); then
  echo "FAILED: template instances of other namespaces are exported:"
  echo "$others"
  exit 1
fi
echo "$(wc -l <"$list") symbols are exported, all of them the interface's"
