# SPDX-License-Identifier: MIT
"""Programs that a test starts, and what it asks them."""
import contextlib
import subprocess
import time
import urllib.error
import urllib.request

DEADLINE = 60  # seconds; far above what anything takes


def until(condition, what):
    """The first true value of `condition()`; fails where it stays false."""
    end = time.monotonic() + DEADLINE
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError(f"never seen: {what}")
        time.sleep(0.05)


def ask(url, method="GET", body=None, headers=None):
    """(status, text) of a request that goes past every proxy."""
    request = urllib.request.Request(url, body, headers or {}, method=method)
    opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
    try:
        with opener.open(request, timeout=DEADLINE) as answer:
            return answer.status, answer.read().decode()
    except urllib.error.HTTPError as refusal:
        return refusal.code, refusal.read().decode()


class Programs(contextlib.ExitStack):
    """Programs that end with the block, in the reverse order of their start."""

    def start(self, command, **options):
        program = subprocess.Popen(command, stdin=subprocess.DEVNULL, **options)
        self.callback(self.stop, program)
        return program

    @staticmethod
    def stop(program):
        program.terminate()
        try:
            return program.wait(DEADLINE)
        finally:
            program.kill()
            program.wait()
