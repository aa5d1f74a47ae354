#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the library with link-time optimisation at -O1, while its small modules are still compiled
# with -Os, and runs the guide's program of values with it.
#
#   check_lto.sh <source folder> <compiler>
set -euo pipefail
source=$1
compiler=$2
. "$(dirname "$0")/quietly.sh"

configure -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="-O1 -flto=auto"
quietly cmake --build "$work/build" --target nasutil
"$compiler" -I"$source" "$source/docs/guide/values.cc" -o "$work/values" \
  -L"$work/build" -lnasutil -Wl,-rpath,"$work/build"
cd "$work"
./values | grep "nas uses packets of 1500 bytes"
