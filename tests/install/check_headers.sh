#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Compiles each public header alone, without a warning, with both compilers in every mode from
# C++14 to C++23. With the macro DEBUG, the logging header says what to do.
#
#   check_headers.sh <source folder>
set -euo pipefail
cd "$1"

compile() {
  "$1" "-std=$2" -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I. -Iticpp -x c++ \
    -include "$3" /dev/null || { echo "FAILED: $1 -std=$2 $3"; return 1; }
}
export -f compile

headers=(util/*.h ticpp/*.h service/*.h)
for compiler in g++ clang++; do
  for mode in c++14 c++17 c++20 c++2b; do
    printf "$compiler $mode %s\n" "${headers[@]}"
  done
done | xargs -P "$(nproc)" -L 1 bash -c 'compile "$@"' compile

for compiler in g++ clang++; do
  if said=$("$compiler" -DDEBUG -fsyntax-only -I. -x c++ util/logger.h 2>&1); then
    echo "FAILED: $compiler compiles util/logger.h with -DDEBUG"
    exit 1
  fi
  grep -q 'error.*build without -DDEBUG, or #undef it' <<<"$said" ||
    { echo "FAILED: $compiler -DDEBUG does not say what to do: $said"; exit 1; }
done
echo "${#headers[@]} headers compile alone in every mode"
