#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Attacks the example appliance, on the loopback interface only, for a limited time.

    attack.py <source folder> <folder of nasd, nasctl and status.cgi> <seconds> [seed]

Each attack must leave an appliance behind that answers, and has changed nothing that it had no leave
to change. Says how often each was made; the seed repeats a run, as far as time allows.
"""
import concurrent.futures
import contextlib
import os
import random
import re
import resource
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True
from programs import Programs, ask, until  # noqa: E402


class Appliance:
    def __init__(self, programs, source, build, folder):
        self.programs, self.source, self.build, self.folder = programs, source, build, folder
        self.config = self.path("nas_conf_db.xml")
        shutil.copy(f"{source}/examples/appliance/nas_conf_db.xml", self.config)
        with open(self.config, "rb") as file:
            self.good = file.read()
        self.start()
        until(self.serve, "a web server")

    def path(self, name):
        return os.path.join(self.folder, name)

    def start(self, **options):
        self.nasd = self.programs.start(
            [f"{self.build}/nasd", "--config", self.config, "--state", self.path("state.plist"),
             "--lasting", self.path("lasting.plist"), "--control", self.path("control"),
             "--log", self.path("nasd.log"), "--cycle", "100"],
            stderr=subprocess.DEVNULL, **options)
        until(lambda: self.ctl("status").returncode == 0, "an answer of nasd")

    def serve(self):
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        server = self.programs.start(
            ["lighttpd", "-D", "-f", f"{self.source}/examples/appliance/lighttpd.conf"],
            env={**os.environ, "NASD_PORT": str(self.port), "NASD_CGI": self.build,
                 "NASD_WWW": f"{self.source}/examples/appliance/www",
                 "NASD_STATE": self.path("state.plist"), "NASD_CONTROL": self.path("control"),
                 "NASD_WEB_LOG": self.path("lighttpd.log")}, stderr=subprocess.DEVNULL)
        while server.poll() is None:
            with contextlib.suppress(OSError):
                return self.get("")[0] == 200
            time.sleep(0.05)
        return False

    def ctl(self, *request):
        return subprocess.run([f"{self.build}/nasctl", "--control", self.path("control"), *request],
                              capture_output=True, text=True, check=False)

    def get(self, path="cgi-bin/status.cgi", **headers):
        return ask(f"http://127.0.0.1:{self.port}/{path}", headers=headers)

    def post(self, body, **headers):
        return ask(f"http://127.0.0.1:{self.port}/cgi-bin/status.cgi", "POST", body,
                   {"Content-Type": "text/plain", **headers})

    def acknowledged(self):
        return self.get()[1].count("'acknowledged' : true")

    def token(self):
        return until(lambda: re.search(r"'token' : '([^']+)'", self.get()[1]), "a token")[1]

    def raw(self, data):
        """What the web server answers to bytes that need not be a request."""
        with socket.create_connection(("127.0.0.1", self.port), 5) as connection:
            connection.settimeout(0.3)
            answer = b""
            with contextlib.suppress(OSError):
                connection.sendall(data)
                connection.shutdown(socket.SHUT_WR)
                while part := connection.recv(65536):
                    answer += part
            return answer

    def check(self):
        assert self.nasd.poll() is None, f"nasd has ended with {self.nasd.returncode}"
        status = self.ctl("status")
        assert status.returncode == 0, status.stderr
        code, text = self.get()
        assert code == 200 and "function nasStatus" in text, f"{code} {text[:200]}"
        assert "<script>alert" not in re.sub(r"'(?:\\.|[^'\\])*'", "", text), "markup outside of a string"


# ---- attacks: each takes the appliance and a source of chance --------------------------------

def forged_tokens(box, dice):
    token = box.token().encode()
    for _ in range(20):
        forged = bytearray(token)
        end = forged.rindex(b":") + 20  # the last digit's bits do not all count
        for _ in range(dice.randint(1, 3)):
            forged[dice.randrange(end)] = dice.randrange(33, 127)
        if forged != token:
            code = box.post(bytes(forged))[0]
            assert code in (400, 403), f"{bytes(forged)}: {code}"


def other_sites(box, dice):
    site = dice.choice(["cross-site", "same-site", "x"])
    assert box.get(**{"Sec-Fetch-Site": site})[0] == 403
    name = dice.choice(["attacker.example", "127.0.0.1.attacker.example", f"localhost.:{0}x", "[::2]"])
    code, text = box.get(Host=name)
    assert code in (400, 421) and "acknowledge:" not in text, f"{name}: {code}"


def broken_requests(box, dice):
    lines = [b"GET /cgi-bin/status.cgi HTTP/1.1", b"POST /cgi-bin/status.cgi HTTP/1.1",
             b"Host: localhost", b"Content-Length: 5", b"Content-Length: -1", b"Content-Type: text/plain",
             b"Transfer-Encoding: chunked", b"Transfer-Encoding: identity, chunked", b"X: " + b"y" * 9000,
             b"", b"0", b"5", b"GET / HTTP/1.1", bytes(dice.randrange(256) for _ in range(40))]
    for _ in range(10):
        answer = box.raw(b"\r\n".join(dice.choices(lines, k=dice.randint(1, 12))) + b"\r\n\r\n")
        assert b" 202 " not in answer.split(b"\r\n")[0]


def traversal(box, dice):
    for path in ("/../nasd.log", "/..%2f..%2fetc/passwd", "/cgi-bin/../../etc/passwd", "/cgi-bin/nasd",
                 "/cgi-bin/nasctl", "//etc/passwd", "/%00", "/cgi-bin/status.cgi/../../nasd"):
        answer = box.raw(f"GET {path} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n".encode())
        assert b"root:" not in answer and b"usage: nas" not in answer, path


def searches(box, dice):
    names = ["log", "text", "category", "since", "until", "file", "", "%00"]
    values = ["", "x", "2026-05-01T14:03", "1.2.3", "0.0.0", "../../etc/passwd", "%ff", "%", "9" * 40, "%27",
              "2026-99-99T99:99", "a" * 3000, "1970-01-01T00:00:00", "(((.*)*)*)*$", "<script>alert"]
    for _ in range(10):
        query = "&".join(f"{dice.choice(names)}={dice.choice(values)}" for _ in range(dice.randint(1, 4)))
        code, text = box.get("cgi-bin/status.cgi?" + "log=&" * dice.randint(0, 1) + query)
        assert code in (200, 400) and "root:" not in text, f"{query}: {code} {text[:200]}"


def crowd(box, dice):
    with concurrent.futures.ThreadPoolExecutor(100) as clients:
        codes = list(clients.map(lambda _: box.get()[0], range(dice.randint(100, 300))))
    assert set(codes) == {200}, set(codes)


def streams(box, dice):
    with contextlib.ExitStack() as held:
        answers = []
        for _ in range(dice.randint(5, 12)):
            client = held.enter_context(socket.create_connection(("127.0.0.1", box.port), 5))
            client.sendall(b"GET /cgi-bin/status.cgi?events HTTP/1.1\r\nHost: localhost\r\n\r\n")
            answers.append(client.recv(12))
        assert set(answers) <= {b"HTTP/1.1 200", b"HTTP/1.1 503"}, answers
        assert answers.count(b"HTTP/1.1 200") <= 4, answers
        box.check()


def control_socket(box, dice):
    held = []
    for _ in range(60):
        with contextlib.suppress(OSError):
            client = socket.socket(socket.AF_UNIX)
            client.settimeout(0.2)
            client.connect(box.path("control"))
            client.sendall(bytes(dice.randrange(256) for _ in range(dice.choice((0, 1, 50, 9000)))))
            held.append(client)
    for client in held:
        client.close()
    until(lambda: box.ctl("status").returncode == 0, "an answer after a crowd")


def requests_to_the_daemon(box, dice):
    words = ["status", "acknowledge", "log-level", "SAMPLE", "DEBUG", "on", "off", "x" * 5000, "\x1b[2J",
             "\u202e", "-1", "''", "warnings"]
    box.ctl(*dice.choices(words, k=dice.randint(1, 5)))
    box.ctl("log-level", "DEBUG", "off")


def configurations(box, dice):
    bad = bytearray(box.good)
    for _ in range(dice.randint(1, 30)):
        bad[dice.randrange(len(bad))] = dice.randrange(256)
    with open(box.config, "wb") as file:
        file.write(bad)
    box.ctl("reload")
    time.sleep(0.15)
    box.check()
    with open(box.config, "wb") as file:
        file.write(box.good)
    assert box.ctl("reload").returncode == 0


def kill(box, dice, **options):
    time.sleep(dice.random() / 5)
    box.nasd.send_signal(signal.SIGKILL)
    box.nasd.wait()
    box.start(**options)


def kills(box, dice):
    before = box.acknowledged()
    kill(box, dice)
    until(lambda: box.acknowledged() >= before, "the acknowledgements of before")


def full_disk(box, dice):
    def small_files():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (dice.choice((0, 100, 4096)),) * 2)

    before = box.acknowledged()
    kill(box, dice, preexec_fn=small_files)
    time.sleep(0.3)
    box.check()
    kill(box, dice)
    until(lambda: box.acknowledged() >= before, "the acknowledgements of before")


def strange_files(box, dice):
    name = dice.choice(["state.plist", "nasd.log", "lasting.plist.new", "state.plist.new.tmp"])
    with contextlib.suppress(FileNotFoundError, FileExistsError):
        os.remove(box.path(name))
        dice.choice([os.mkfifo, lambda path: os.symlink("/dev/zero", path)])(box.path(name))
    time.sleep(0.25)
    with contextlib.suppress(FileNotFoundError):
        os.remove(box.path(name))
    time.sleep(0.15)


ATTACKS = [forged_tokens, other_sites, broken_requests, traversal, searches, crowd, streams, control_socket,
           requests_to_the_daemon, configurations, kills, full_disk, strange_files]


def main(source, build, seconds, seed=None):
    seed = int(seed or random.SystemRandom().randrange(1 << 32))
    dice = random.Random(seed)
    print(f"seed {seed}", flush=True)
    made = dict.fromkeys((attack.__name__ for attack in ATTACKS), 0)
    end = time.monotonic() + float(seconds)
    with Programs() as programs, tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as folder:
        box = Appliance(programs, os.path.abspath(source), os.path.abspath(build), folder)
        assert box.post(box.token().encode())[0] == 202
        until(lambda: box.acknowledged() == 1, "one acknowledgement")
        rounds = ATTACKS[:]
        while rounds:
            for attack in rounds:
                attack(box, dice)
                until(lambda: "function nasStatus" in box.get()[1], f"an answer after {attack.__name__}")
                box.check()
                made[attack.__name__] += 1
            if time.monotonic() > end:
                break
            dice.shuffle(rounds)
        # None where a damaged configuration was without its cause: it came back as a new one.
        assert box.acknowledged() <= 1, "acknowledged what nobody has acknowledged"
    for name, count in made.items():
        print(f"{name:24} {count:4} times")


if __name__ == "__main__":
    os.environ["PATH"] += ":/usr/sbin"  # where lighttpd is
    main(*sys.argv[1:])
