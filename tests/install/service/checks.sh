# SPDX-License-Identifier: MIT
# shellcheck shell=sh disable=SC2154  # boot.sh sets prefix, etc, work
# What holds for the service under any init, with busybox's commands, lighttpd and setpriv.
set -eu

config=$etc/nasd/nas_conf_db.xml
log=/var/log/nasd/nasd.log

fail() { echo "FAILED: $*"; exit 1; }
is() { [ "$2" = "$3" ] || fail "$1: '$2', not '$3'"; }
until_true() {  # <what> <command...>: tries for a minute
  what=$1
  tries=600
  shift
  until "$@"; do
    [ $((tries -= 1)) -gt 0 ] || fail "never seen: $what"
    sleep 0.1
  done
}
ask() { "$prefix/bin/nasctl" "$@"; }
get() { busybox wget -q -O - "$@"; }
served() { get "$page/" >"$work/page" || ! kill -0 "$server"; }

check_running() {  # <process>
  is "its user" "$(sed -n 's/^Uid:[[:blank:]]*\([0-9]*\).*/\1/p' "/proc/$1/status")" "$(id -u nasd)"
  for folder in /run/nasd /var/lib/nasd /var/log/nasd; do
    is "$folder" "$(stat -c '%U:%G %a' $folder)" "nasd:nasd 750"
  done
  is "$config" "$(stat -c '%U:%G %a' "$config")" "root:nasd 640"
  ask status | grep -q '^nas.home.arpa$' || fail "nasctl"
  [ -s /run/nasd/state.plist ] || fail "no state"
  grep -q 'started with cycles of 100 ms' $log || fail "its options"
  if setpriv --reuid=nobody --regid=nogroup --clear-groups \
    cat /run/nasd/state.plist 2>/dev/null; then
    fail "anybody may read the state"
  fi
}

# The web server, as a user of its own, shows the page and passes on what is changed there.
check_page() {
  lighttpd -D -f "$work/lighttpd.conf" &
  server=$!
  page=http://127.0.0.1:8080/nasd
  until_true "the page" served 2>/dev/null
  grep -q '<script src="status.js"' "$work/page" || fail "the page"
  get $page/cgi-bin/status.cgi >"$work/state" || fail "the back end"
  grep -q "'text' : 'started with cycles of 100 ms'" "$work/state" || fail "the log on the page"
  token=$(sed -n "s/.*'token' : '\([^']*\)'.*/\1/p" "$work/state")
  get --header 'Content-Type: text/plain' --post-data "$token" $page/cgi-bin/status.cgi |
    grep -q 'The daemon has taken note' || fail "acknowledging"
  ask warnings | grep -q '(acknowledged)$' || fail "no acknowledgement"
  is "the first event" "$(get "$page/cgi-bin/status.cgi?events" | head -c 6)" "data: "
  kill $server
}

warns() { ask warnings | grep -q 'The new configuration is not in use'; }

check_reload() {  # <command...>
  cp "$config" "$work/config"
  echo '<nas_conf_db>' >"$config"
  if "$@" >"$work/reload" 2>&1; then fail "took a broken configuration"; fi
  until_true "a warning" warns
  cat "$work/config" >"$config"
  "$@" || fail "does not take a good configuration"
}
