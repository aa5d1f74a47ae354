#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the build into a folder, moves that folder, runs its tools and builds a client against it
# from yet another folder: by CMake and by pkg-config, shared and static.
#
#   check_consumer.sh <build folder> <compiler>
set -euo pipefail
build=$1
compiler=$2
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/moved"
prefix=$work/moved
libdir=$(dirname "$(find "$prefix" -name libnasutil.a)")

run() {  # <program> <kind>: works, and is linked as it should be
  LD_LIBRARY_PATH=$libdir "$1" 2>/dev/null | grep -q "text consumer works"
  local linked
  linked=$(objdump -p "$1" | grep -c 'NEEDED.*libnasutil\.so\.1' || true)
  if [ "$2" = shared ]; then [ "$linked" = 1 ]; else [ "$linked" = 0 ]; fi
}

if grep -rlF "$work/first" "$prefix"; then
  echo "FAILED: these name the folder that they were moved from"
  exit 1
fi
for tool in "$prefix"/bin/*; do
  if [ -e "$tool" ]; then LD_LIBRARY_PATH=$libdir "$tool" --version; fi
done

echo "by CMake"
cmake -S "$here/consumer" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_STANDARD=14 >"$work/log" || { cat "$work/log"; exit 1; }
cmake --build "$work/cmake" >"$work/log" || { cat "$work/log"; exit 1; }
run "$work/cmake/consumer_shared" shared
run "$work/cmake/consumer_static" static

echo "by pkg-config"
export PKG_CONFIG_PATH=$libdir/pkgconfig
test "$(pkg-config --modversion nasutil)" = "$(sed -n 's/^Version: //p' "$libdir/pkgconfig/nasutil.pc")"
# shellcheck disable=SC2046
"$compiler" -std=c++14 "$here/consumer/main.cc" -o "$work/shared" $(pkg-config --cflags --libs nasutil)
run "$work/shared" shared
# shellcheck disable=SC2046
"$compiler" -std=c++14 "$here/consumer/main.cc" -o "$work/static" \
  -static $(pkg-config --static --cflags --libs nasutil)
run "$work/static" static
echo "the installed package works"
