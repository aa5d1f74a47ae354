#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Makes the Debian packages, though not without a secret of the deployment's own, looks at what they
# hold and say, and compiles and runs the guide's programs with what is in them.
#
#   check_packages.sh <source folder> <version>
set -euo pipefail
source=$1
version=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $1"; exit 1; }

mkdir "$work/nasutil"
(cd "$source" && tar -c --exclude ./build --exclude ./.git .) | tar -x -C "$work/nasutil"
build() { (cd "$work/nasutil" && dpkg-buildpackage -us -uc -b) >"$work/log" 2>&1; }

export NASUTIL_MD5_KEY=
if build; then fail "packages with the development key"; fi
grep -q 'NASUTIL_MD5_KEY is not set' "$work/log" || fail "no reason for the refusal"
export NASUTIL_MD5_KEY=key-of-the-tests
# Nobody debugs these or waits for them: that takes half of the time.
export DEB_CXXFLAGS_STRIP=-g DEB_CXXFLAGS_APPEND=-O1 DEB_BUILD_OPTIONS=noautodbgsym
build || { cat "$work/log"; exit 1; }

lintian --fail-on error,warning "$work"/*.changes || fail "lintian"

field() { dpkg-deb -f "$work"/"$1"_"$version"_*.deb "$2"; }
holds() {
  local names
  names=$(dpkg-deb -c "$work"/"$1"_"$version"_*.deb)
  grep -qE "$2" <<<"$names" || fail "$1 has no $2"
}

shlibs=$(dpkg-deb -I "$work"/libnasutil1_*.deb shlibs)
for library in libnasutil libnasutil-service; do
  holds libnasutil1 "/$library\\.so\\.1 -> $library\\.so\\.1\\.[0-9.]+\$"
  holds libnasutil-dev "/$library\\.a\$"
  holds libnasutil-dev "/$library\\.so -> $library\\.so\\.1\$"
  holds libnasutil-dev "/pkgconfig/${library#lib}\\.pc\$"
  grep -q "^$library 1 libnasutil1" <<<"$shlibs" || fail "shlibs of $library"
done
holds libnasutil-dev '/include/nasutil/util/util\.h$'
holds libnasutil-dev '/include/nasutil/service/json\.h$'
holds libnasutil-dev '/include/nasutil/ticpp\.h$'
holds libnasutil-dev '/share/nasutil/nas_conf_db\.rng$'
holds libnasutil-dev '/cmake/nasutil/nasutilConfig\.cmake$'
holds libnasutil-dev '/bin/nas-new-daemon$'
holds libnasutil-dev '/share/nasutil/template/debian/rules$'
holds libnasutil1 '/doc/libnasutil1/changelog'
holds nasutil-doc "/changes/CHANGELOG\.md"
holds nasutil-doc '/guide/logging\.md$'
holds nasutil-doc '/examples/appliance/nasd\.cc'
for tool in nas-log nas-plist nas-conf; do
  holds nasutil-tools "/bin/$tool\$"
  holds nasutil-tools "/man1/$tool\.1\.gz\$"
done
for file in /etc/nasd/nas_conf_db.xml /etc/init.d/nasd /etc/lighttpd/conf-available/50-nasd.conf \
  /lib/systemd/system/nasd.service /usr/lib/sysusers.d/nasd.conf /usr/lib/tmpfiles.d/nasd.conf \
  /usr/sbin/nasd /usr/bin/nasctl /usr/libexec/nasd/status.cgi /usr/share/nasd/www/index.html \
  /man8/nasd.8.gz; do
  holds nasutil-appliance "$file\$"
done
[[ $(field nasutil-appliance Depends) == *libnasutil1* ]] || fail "nasutil-appliance Depends"
depends=$(field libnasutil1 Depends)
[[ $depends == *libtinyxml* && $depends == *libssl* ]] || fail "libnasutil1 depends on $depends"
[[ $(field libnasutil-dev Depends) == *"libnasutil1 (= $version)"* ]] || fail "libnasutil-dev Depends"
[[ $(field nasutil-tools Depends) == *libnasutil1* ]] || fail "nasutil-tools Depends"

for package in "$work"/*.deb; do dpkg-deb -x "$package" "$work/root"; done
LD_LIBRARY_PATH=$(dirname "$(find "$work/root" -name libnasutil.a)")
PKG_CONFIG_PATH=$LD_LIBRARY_PATH/pkgconfig
PATH=$work/root/usr/bin:$PATH
mkdir "$work/guide"
AUTOPKGTEST_TMP=$work/guide
export LD_LIBRARY_PATH PKG_CONFIG_PATH PATH AUTOPKGTEST_TMP
"$source/debian/tests/guide" "$work/root/usr/share/doc/nasutil-doc/guide"

# The service, as its package sets it up on a machine.
unset LD_LIBRARY_PATH
service=$(cd "$(dirname "$0")" && pwd)/service
mkdir "$work/service"
status=0
"$service/namespaces.sh" systemd "$work/service" "$service/packages.sh" "$work" \
  "$source/debian/tests/appliance" "$work/service" || status=$?
[ $status = 77 ] || [ -e "$work/service/passed" ] || fail "the installed service ended with $status"
echo "the packages are as they should be"
