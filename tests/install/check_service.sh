#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the appliance as a service and runs it under a real service manager, process 1 of
# namespaces of its own: systemd, or busybox's init with busybox's commands alone. Nothing of this
# machine changes.
#
#   check_service.sh systemd|busybox <build folder> <install prefix> <its folder of configurations>
#
# Ends with status 77 and says SKIPPED, and why, where that cannot be.
set -euo pipefail
manager=$1
build=$2
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
group=""
finish() {
  local status=$?
  if [ -d "$group" ]; then
    until find "$group" -depth -type d -exec rmdir {} + 2>/dev/null; do sleep 0.1; done
  fi
  if mountpoint -q "$work/groups"; then umount "$work/groups"; fi
  rm -rf "$work"
  exit $status
}
trap finish EXIT
fail() { echo "FAILED: $1"; exit 1; }
skip() { echo "SKIPPED, the service was not started by $manager: $1"; exit 77; }

export DESTDIR=$work/root
for component in runtime appliance; do
  cmake --install "$build" --component $component >"$work/log" || { cat "$work/log"; exit 1; }
done

# What needs no service manager.
headers() { grep -E '^ +"[A-Z][A-Za-z-]*" => "' "$1" | sed 's/^ *//'; }
diff <(headers "$here/../../examples/appliance/lighttpd.conf") \
  <(headers "$DESTDIR$4/lighttpd/conf-available/50-nasd.conf") || fail "other headers than the demo's"
if [ "$manager" = systemd ]; then
  init=/lib/systemd/systemd
  [ -x $init ] || skip "it is not installed"
  mkdir "$work/unit"
  sed "s#=-*$3/#&#; s#=$3/#=$DESTDIR$3/#" "$DESTDIR$3/lib/systemd/system/nasd.service" \
    >"$work/unit/nasd.service"
  systemd-analyze verify "$work/unit/nasd.service" || fail "systemd-analyze verify"
  systemd-analyze security --offline=yes --threshold=15 "$work/unit/nasd.service" >"$work/log" ||
    { cat "$work/log"; fail "the service may do more than it needs"; }
else
  init=$(command -v busybox) || skip "it is not installed"
fi

[ "$(id -u)" = 0 ] || skip "that needs root"
if [ "$3" = /usr ] || [ ! -d "$3" ]; then skip "$3 cannot be mounted over"; fi
namespaces=(unshare --mount --pid --fork --kill-child --uts --ipc --net --cgroup)
"${namespaces[@]}" true 2>"$work/why" || skip "no namespaces: $(cat "$work/why")"

# A control group of its own, below which systemd makes its groups.
join() { echo "$BASHPID" >"$group/cgroup.procs"; }
if [ "$manager" = systemd ]; then
  mkdir "$work/groups"
  group=$work/groups/nasutil-$$
  if ! { mount -t cgroup2 none "$work/groups" && mkdir "$group" && (join); } 2>"$work/why"; then
    skip "no control groups: $(cat "$work/why")"
  fi
fi

status=0
(
  if [ -n "$group" ]; then join; fi
  exec timeout --kill-after=10 200 "${namespaces[@]}" "$here/service/boot.sh" "$@" "$work" "$init"
) >"$work/console" 2>&1 || status=$?
cat "$work/console"
[ -e "$work/passed" ] || fail "$manager ended with $status before all was seen"
