#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Makes the Debian packages, though not with the development key, looks at what they say and hold,
# and builds a client with what is in them.
#
#   check_packages.sh <build folder> <version> <compiler>
set -euo pipefail
build=$1
version=$2
compiler=$3
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $1"; exit 1; }

# With the development key everybody can forge signatures.
cmake -S "$here/../.." -B "$work/unset" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" -DBUILD_TESTING=OFF \
  -DNASUTIL_BUILD_EXAMPLES=OFF -DNASUTIL_BUILD_TOOLS=OFF >"$work/log" 2>&1
if (cd "$work/unset" && cpack) >"$work/log" 2>&1; then fail "cpack takes the development key"; fi
grep -q 'NASUTIL_MD5_KEY is empty or the development key' "$work/log" || fail "cpack's reason"

# Whatever the key of this build.
(cd "$build" && cpack -D CPACK_PROJECT_CONFIG_FILE= -G DEB -B "$work" >"$work/log" 2>&1) ||
  { cat "$work/log"; exit 1; }

field() { dpkg-deb -f "$work"/"$1"_"$version"_*.deb "$2"; }
holds() { dpkg-deb -c "$work"/"$1"_"$version"_*.deb | grep -E "$2" >/dev/null || fail "$1 has no $2"; }

[[ $(field libnasutil1 Depends) == *libtinyxml* ]] || fail "libnasutil1 does not depend on TinyXML"
[[ $(field libnasutil1 Depends) == *libssl* ]] || fail "libnasutil1 does not depend on libcrypto"
for library in libnasutil libnasutil-service; do
  holds libnasutil1 "/$library\\.so\\.1 -> $library\\.so\\.1\\.[0-9.]+\$"
  holds libnasutil-dev "/$library\\.a\$"
  dpkg-deb -I "$work"/libnasutil1_*.deb shlibs | grep "^$library 1 libnasutil1" >/dev/null || fail shlibs
done
holds libnasutil-dev '/libnasutil\.so -> libnasutil\.so\.1$'
holds libnasutil-dev '/include/nasutil/util/util\.h$'
holds libnasutil-dev '/include/nasutil/ticpp\.h$'
holds libnasutil-dev '/share/nasutil/nas_conf_db\.rng$'
holds libnasutil-dev '/pkgconfig/nasutil\.pc$'
holds libnasutil-dev '/cmake/nasutil/nasutilConfig\.cmake$'
[[ $(field libnasutil-dev Depends) == *"libnasutil1 (= $version)"* ]] || fail "libnasutil-dev Depends"
for tool in nas-log nas-plist nas-conf; do
  holds nasutil-tools "/bin/$tool\$"
  holds nasutil-tools "/man1/$tool\.1\$"
  holds nasutil-tools "/bash-completion/completions/$tool\$"
done
holds nasutil-tools '/zsh/vendor-completions/_nasutil$'
[[ $(field nasutil-tools Depends) == *"libnasutil1"* ]] || fail "nasutil-tools Depends"
soname=$(objdump -p "$build/libnasutil.so" | awk '/SONAME/ {print $2}')
[ "$soname" = libnasutil.so.1 ] || fail "SONAME is $soname"

for package in "$work"/*.deb; do dpkg-deb -x "$package" "$work/root"; done
LD_LIBRARY_PATH=$(dirname "$(find "$work/root" -name libnasutil.a)")
PKG_CONFIG_PATH=$LD_LIBRARY_PATH/pkgconfig
export LD_LIBRARY_PATH PKG_CONFIG_PATH
# shellcheck disable=SC2046
"$compiler" "$here/consumer/main.cc" -o "$work/client" $(pkg-config --cflags --libs nasutil)
"$work/client" 2>/dev/null | grep "consumer works"
for tool in nas-log nas-plist nas-conf; do
  [[ $("$work/root/usr/bin/$tool" --version) == *" $version" ]] || fail "$tool does not run"
done
echo "the packages are as they should be"
