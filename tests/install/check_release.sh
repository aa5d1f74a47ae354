#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Lets scripts/release make the source twice, and tries what it refuses: changes that nobody
# committed, texts that name another version, packages without a secret, bytes that differ. In a
# repository of its own.
#
#   check_release.sh <source folder> <version>
set -euo pipefail
source=$1
version=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $1"; cat "$work/said"; exit 1; }

unset "${!GIT_@}"
export GIT_CONFIG_GLOBAL=/dev/null
mkdir "$work/nasutil"
cd "$work/nasutil"
tar -C "$source" -c --exclude './build*' --exclude ./.git . | tar -x
git init --quiet .
commit() {
  git add -A
  git -c user.name=nobody -c user.email=nobody@nasutil.example commit -qm "$1"
}
commit "everything"

release() { scripts/release "$@" >"$work/said" 2>&1; }
# refuses <reason> [argument...]: as it stands; afterwards all is as it was committed.
refuses() {
  if release "${@:2}"; then fail "a release although: $1"; fi
  grep -qF -- "$1" "$work/said" || fail "no word of: $1"
  git reset -q --hard HEAD~"$(($(git rev-list --count HEAD) - 1))"
  git clean -qfd
}

release source || fail "no source"
grep -q "both times the same bytes" "$work/said" || fail "not compared"
(cd build/dist && sha256sum --quiet -c SHA256SUMS) || fail "checksums"
tar -tf "build/dist/nasutil-$version.tar.gz" | sed 's|^[^/]*/||; /\/$/d; /^$/d' |
  sort >"$work/packed"
git ls-files | sort >"$work/committed"
diff "$work/committed" "$work/packed" || fail "the source is not what is committed"

echo >>README.md
refuses "commit these changes, or take them back:"
echo >forgotten.cc
refuses "forgotten.cc"
sed -i "1s/($version)/(0.9.9)/" debian/changelog && commit "another version"
refuses "debian/changelog says version '0.9.9', CMakeLists.txt '$version'" source
sed -i "s/^## $version/## 0.9.9/" CHANGELOG.md && commit "another version"
refuses "CHANGELOG.md says version '0.9.9', CMakeLists.txt '$version'" source
sed -i '/^### What you must do/d' CHANGELOG.md && commit "nothing to do"
refuses "CHANGELOG.md has no '### What you must do' for $version" source
NASUTIL_MD5_KEY='' refuses "NASUTIL_MD5_KEY is not set"

mkdir "$work/bin"
cat >"$work/bin/gzip" <<'END'
#!/bin/sh
case $PWD in */first) set -- "$@" -1 ;; esac
exec /usr/bin/gzip "$@"
END
chmod +x "$work/bin/gzip"
PATH=$work/bin:$PATH refuses "not the same bytes" source
PATH=$work/bin:$PATH refuses "nasutil-$version.tar.gz differs" source

rm -rf .git
if release source; then fail "a release of no commit"; fi
grep -qF "this folder is not a Git checkout" "$work/said" || fail "no word of Git"
echo "the source of $version is the same twice"
