# SPDX-License-Identifier: MIT
# For other scripts: a folder for their work, which goes with them, and commands that say nothing
# unless they fail.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
quietly() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }; }

# configure <option>...: the libraries alone, of $source by $compiler, into $work/build.
configure() {
  quietly cmake -S "$source" -B "$work/build" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
    -DBUILD_TESTING=OFF -DNASUTIL_BUILD_EXAMPLES=OFF -DNASUTIL_BUILD_TOOLS=OFF "$@"
}
