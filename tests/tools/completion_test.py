#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Presses the tabulator in a real shell.

    completion_test.py bash|zsh <completion> <folder of the tools>
"""

import os
import pty
import re
import select
import shutil
import sys
import tempfile

ROWS = [
    # what is typed, what it becomes
    ("nas-plist res", "nas-plist restore"),
    ("nas-plist set --vers", "nas-plist set --version"),
    ("nas-plist set file.plist a int", "nas-plist set file.plist a integer"),
    ("nas-plist set file.plist a dict b bool", "nas-plist set file.plist a dict b boolean"),
    ("nas-plist set file.plist a boolean tr", "nas-plist set file.plist a boolean true"),
    ("nas-plist set -- file.plist a integer 5 b re",
     "nas-plist set -- file.plist a integer 5 b real"),
    ("nas-plist show a\\ fi", "nas-plist show a\\ file.plist"),
    ("nas-plist set a\\ fi", "nas-plist set a\\ file.plist"),
    ("nas-plist show --he", "nas-plist show --help"),
    ("nas-conf ch", "nas-conf check"),
    ("nas-conf show --pass", "nas-conf show --password"),
    ("nas-conf check --str", "nas-conf check --strict"),
    ("nas-log --exc", "nas-log --exclude"),
    ("nas-log a\\ fi", "nas-log a\\ file.plist"),
]

COMPLETE, BEGIN, END = "\t", "\x01", "\x05"


def start(shell, completion, tools, folder):
    """An interactive shell in the folder that has read the completion, and its terminal."""
    pid, terminal = pty.fork()
    if pid == 0:
        os.chdir(folder)
        environment = {"PATH": f"{tools}:/usr/bin:/bin", "TERM": "dumb", "HOME": folder,
                       "LC_ALL": "C", "PS1": "", "INPUTRC": "/dev/null"}
        options = {"bash": ["--norc", "--noprofile"], "zsh": ["-f"]}[shell]
        os.execvpe(shell, [shell, *options, "-i"], environment)
    setup = {
        "bash": f". '{completion}'",
        "zsh": f"bindkey -e; fpath=('{folder}' $fpath); autoload -Uz compinit; compinit -u -D",
    }[shell]
    os.write(terminal, f"stty -echo cols 500; {setup}\n".encode())
    return pid, terminal


def completed(terminal, line):
    """The line as it stands after the tabulator: printed, in place of being run."""
    os.write(terminal, f"{line}{COMPLETE}{BEGIN}printf '<%s>\\n' '{END}'\n".encode())
    output = ""
    while not (found := re.search(r"^\r?<(.*)>\r?$", output, re.MULTILINE)):
        if not select.select([terminal], [], [], 20)[0]:
            return f"nothing: {output}"
        output += os.read(terminal, 65536).decode(errors="replace")
    return found[1].rstrip()


def main(shell, completion, tools):
    faults = 0
    with tempfile.TemporaryDirectory() as folder:
        shutil.copy(completion, os.path.join(folder, "_nasutil"))  # as it is installed for zsh
        with open(os.path.join(folder, "a file.plist"), "w", encoding="utf-8"):
            pass
        pid, terminal = start(shell, os.path.abspath(completion), os.path.abspath(tools), folder)
        for typed, expected in ROWS:
            line = completed(terminal, typed)
            if line != expected:
                faults += 1
                sys.stderr.write(f"{typed!r} became {line!r}, not {expected!r}\n")
        os.write(terminal, b"exit\n")
        os.waitpid(pid, 0)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
