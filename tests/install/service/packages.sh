#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Process 1 of its own namespaces: lays a layer in memory over this machine, installs packages
# there, boots it by systemd, runs a test of the installed packages and purges them.
#
#   packages.sh <folder of packages> <test> <work folder>
#
# Ends with status 77 and says SKIPPED where no layer can be laid.
set -euo pipefail
[ $$ = 1 ] || { echo "packages.sh is for namespaces of its own"; exit 1; }
packages=$1
work=$3

# Nothing that is mounted or written from here on is seen outside.
mount --make-rprivate /
mkdir "$work"/{layer,root,mnt}
mount -t tmpfs tmpfs "$work/layer"
mkdir "$work"/layer/{upper,work}
mount -t overlay overlay "$work/root" \
  -o "lowerdir=/,upperdir=$work/layer/upper,workdir=$work/layer/work" ||
  { echo "SKIPPED, the packages were not installed: nothing can be laid over /"; exit 77; }
cp "$packages"/{libnasutil1,nasutil-appliance}_*.deb "$work/mnt"
cp "$2" "$work/mnt/test"
cd "$work/root"
mount -t proc proc proc
mount -t sysfs -o ro sysfs sys
mount --rbind /dev dev
mount -t tmpfs tmpfs run
mount --bind "$work" mnt
ip link set lo up

# Of the services of this machine, none; of the packages', each that they enable.
for folder in etc/systemd/system/*.wants lib/systemd/system/{sysinit,multi-user}.target.wants; do
  mount -t tmpfs tmpfs "$folder"
done
printf '#!/bin/sh\nexit 101\n' >usr/sbin/policy-rc.d  # systemd is not there yet
chmod +x usr/sbin/policy-rc.d
chroot . sh -c 'dpkg --no-triggers --install /mnt/mnt/*.deb'
rm usr/sbin/policy-rc.d

cat >mnt/check <<'END'
#!/bin/sh
trap 'systemctl exit' EXIT
set -eu
sh -x /mnt/mnt/test
dpkg --no-triggers --purge nasutil-appliance libnasutil1
left=$(find /etc /lib /run /usr /var -xdev -name '*nasd*' -not -path '*/systemd/units/*')
if [ -n "$left" ]; then echo "FAILED: purging leaves $left"; exit 1; fi
if systemctl is-active nasd; then echo "FAILED: still running"; exit 1; fi
touch /mnt/passed
END
chmod +x mnt/check
cat >etc/systemd/system/check.service <<'END'
[Unit]
After=multi-user.target
Requires=multi-user.target
[Service]
Type=oneshot
ExecStart=/mnt/check
StandardOutput=append:/mnt/console
StandardError=append:/mnt/console
END
mount -t cgroup2 none sys/fs/cgroup
mkdir old
pivot_root . old
umount -l /old
exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin container=nasutil-test /lib/systemd/systemd \
  --unit=check.service --log-target=console --show-status=no
