#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Checks that docs/kept.md has each `Kept:` of the code and names tests that exist.

    check_kept.py <source folder>
"""

import collections
import pathlib
import re
import sys


def main(root):
    root = pathlib.Path(root)
    marks = collections.Counter()
    for file in sorted([*root.glob("util/*.*"), *root.glob("ticpp/*.*")]):
        count = file.read_text(encoding="utf-8").count("Kept:")
        if count:
            marks[str(file.relative_to(root))] = count
    tests = set()
    for file in root.glob("tests/*/*_test.cc"):
        found = re.findall(r"^TEST\w*\((\w+),\s*(\w+)\)", file.read_text(encoding="utf-8"), re.M)
        tests.update(f"{suite}.{name}" for suite, name in found)

    rows, faults = collections.Counter(), []
    for line in (root / "docs/kept.md").read_text(encoding="utf-8").splitlines():
        if not line.startswith("| `"):
            continue
        where, _, why, named = line.strip("| ").split(" | ")
        rows.update(re.findall(r"`((?:util|ticpp)/[^`]+)`", where))
        named = re.findall(r"`([^`]+)`", named)
        if not (why.strip() and named):
            faults.append(f"reason or test is missing: {line}")
        faults += [f"no such test: {name}" for name in named if name not in tests]
    for file in sorted(marks.keys() | rows.keys()):
        if marks[file] != rows[file]:
            faults.append(f"{file}: {marks[file]} in the code, {rows[file]} in docs/kept.md")
    if not marks:
        faults.append(f"nothing is marked below {root}")
    for fault in faults:
        sys.stderr.write(f"{fault}\n")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
