# SPDX-License-Identifier: MIT
"""Runs the template's daemon as a service manager does, and looks at its answers, end and log.

    as_a_service.py <program> <folder>
"""

import os
import signal
import socket
import subprocess
import sys

program, folder = sys.argv[1:]
command = [program, "--in", folder]
manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
manager.bind(f"{folder}/notify")
manager.settimeout(20)


def ask(*request):
    ran = subprocess.run([*command, *request], capture_output=True, text=True, timeout=20)
    return ran.returncode, ran.stdout, ran.stderr


def expect(expected, actual):
    if actual != expected:
        sys.exit(f"FAILED: {actual!r} instead of {expected!r}")


name = os.path.basename(program)
nobody = ask("status")
expect((1, ""), nobody[:2])
expect(f"{name}: {folder}/control: nobody answers: No such file or directory\n", nobody[2])

environment = dict(os.environ, NOTIFY_SOCKET=f"{folder}/notify", WATCHDOG_USEC="2000000")
with subprocess.Popen(command, env=environment, stderr=subprocess.PIPE, text=True) as daemon:
    try:
        expect(b"READY=1", manager.recv(100))
        expect(b"WATCHDOG=1", manager.recv(100))
        expect(b"WATCHDOG=1", manager.recv(100))
        expect((0, "greets with: Hello\n", ""), ask("status"))
        expect((0, "from now on: Good morning\n", ""), ask("greet", "Good", "morning"))
        expect((1, "", f"{name}: status, or greet TEXT\n"), ask("stop"))
        second = ask()
        expect((1, f"{name}: {folder} is in use by process {daemon.pid}\n"), (second[0], second[2]))
        daemon.send_signal(signal.SIGTERM)
        expect((0, ""), (daemon.wait(20), daemon.stderr.read()))
    finally:
        daemon.kill()

with open(f"{folder}/{name}.log") as log:
    entries = [line for line in log.read().splitlines() if line.startswith("INFO: ")]
expect(["INFO: started", "INFO: stopped"], entries)
with open(f"{folder}/settings.plist") as settings:
    expect(1, settings.read().count("<string>Good morning</string>"))
