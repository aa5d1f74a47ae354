#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Checks a page of the guide against its program.

    check_guide.py <page>.md <source> <program> [argument...]

The page's block "cpp", or "sh" for a script, is the source, its block "text" what the program prints, its block "stderr",
if any, what it writes to standard error. The program runs in an empty folder, in UTC and the C
locale, and must end with status 0. A date with a time matches every other one.
"""

import os
import re
import subprocess
import sys
import tempfile


def blocks(page, kind):
    return "".join(re.findall(rf"^```{kind}\n(.*?)^```$", page, re.MULTILINE | re.DOTALL))


def undated(text):
    return re.sub(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d", "<a date>", text)


def main(page_file, source_file, *command):
    with open(page_file, encoding="utf-8") as f:
        page = f.read()
    with open(source_file, encoding="utf-8") as f:
        source = f.read().split("\n", 1)[1]  # without the licence line
    environment = dict(os.environ, TZ="UTC", LC_ALL="C")
    with tempfile.TemporaryDirectory() as folder:
        ran = subprocess.run(command, cwd=folder, env=environment, capture_output=True, text=True)

    faults = 0
    if ran.returncode != 0:
        faults += 1
        sys.stderr.write(f"{command}: status {ran.returncode}\n")
    language = "sh" if source_file.endswith(".sh") else "cpp"
    for kind, actual in (language, source), ("text", ran.stdout), ("stderr", ran.stderr):
        if undated(blocks(page, kind)) != undated(actual):
            faults += 1
            sys.stderr.write(f"{page_file}: its block {kind} should be\n{actual}\n")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
