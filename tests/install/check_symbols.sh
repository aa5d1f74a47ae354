#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The shared library exports the functions and variables that cmake/nasutil.abi lists, and nothing
# else: namespace util, the XML layer, the printing operators, two plain C functions and one global.
# Tables of virtual functions and type information of these namespaces belong to their classes.
# Template instances, and what names a type in them, come and go with compiler and optimiser: of
# these only the namespace counts.
#
#   check_symbols.sh <shared library>
set -euo pipefail
export LC_ALL=C
library=$1
baseline=$(cd "$(dirname "$0")/../.." && pwd)/cmake/nasutil.abi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

symbols() {  # <classes of nm>: their names, demangled
  nm -D --defined-only "$library" | awk -v classes="$1" '$2 ~ classes { print $3 }' | c++filt |
    sort -u
}

sed -n "s/^ *<elf-symbol name='\([^']*\)'.* binding='global-binding'.*/\1/p" "$baseline" |
  c++filt | sort -u >"$work/listed"
symbols . >"$work/exported"
{
  cat "$work/listed"
  symbols W | grep -E '^([^(<]* )?(util|ticpp)::' || true
  grep -E '^(vtable|typeinfo) for (util|ticpp)::' "$work/exported"
} | sort -u >"$work/allowed"

missing=$(comm -23 "$work/listed" "$work/exported")
others=$(comm -13 "$work/allowed" "$work/exported")
if [ -n "$missing$others" ]; then
  echo "FAILED: not as in cmake/nasutil.abi"
  echo "missing:"
  echo "$missing"
  echo "exported besides:"
  echo "$others"
  exit 1
fi
echo "$(wc -l <"$work/listed") functions and variables are exported, all of them the interface's"
