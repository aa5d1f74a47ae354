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
  local linked=static
  if objdump -p "$1" | grep 'NEEDED.*libnasutil' >/dev/null; then linked=shared; fi
  [ "$linked" = "$2" ]
}

if grep -rlF "$work/first" "$prefix"; then
  echo "FAILED: these name the folder that they were moved from"
  exit 1
fi
for tool in "$prefix"/bin/nas-{conf,log,plist}; do
  if [ -e "$tool" ]; then "$tool" --version; fi  # finds its library beside it
done

echo "by CMake"
cmake -S "$here/consumer" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_STANDARD=14 >"$work/log" || { cat "$work/log"; exit 1; }
cmake --build "$work/cmake" >"$work/log" || { cat "$work/log"; exit 1; }
for client in consumer service; do
  run "$work/cmake/${client}_shared" shared
  run "$work/cmake/${client}_static" static
done

echo "by pkg-config"
export PKG_CONFIG_PATH=$libdir/pkgconfig
# by_pkg_config <package> <source>
by_pkg_config() {
  test "$(pkg-config --modversion "$1")" = "$(sed -n 's/^Version: //p' "$libdir/pkgconfig/$1.pc")"
  # shellcheck disable=SC2046
  "$compiler" -std=c++14 "$here/consumer/$2" -o "$work/shared" $(pkg-config --cflags --libs "$1")
  run "$work/shared" shared
  # shellcheck disable=SC2046
  "$compiler" -std=c++14 "$here/consumer/$2" -o "$work/static" \
    -static $(pkg-config --static --cflags --libs "$1")
  run "$work/static" static
}
by_pkg_config nasutil main.cc
by_pkg_config nasutil-service service.cc
echo "the installed package works"
