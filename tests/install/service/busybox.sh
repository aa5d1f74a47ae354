#!/bin/sh
# SPDX-License-Identifier: MIT
# shellcheck disable=SC2154  # boot.sh sets prefix, etc, work
# The service under busybox's init, which has busybox's commands and no others but the checks' own.
# shellcheck source=tests/install/service/checks.sh
. "$(dirname "$0")/checks.sh"
script=$etc/init.d/nasd

prepare() {
  mkdir "$work/bin"
  cp "$(command -v busybox)" "$(command -v lighttpd)" "$(command -v setpriv)" "$work/bin"
  "$work/bin/busybox" --install -s "$work/bin" 2>/dev/null  # but for what is there
  echo 'nasd:x:990:990::/:/bin/false' >>/etc/passwd
  echo 'nasd:x:990:www-data' >>/etc/group
  cat >/etc/inittab <<END
::sysinit:$script start
::wait:$0 check
::respawn:$script run
::once:$0 check_run
::shutdown:$script stop
::shutdown:$0 check_end
END
  echo "busybox init" >"$work/init"
  for folder in /bin /sbin /usr/bin /usr/sbin; do mount --bind "$work/bin" $folder; done
}

running() { cat /run/nasd.pid; }
answers() { ask status >"$work/status" 2>&1; }
another() { answers && [ "$(running)" != "$1" ]; }
says() {  # <status> <text>
  said=0
  "$script" status >"$work/status" || said=$?
  [ "$said $(cat "$work/status")" = "$1 nasd: $2" ]
}
status() { says "$@" || fail "status: $said $(cat "$work/status"), not $1 $2"; }

check() {
  status 0 "running, process $(running)"
  check_running "$(running)"
  check_page
  check_reload "$script" reload
  grep -q 'the old configuration stays: ' "$work/reload" || fail "no reason"

  first=$(running)
  "$script" start
  is "started twice" "$(running)" "$first"
  "$script" restart
  [ "$(running)" != "$first" ] || fail "was not restarted"
  grep -q 'taking up the state' "$log" || fail "forgot its history"

  kill -KILL "$(running)"
  until_true "its death" says 1 "has died"
  "$script" start
  "$script" stop
  status 3 "not running"
  if "$script" reload 2>/dev/null; then fail "reloaded nothing"; fi

  echo '<nas_conf_db>' >"$config"
  if "$script" start 2>"$work/start"; then fail "started with a broken configuration"; fi
  grep -q 'nasd: has ended; the system log' "$work/start" || fail "no hint"
  cat "$work/config" >"$config"
  "$script" start
  if "$script" nonsense 2>/dev/null; then fail "took nonsense"; fi
  "$script" stop
  touch "$work/checked"
}

check_run() {
  until_true "the daemon that init starts" answers
  first=$(running)
  kill -KILL "$first"
  until_true "another daemon after one that died" another "$first"
  touch "$work/run"
}

check_end() {
  status 3 "not running"
  if [ -e "$work/checked" ] && [ -e "$work/run" ]; then touch "$work/passed"; fi
}

case $1 in
  prepare | check | check_end) $1 ;;
  check_run)
    trap 'kill -USR2 1' EXIT  # ends with the namespace
    check_run
    ;;
esac
