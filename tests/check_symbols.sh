#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The shared library exports namespace util, the XML layer, the printing operators, two plain C
# functions and one global, and nothing else.
#
#   check_symbols.sh <shared library>
set -euo pipefail
exported=$(nm -D --defined-only "$1" | awk '{print $3}')
others=$(grep -vE '^(strnatcmp|strnatcasecmp|__g_util_NASConfDB_debug)$' <<<"$exported" |
  grep -vE '^_Z(T[ISV])?NK?(4util|5ticpp)|^_ZlsR.*N4util' || true)
if [ -n "$others" ]; then
  echo "FAILED: exported besides the interface:"
  c++filt <<<"$others"
  exit 1
fi
for plain in strnatcmp strnatcasecmp __g_util_NASConfDB_debug _ZlsRSoRN4util5ValueE; do
  grep -qx "$plain" <<<"$exported" || { echo "FAILED: $plain is not exported"; exit 1; }
done
echo "$(wc -l <<<"$exported") symbols are exported, all of them the interface's"
