#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks docs/rsyslog/*.conf: that the page shows them, that rsyslogd takes them, and that an entry
# of a daemon goes all the way from a socket into the collector's file.
#
#   check_rsyslog.sh <source folder>
set -euo pipefail
PATH=$PATH:/usr/sbin
docs=$1/docs
work=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null || true; wait; rm -rf "$work"' EXIT

for name in appliance collector; do
  python3 - "$docs/rsyslog/$name.conf" "$docs/central-logging.md" <<'EOF'
import sys
shown = open(sys.argv[1]).read().split("\n", 1)[1]
if f"```rsyslog\n{shown}```\n" not in open(sys.argv[2]).read():
    sys.exit(f"{sys.argv[2]} does not show {sys.argv[1]}")
EOF
done

# As they are, but for the places; the ruleset of Debian's main file is not needed.
cat >"$work/collector.conf" <<EOF
global(workDirectory="$work")
$(sed -e "s|/var/log/appliances|$work/logs|" \
  -e "s|port=\"10514\"|port=\"0\" listenPortFileName=\"$work/port\"|" "$docs/rsyslog/collector.conf")
EOF
start() {
  rsyslogd -N1 -f "$work/$1.conf" 2>"$work/said" || { cat "$work/said" >&2; return 1; }
  if grep -iE 'error|warning' "$work/said"; then return 1; fi
  rsyslogd -n -i "$work/$1.pid" -f "$work/$1.conf" &
}
wait_for() {
  for _ in $(seq 300); do if "$@" 2>/dev/null; then return; fi; sleep 0.1; done
  echo "timed out: $*" >&2
  return 1
}
start collector
wait_for test -s "$work/port"

cat >"$work/appliance.conf" <<EOF
global(workDirectory="$work" localHostname="nas1")
module(load="imuxsock" sysSock.use="off")
input(type="imuxsock" socket="$work/socket")
$(sed -e 's|loghost"|127.0.0.1"|' -e "s|10514|$(cat "$work/port")|" "$docs/rsyslog/appliance.conf")
EOF
start appliance
wait_for test -S "$work/socket"
logger -u "$work/socket" -t nasd -- $'2007-03-01T14:05:09 int main()\nINFO: '
logger -u "$work/socket" -t nasd -- 'ready, 3 interfaces'
logger -u "$work/socket" -t cron -- 'not for the collector'
log=$work/logs/nas1/nasd.log
wait_for grep -q 'ready, 3 interfaces' "$log"
grep -q '2007-03-01T14:05:09 int main()' "$log"
cat "$log"
[ "$(ls "$work/logs/nas1")" = nasd.log ]
