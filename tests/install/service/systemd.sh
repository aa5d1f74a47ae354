#!/bin/sh
# SPDX-License-Identifier: MIT
# shellcheck disable=SC2154  # boot.sh sets prefix, etc, work
# The service under systemd. `prepare` makes a system of a single unit, which `check`s.
# shellcheck source=tests/install/service/checks.sh
. "$(dirname "$0")/checks.sh"

prepare() {
  mount -t cgroup2 none /sys/fs/cgroup
  mkdir -p /etc/systemd/system "$work/nothing"
  mount --bind "$work/nothing" /lib/systemd/system/sysinit.target.wants
  mount --bind "$work/nothing" /lib/systemd/system/multi-user.target.wants
  systemd-sysusers
  systemd-tmpfiles --create "$prefix/lib/tmpfiles.d/nasd.conf"
  systemctl --root=/ enable nasd
  cat >/etc/systemd/system/check.service <<END
[Unit]
After=nasd.service
Requires=multi-user.target
OnFailure=exit.target
[Service]
Type=oneshot
ExecStart=$0 check
PassEnvironment=prefix etc work
StandardOutput=append:$work/console
StandardError=append:$work/console
END
  echo "/lib/systemd/systemd --unit=check.service --log-target=console --show-status=no" \
    >"$work/init"
}

value() { systemctl show --value --property "$1" nasd; }
hang() { hung=$(value MainPID) && kill -STOP "$hung" 2>/dev/null; }
differs() { [ "$(value MainPID)" != "$1" ] && [ "$(value ActiveState)" = active ]; }

check() {
  is "its state" "$(value ActiveState)" active  # from READY=1 on
  check_running "$(value MainPID)"
  check_page
  check_reload systemctl reload nasd

  systemctl stop nasd
  is "its end" "$(value Result)" success
  [ -s /run/nasd/state.plist ] || fail "the page has no old state to show"
  [ ! -e /run/nasd/control ] || fail "its socket is still there"

  change=/run/systemd/system/nasd.service.d
  mkdir $change
  printf '[Service]\nWatchdogSec=2\nRestartSec=100ms\n' >$change/test.conf
  systemctl daemon-reload
  systemctl start nasd
  grep -q 'taking up the state' "$log" || fail "forgot its history"
  until_true "a daemon that hangs" hang
  until_true "another daemon after one that hung" differs "$hung"
  [ "$(value NRestarts)" -ge 1 ] || fail "was not restarted"

  echo 'NASD_OPTIONS="--nonsense"' >"$etc/default/nasd"
  if systemctl restart nasd 2>/dev/null; then fail "started with a wrong option"; fi
  is "its state" "$(value ActiveState)" failed
  touch "$work/passed"
}

case $1 in
  prepare) prepare ;;
  check)
    trap 'systemctl exit' EXIT
    check
    ;;
esac
