#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The shared library's binary interface is that of cmake/nasutil.abi: how classes are laid out,
# their virtual functions, the values of enumerators, what functions take and return. A program in
# the field breaks when that changes; what was only added must be written down too.
#
#   check_abi.sh <shared library> [--renew]      --renew writes cmake/nasutil.abi anew
#
# The library is one that g++ built with debugging information for 64-bit x86, whatever the folder.
set -euo pipefail
baseline=$(cd "$(dirname "$0")/../.." && pwd)/cmake/nasutil.abi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Types from elsewhere, the C++ library's for one, are names: their insides are not ours to watch.
# It is this label, the tools' own for private types, that keeps the names of what is dropped.
cat >"$work/others" <<'END'
[suppress_type]
  label = Artificial private types suppression specification
  source_location_not_regexp = /(util|ticpp)/[^/]*\\.h$
  drop = yes
END
abidw --suppressions "$work/others" --exported-interfaces-only --type-id-style hash \
  --no-corpus-path --no-comp-dir-path --no-show-locs --no-parameter-names --no-elf-needed \
  --out-file "$work/abi" "$1"

if [ "${2:-}" = --renew ]; then
  mv "$work/abi" "$baseline"
  exit
fi
# abidiff follows what the exported functions take and return. An enumerator may be returned by
# inline functions only.
enumerators() {
  awk -F "'" '/<namespace-decl/ { ours = $2 == "util" } /<enum-decl/ { type = $2 }
              /<enumerator/ && ours { print type, $2, $4 }' "$1" | sort -u
}
if ! abidiff --harmless --no-show-locs "$baseline" "$work/abi" ||
  ! diff <(enumerators "$baseline") <(enumerators "$work/abi"); then
  echo "FAILED: not the binary interface of cmake/nasutil.abi"
  exit 1
fi
echo "the binary interface is unchanged: $(grep -c "<function-decl .*elf-symbol-id=" "$baseline")" \
  "functions, $(grep -c "<class-decl .*size-in-bits=" "$baseline") classes," \
  "$(enumerators "$baseline" | wc -l) enumerators"
