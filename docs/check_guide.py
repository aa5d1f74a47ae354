#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Checks a page of the guide against its program.

    check_guide.py <page>.md <source>[,<source>...] <program> [argument...]

The page's blocks "cpp", "sh" or "ini", by the kind of the source, are the source, but for blank lines between them. Of
several sources of a kind the first stands there in full, the others in excerpts. The block "text" is what the program
prints, the block "stderr", if any, what it writes to standard error. The program runs in an empty folder, in UTC and the
C locale, and must end with status 0. A date with a time matches every other one.
"""

import os
import re
import subprocess
import sys
import tempfile


KINDS = {".cc": "cpp", ".sh": "sh", ".in": "ini"}


def blocks(page, kind):
    return re.findall(rf"^```{kind}\n(.*?)^```$", page, re.MULTILINE | re.DOTALL)


def read(source_file):
    with open(source_file, encoding="utf-8") as f:
        return f.read().split("\n", 1)[1]  # without the licence line


def closed_up(text):
    return re.sub(r"\n+", "\n", text).lstrip("\n")


def undated(text):
    return re.sub(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d", "<a date>", text)


def main(page_file, source_files, *command):
    with open(page_file, encoding="utf-8") as f:
        page = f.read()
    sources = {}
    for source_file in source_files.split(","):
        kind = KINDS[os.path.splitext(source_file)[1]]
        sources.setdefault(kind, []).append(read(source_file))
    environment = dict(os.environ, TZ="UTC", LC_ALL="C")
    with tempfile.TemporaryDirectory() as folder:
        ran = subprocess.run(command, cwd=folder, env=environment, capture_output=True, text=True)

    expected = [(kind, "".join(blocks(page, kind)), actual)
                for kind, actual in (("text", ran.stdout), ("stderr", ran.stderr))]
    for kind, (first, *others) in sources.items():
        in_full = [block for block in blocks(page, kind) if not any(block in each for each in others)]
        expected.append((kind, closed_up("".join(in_full)), closed_up(first)))
    faults = 0
    if ran.returncode != 0:
        faults += 1
        sys.stderr.write(f"{command}: status {ran.returncode}\n")
    for kind, on_page, actual in expected:
        if undated(on_page) != undated(actual):
            faults += 1
            sys.stderr.write(f"{page_file}: its block {kind} should be\n{actual}\n")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
