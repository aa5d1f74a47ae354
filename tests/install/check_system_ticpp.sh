#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the library with an installed TinyXML++ in place of the layer in ticpp/, and a client of
# both. What is installed here is that layer as a library of its own: Debian has no TinyXML++.
#
#   check_system_ticpp.sh <source folder> <compiler>
set -euo pipefail
source=$1
compiler=$2
. "$(dirname "$0")/quietly.sh"

mkdir -p "$work"/ticpp/{include,lib}
cp "$source/ticpp/ticpp.h" "$work/ticpp/include"
"$compiler" -std=c++17 -fPIC -shared -I"$source" "$source"/ticpp/*.cc \
  -o "$work/ticpp/lib/libticpp.so" -ltinyxml

configure -DCMAKE_BUILD_TYPE=Debug -DCMAKE_PREFIX_PATH="$work/ticpp" -DNASUTIL_SYSTEM_TICPP=ON
quietly cmake --build "$work/build"
if nm -D --defined-only "$work/build/libnasutil.so" | grep _ZN5ticpp; then
  echo "FAILED: the library still holds the layer in ticpp/"
  exit 1
fi
quietly cmake --install "$work/build" --prefix "$work/installed"
if [ -e "$work/installed/include/nasutil/ticpp.h" ]; then
  echo "FAILED: a second ticpp.h is installed"
  exit 1
fi

quietly cmake -S "$source/tests/install/consumer" -B "$work/client" -G Ninja \
  -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_PREFIX_PATH="$work/installed"
quietly cmake --build "$work/client"
export LD_LIBRARY_PATH=$work/installed/lib:$work/ticpp/lib
for kind in shared static; do "$work/client/consumer_$kind" 2>/dev/null | grep "consumer works"; done

# shellcheck disable=SC2046
"$compiler" "$source/tests/install/consumer/main.cc" -o "$work/by_pkg_config" \
  $(PKG_CONFIG_PATH=$work/installed/lib/pkgconfig pkg-config --cflags --libs nasutil)
"$work/by_pkg_config" 2>/dev/null | grep "consumer works"
