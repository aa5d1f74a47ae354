#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Process 1 of its own namespaces: makes a small system around what check_service.sh has installed
# and becomes its init.
#
#   boot.sh systemd|busybox <install prefix> <its folder of configurations> <work folder>
set -euo pipefail
export manager=$1 prefix=$2 etc=$3 work=$4
here=$(cd "$(dirname "$0")" && pwd)
[ $$ = 1 ] || { echo "boot.sh is for namespaces of its own"; exit 1; }

# Nothing that is mounted or written from here on is seen outside.
mount --make-rprivate /
mount -t proc proc /proc
mount -t sysfs -o ro sysfs /sys
mkdir "$work/etc"
for name in passwd group shadow gshadow nsswitch.conf ld.so.cache localtime; do
  if [ -e /etc/$name ]; then cp -a /etc/$name "$work/etc"; fi
done
mount --bind "$work/etc" /etc
for folder in /run /var/lib /var/log; do mount -t tmpfs tmpfs $folder; done
if [ -d "$work/root/etc" ]; then cp -a "$work/root/etc" /; fi
mount --bind "$work/root$prefix" "$prefix"
ip link set lo up
mkdir "$etc/default"
echo 'NASD_OPTIONS="--cycle 100"' >"$etc/default/nasd"
cat >"$work/lighttpd.conf" <<END
server.bind = "127.0.0.1"
server.port = 8080
server.document-root = "/run"
server.username = "www-data"
mimetype.assign = (".html" => "text/html; charset=utf-8")
include "$etc/lighttpd/conf-available/50-nasd.conf"
END

"$here/$manager.sh" prepare
# shellcheck disable=SC2046  # one word an argument
exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin container=nasutil-test prefix="$prefix" etc="$etc" \
  work="$work" $(cat "$work/init")
