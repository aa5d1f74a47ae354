#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Presses the tabulator in a real shell: completion_test.py <completion> <folder of the tools>.

Each line is typed into an interactive bash, completed, and printed by echo in place of being run.
"""

import os
import pty
import re
import sys
import tempfile

ROWS = [
    # what is typed, what it becomes
    ("nas-plist res", "nas-plist restore "),
    ("nas-plist set --fo", "nas-plist set --force "),
    ("nas-plist set file.plist a int", "nas-plist set file.plist a integer "),
    ("nas-plist set file.plist a dict b bool", "nas-plist set file.plist a dict b boolean "),
    ("nas-plist set file.plist a boolean tr", "nas-plist set file.plist a boolean true "),
    ("nas-plist set --force file.plist a integer 5 b re",
     "nas-plist set --force file.plist a integer 5 b real "),
    ("nas-plist show a\\ fi", "nas-plist show a\\ file.plist "),
    ("nas-plist set a\\ fi", "nas-plist set a\\ file.plist "),
    ("nas-plist show --he", "nas-plist show --help "),
    ("nas-conf ch", "nas-conf check "),
    ("nas-conf show --pass", "nas-conf show --password "),
    ("nas-log --cat", "nas-log --category "),
    ("nas-log a\\ fi", "nas-log a\\ file.plist "),
]

COMPLETE, BEGIN, END = "\t", "\x01", "\x05"


def type_into_bash(completion, tools, lines):
    """What an interactive bash in an empty folder prints for the lines."""
    with tempfile.TemporaryDirectory() as folder:
        with open(os.path.join(folder, "a file.plist"), "w", encoding="utf-8"):
            pass
        pid, terminal = pty.fork()
        if pid == 0:
            os.chdir(folder)
            environment = {"PATH": f"{tools}:/usr/bin:/bin", "TERM": "dumb", "HOME": folder,
                           "LC_ALL": "C", "PS1": "", "COLUMNS": "500", "INPUTRC": "/dev/null"}
            os.execve("/bin/bash", ["bash", "--norc", "--noprofile", "-i"], environment)
        output = b""
        text = f"stty -echo cols 500; bind 'set bell-style none'; . '{completion}'\n"
        text += "".join(f"{line}{COMPLETE}{BEGIN}printf '<%s>\\n' '{END}'\n" for line in lines)
        os.write(terminal, (text + "exit\n").encode())
        try:
            while part := os.read(terminal, 65536):
                output += part
        except OSError:  # the shell has ended
            pass
        os.waitpid(pid, 0)
    return output.decode(errors="replace")


def main(completion, tools):
    output = type_into_bash(os.path.abspath(completion), os.path.abspath(tools),
                            [typed for typed, _ in ROWS])
    got = re.findall(r"^<(.*)>\r?$", output, re.MULTILINE)
    faults = 0
    for (typed, expected), line in zip(ROWS, got):
        if line != expected:
            faults += 1
            sys.stderr.write(f"{typed!r} became {line!r}, not {expected!r}\n")
    if len(got) != len(ROWS):
        faults += 1
        sys.stderr.write(f"{len(got)} lines of {len(ROWS)}:\n{output}\n")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
