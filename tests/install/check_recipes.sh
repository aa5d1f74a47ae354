#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Looks at what the recipes in packaging/ say of this project: its version, its licence, the options
# that they configure it with, and the files of the appliance. Neither Buildroot nor BitBake is run.
#
#   check_recipes.sh <source folder> <version> <build folder> <install prefix> <its configurations>
# shellcheck disable=SC2016  # the recipes' variables stand in single quotes
set -euo pipefail
source=$1
version=$2
build=$3
prefix=$4
etc=$5
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $1"; exit 1; }
buildroot=$source/packaging/buildroot/package/nasutil
yocto=$source/packaging/yocto/recipes-support/nasutil/nasutil_$version.bb

[ -e "$yocto" ] || fail "there is no $yocto"
licence=$(sed -n 's/^LIC_FILES_CHKSUM = "file:\/\/LICENSE;md5=\(.*\)"$/\1/p' "$yocto")
md5sum --quiet --check - <<<"$licence  $source/LICENSE" || fail "another licence"

# nasutil.mk as make reads it, with everything chosen.
cat >"$work/Makefile" <<END
qstrip = \$(subst ",,\$(1))
BR2_PACKAGE_NASUTIL_SITE = "file:///releases"
BR2_PACKAGE_NASUTIL_MD5_KEY = "key-of-the-tests"
BR2_PACKAGE_NASUTIL_TOOLS = y
BR2_PACKAGE_NASUTIL_APPLIANCE = y
include $buildroot/nasutil.mk
%:; @echo '\$(\$@)'
END
says() { make --silent --file "$work/Makefile" "$1"; }
[ "$(says NASUTIL_VERSION)" = "$version" ] || fail "nasutil.mk has version $(says NASUTIL_VERSION)"
[ "$(says NASUTIL_SITE)" = "file:///releases" ] || fail "nasutil.mk has another site"
while read -r option; do
  grep -q "^config $option\$" "$buildroot/Config.in" || fail "Config.in has no $option"
done < <(grep -o 'BR2_PACKAGE_NASUTIL[A-Z0-9_]*' "$buildroot/nasutil.mk" | sort -u)

cmake=$(sed -n 's/^cmake_minimum_required(VERSION \([0-9]*\)\.\([0-9]*\))$/\1_\2/p' \
  "$source/CMakeLists.txt")
grep -q "select BR2_HOST_CMAKE_AT_LEAST_$cmake\$" "$buildroot/Config.in" || fail "Config.in: CMake"

# CMake tells which options the project does not have.
recipe_options=$(sed -n "s/^ *\(-D[^ ]*\) \\\\$/\1/p" "$yocto" | sed "s/='.*'/=key-of-the-tests/")
read -ra options <<<"$(says NASUTIL_CONF_OPTS | tr -d '"') $(tr '\n' ' ' <<<"$recipe_options")"
[ ${#options[@]} = 9 ] || fail "other options than thought: ${options[*]}"
cmake -S "$source" -B "$work/build" -G Ninja "${options[@]}" >"$work/log" 2>&1 ||
  { cat "$work/log"; fail "does not configure"; }
if grep -A 5 'Manually-specified variables were not used' "$work/log"; then
  fail "unknown options"
fi

# Each file of the appliance is packaged, and each path of the package is one.
DESTDIR=$work/root cmake --install "$build" --component appliance >"$work/log" ||
  { cat "$work/log"; exit 1; }
packaged=()
while read -r path; do
  packaged+=("$path")
  [ -e "$work/root$path" ] || fail "the appliance has no $path"
done < <(sed -n '/^FILES:${PN}-appliance = /,/^"/p' "$yocto" | grep -o '${[a-z][^ ]*' |
  sed "s#\${sysconfdir}#$etc#; s#\${systemd_system_unitdir}#$prefix/lib/systemd/system#
       s#\${nonarch_libdir}#$prefix/lib#; s#\${\(s*bin\|libexec\)dir}#$prefix/\1#
       s#\${datadir}#$prefix/share#")
while read -r file; do
  covered=no
  for path in "${packaged[@]}"; do
    case "$file" in "$path" | "$path"/*) covered=yes ;; esac
  done
  [ $covered = yes ] || fail "the recipe does not package $file"
done < <(cd "$work/root" && find . -type f ! -path '*/share/man/*' | sed 's/^\.//')
echo "the recipes fit"
