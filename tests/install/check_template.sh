#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Makes a daemon with what is installed, in a folder that has nothing of the sources, builds and tests
# it there, and runs it as a service manager does.
#
#   check_template.sh <build folder> <compiler>
set -euo pipefail
build=$1
compiler=$2
here=$(cd "$(dirname "$0")" && pwd)
. "$here/quietly.sh"
fail() { echo "FAILED: $*"; exit 1; }

quietly cmake --install "$build" --prefix "$work/installed"
new_daemon=$work/installed/bin/nas-new-daemon
[ ! -e "$work/installed/bin/mydaemon" ] || fail "the template's own daemon is installed"
lines=$(wc -l <"$work/installed/share/nasutil/template/daemon.cc")
[ "$lines" -le 60 ] || fail "the template has grown to $lines lines"

refused() {  # <status> <message> <argument...>
  local status=0
  "$new_daemon" "${@:3}" >"$work/log" 2>&1 || status=$?
  [ $status = "$1" ] || fail "status $status for: ${*:3}"
  grep -xF -- "$2" "$work/log" || { cat "$work/log"; exit 1; }
}
mkdir "$work/empty" "$work/full"
touch "$work/full/file"
no() { echo "nas-new-daemon: $*"; }
for arguments in "" "one" "one two three"; do
  # shellcheck disable=SC2086
  refused 2 "usage: nas-new-daemon NAME FOLDER" $arguments
done
for name in "" 2nd -h2; do
  refused 1 "$(no "the name '$name' does not begin with a letter")" "$name" "$work/none"
done
for name in Doorbell door_bell "door bell" ../door "d'o" dör 'do&r'; do
  refused 1 "$(no "the name '$name' may hold only lower-case letters, digits and '-'")" "$name" \
    "$work/none"
done
for name in d "d$(printf '%032d' 0)"; do
  refused 1 "$(no "the name '$name' has ${#name} characters; it needs 2 to 32")" "$name" "$work/none"
done
refused 1 "$(no "$work/full is not empty")" doorbell "$work/full"
refused 1 "$(no "$work/full/file exists and is not a folder")" doorbell "$work/full/file"
[ ! -e "$work/none" ] || fail "a refused daemon was made"

"$new_daemon" front-door2 "$work/empty" >/dev/null  # an empty folder will do
"$new_daemon" test "$work/a/new folder" >/dev/null  # nor need its parent exist
for made in "$work/empty" "$work/a/new folder"; do
  if grep -r 'mydaemon\|SPDX' "$made"; then fail "this is the template's"; fi
  [ -x "$made/debian/rules" ] || fail "the package's rules cannot be run"
done
cd "$work/a/new folder"
quietly cmake -B build -DCMAKE_PREFIX_PATH="$work/installed" -DCMAKE_CXX_COMPILER="$compiler" \
  -DCMAKE_BUILD_TYPE=Debug -DCMAKE_COMPILE_WARNING_AS_ERROR=ON -DCMAKE_INSTALL_PREFIX="$work/root/usr"
quietly cmake --build build -j "$(nproc)"
if grep -rIF "$(dirname "$(dirname "$here")")/" build; then fail "these name the sources"; fi
quietly ctest --test-dir build --no-tests=error --output-on-failure
quietly cmake --install build
[ -x "$work/root/usr/bin/test" ] || fail "the daemon is not installed"
unit=$work/root/usr/lib/systemd/system/test.service
grep -x "ExecStart=$work/root/usr/bin/test" "$unit" >/dev/null || fail "$(cat "$unit")"
LD_LIBRARY_PATH=$(dirname "$(find "$work/installed" -name libnasutil.a)")
export LD_LIBRARY_PATH
python3 "$here/as_a_service.py" "$work/root/usr/bin/test" "$work/full"
echo "a daemon can be made, built, tested and run with what is installed"
