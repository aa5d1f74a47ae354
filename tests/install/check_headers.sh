#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Compiles each public header alone, and all of them together in every mode from C++14 to C++23,
# without a warning. With the macro DEBUG, the logging header says what to do.
#
#   check_headers.sh <source folder> <compiler>
set -euo pipefail
cd "$1"
export compiler=$2

compile() {  # <mode> <header>...
  local mode=$1 includes=()
  shift
  for header in "$@"; do includes+=(-include "$header"); done
  "$compiler" "-std=$mode" -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I. -Iticpp -x c++ \
    "${includes[@]}" /dev/null || { echo "FAILED: $compiler -std=$mode $*"; return 1; }
}
export -f compile

headers=(util/*.h ticpp/ticpp.h service/*.h)  # those that are installed
{
  for header in "${headers[@]}"; do echo "c++14 $header"; done
  for mode in c++14 c++17 c++20 c++2b; do echo "$mode ${headers[*]}"; done
} | xargs -P "$(nproc)" -L 1 bash -c 'compile "$@"' compile

if said=$("$compiler" -DDEBUG -fsyntax-only -I. -x c++ util/logger.h 2>&1); then
  echo "FAILED: $compiler compiles util/logger.h with -DDEBUG"
  exit 1
fi
grep -q 'error.*build without -DDEBUG, or #undef it' <<<"$said" ||
  { echo "FAILED: $compiler -DDEBUG does not say what to do: $said"; exit 1; }
echo "${#headers[@]} headers compile alone, and together in every mode"
