#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the appliance as a service and runs it under a real service manager: systemd, or
# busybox's init with busybox's commands alone.
#
#   check_service.sh systemd|busybox <build folder> <install prefix> <its folder of configurations>
#
# Ends with status 77 and says SKIPPED, and why, where no service manager can be started.
set -euo pipefail
manager=$1
build=$2
prefix=$3
etc=$4
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $1"; exit 1; }

export DESTDIR=$work/root
for component in runtime appliance; do
  cmake --install "$build" --component $component >"$work/log" || { cat "$work/log"; exit 1; }
done

headers() { grep -E '^ +"[A-Z][A-Za-z-]*" => "' "$1" | sed 's/^ *//'; }
diff <(headers "$here/../../examples/appliance/lighttpd.conf") \
  <(headers "$DESTDIR$etc/lighttpd/conf-available/50-nasd.conf") ||
  fail "other headers than the demo's"

if [ "$manager" = systemd ] && command -v systemd-analyze >/dev/null; then
  mkdir "$work/unit"
  sed "s#=-*$prefix/#&#; s#=$prefix/#=$DESTDIR$prefix/#" \
    "$DESTDIR$prefix/lib/systemd/system/nasd.service" >"$work/unit/nasd.service"
  systemd-analyze verify "$work/unit/nasd.service" >"$work/log" 2>&1 ||
    { cat "$work/log"; fail "the unit is not accepted"; }
  if grep 'nasd\.service' "$work/log"; then fail "the unit has faults"; fi
  systemd-analyze security --offline=yes --threshold=15 "$work/unit/nasd.service" >"$work/log" ||
    { cat "$work/log"; fail "the service may do more than it needs"; }
fi

if [ "$prefix" = /usr ] || [ ! -d "$prefix" ]; then
  echo "SKIPPED, nothing was started by $manager: $prefix cannot be mounted over"
  exit 77
fi
status=0
"$here/service/namespaces.sh" "$manager" "$work" \
  "$here/service/boot.sh" "$manager" "$prefix" "$etc" "$work" || status=$?
[ $status != 77 ] || exit 77
[ -e "$work/passed" ] || fail "$manager ended with $status before all was seen"
