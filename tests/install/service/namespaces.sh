#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs a script as process 1 of namespaces of its own, in which it becomes a service manager.
# Nothing of this machine changes. All that is said goes to <work folder>/console, which is shown in
# the end.
#
#   namespaces.sh systemd|busybox <work folder> <script> [argument...]
#
# Ends with status 77 and says SKIPPED, and why, where that cannot be, else with the script's.
set -euo pipefail
manager=$1
work=$2
shift 2
group=""
# shellcheck disable=SC2317  # the trap calls it
finish() {
  local status=$?
  if [ -d "$group" ]; then
    until find "$group" -depth -type d -exec rmdir {} + 2>/dev/null; do sleep 0.1; done
  fi
  if mountpoint -q "$work/groups"; then umount "$work/groups"; fi
  exit "$status"
}
trap finish EXIT
skip() { echo "SKIPPED, nothing was started by $manager: $1"; exit 77; }

case $manager in
  systemd) [ -x /lib/systemd/systemd ] || skip "it is not installed" ;;
  busybox) command -v busybox >/dev/null || skip "it is not installed" ;;
esac
[ "$(id -u)" = 0 ] || skip "that needs root"
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
  exec timeout --kill-after=10 200 "${namespaces[@]}" "$@"
) >>"$work/console" 2>&1 || status=$?
cat "$work/console"
exit $status
