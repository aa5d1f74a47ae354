#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The web back end as a web server runs it: a program with its request in the environment.

    status_cgi_test.py <status.cgi> <the key of MD5Authenticator>

The states it reads are written by Python's plistlib, its script is evaluated by node and its
signatures are checked by hashlib.
"""
import base64
import hashlib
import json
import os
import plistlib
import re
import socketserver
import subprocess
import sys
import tempfile
import threading
import time
import unittest

PROGRAM = KEY = None

WARNING = {"id": "1000-1", "text": "Disk sdb is not in this machine",
           "since": "2026-05-01T14:03:59Z", "acknowledged": False}
STATE = {
    "written": "2026-05-01T14:03:59Z", "cycle": 1000, "log": "/nowhere/nasd.log",
    "system": {"hostname": "nas", "load": [0.5, 0.25, 1.0], "memory_free": 123456.0},
    "shares": [{"name": "<script>alert(1)</script>", "users": []},
               {"name": "it's \"x\"\\", "users": []}],
    "warnings": [WARNING],
    "names": ["localhost", "nas", "nas.home.arpa", "192.168.1.20", "fe80:0:0:0:200:5eff:fe00:530a"],
}


class Asked(socketserver.StreamRequestHandler):
    """One request, as the daemon answers it."""

    def handle(self):
        command, number = self.rfile.readline().decode().split()
        if command == "acknowledge" and number == WARNING["id"]:
            self.server.acknowledged.append(number)
            self.wfile.write(b"acknowledged\n\0")
        else:
            self.wfile.write(b"error: there is no such warning any more\n\0")


class Daemon(socketserver.ThreadingUnixStreamServer):
    daemon_threads = True

    def __init__(self, *arguments):
        super().__init__(*arguments)
        self.acknowledged = []


class Answer:
    def __init__(self, raw):
        head, _, body = raw.partition(b"\r\n\r\n")
        lines = head.decode().split("\r\n")
        self.headers = dict(line.split(": ", 1) for line in lines)
        self.status = int(self.headers["Status"].split()[0])
        self.body = body

    def value(self):
        """What the page's script engine makes of the body."""
        evaluated = subprocess.run(
            ["node", "-e", self.body.decode() + "\nconsole.log(JSON.stringify(nasStatus()))"],
            capture_output=True, text=True, check=True)
        return json.loads(evaluated.stdout)


def signed(text):
    digest = hashlib.md5((text + KEY).encode()).digest()
    return f"{text}:{base64.b64encode(digest).decode()}"


class StatusCgi(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.state = f"{self.folder}/state.plist"
        self.control = f"{self.folder}/control"
        self.daemon = Daemon(self.control, Asked)
        self.addCleanup(self.daemon.server_close)
        threading.Thread(target=self.daemon.serve_forever, args=(0.01,), daemon=True).start()

    def keep(self, state):
        with open(self.state, "wb") as file:
            plistlib.dump(state, file)

    def start(self, method="GET", **variables):
        environment = {name: value for name, value in os.environ.items() if "SAN_OPTIONS" in name}
        environment.update(REQUEST_METHOD=method, NASD_STATE=self.state,
                           NASD_CONTROL=self.control, **variables)
        return subprocess.Popen([PROGRAM], env=environment, stdin=subprocess.PIPE,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def ask(self, method="GET", body=b"", **variables):
        program = self.start(method, **variables)
        out, self.complaint = program.communicate(body)
        self.assertEqual(0, program.returncode, self.complaint)
        return Answer(out)

    def post(self, token, **variables):
        body = token.encode()
        variables = {"CONTENT_LENGTH": str(len(body)), "CONTENT_TYPE": "text/plain", **variables}
        return self.ask("POST", body, **variables)

    # ---- reading ----

    def test_script_returns_the_state(self):
        self.keep(STATE)
        answer = self.ask()
        self.assertEqual(200, answer.status)
        self.assertEqual("text/javascript; charset=utf-8", answer.headers["Content-Type"])
        value = answer.value()
        for key in "written", "cycle", "system", "shares":
            self.assertEqual(STATE[key], value[key])

    def test_script_has_the_time_of_the_answer_instead_of_the_path_of_the_log(self):
        self.keep(STATE)
        value = self.ask().value()
        self.assertRegex(value["now"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
        self.assertNotIn("log", value)

    def test_names_cannot_leave_their_string(self):
        names = ["'});alert(1);({'", "\\", "\\'", "</script>", "a\nb", "\u2028\u2029", "\x7f", "Ü€"]
        self.keep({**STATE, "shares": [{"name": name, "users": []} for name in names]})
        self.assertEqual([name.replace("\n", " ") for name in names],
                         [share["name"] for share in self.ask().value()["shares"]])

    def test_newest_log_entries_come_first_and_go_on_in_the_rotated_file(self):
        log = f"{self.folder}/nasd.log"
        with open(log + ".0", "w", encoding="utf-8") as file:
            file.write("rest of an entry\n2026-05-01T14:03:01 void a()\nINFO: one\n"
                       "rotating log file\n")
        with open(log, "w", encoding="utf-8") as file:
            file.write("2026-05-01T14:03:02 void b()\nWARNING: it's\ntwo: <b>\n")
        self.keep({**STATE, "log": log})
        self.assertEqual(
            [{"time": "2026-05-01T14:03:02", "where": "void b()", "category": "WARNING",
              "text": "it's\ntwo: <b>"},
             {"time": "2026-05-01T14:03:01", "where": "void a()", "category": "INFO",
              "text": "one"}],
            self.ask().value()["entries"])

    def test_before_the_first_state_the_script_returns_nothing(self):
        self.assertEqual({}, self.ask().value())

    def test_head_has_no_body(self):
        self.keep(STATE)
        answer = self.ask("HEAD")
        self.assertEqual(200, answer.status)
        self.assertEqual(b"", answer.body)

    def test_answers_are_not_stored_sniffed_or_embedded(self):
        headers = self.ask().headers
        self.assertEqual("no-store", headers["Cache-Control"])
        self.assertEqual("nosniff", headers["X-Content-Type-Options"])
        self.assertEqual("same-origin", headers["Cross-Origin-Resource-Policy"])

    def test_unreadable_state_is_an_error_whose_reason_stays_in_the_log(self):
        with open(self.state, "w", encoding="utf-8") as file:
            file.write("<plist><dict><key>a")
        answer = self.ask()
        self.assertEqual(500, answer.status)
        self.assertNotIn(self.folder.encode(), answer.body)
        self.assertIn(b"state.plist: load failed", self.complaint)

    def test_state_of_the_wrong_shape_is_an_error(self):
        self.keep({**STATE, "warnings": "none"})
        self.assertEqual(500, self.ask().status)

    # ---- requests that are refused ----

    def test_other_methods(self):
        self.keep(STATE)
        for method in "PUT", "DELETE", "OPTIONS", "get", "":
            with self.subTest(method):
                answer = self.ask(method)
                self.assertEqual(405, answer.status)
                self.assertEqual("GET, HEAD, POST", answer.headers["Allow"])

    def test_query_that_is_not_a_number(self):
        self.keep(STATE)
        for query in "a", "1&callback=alert", "%31", "-1", "\xff":
            with self.subTest(query):
                answer = self.ask(QUERY_STRING=query)
                self.assertEqual(400, answer.status)
                self.assertEqual(b"The address is malformed.\n", answer.body)
        self.assertEqual(200, self.ask(QUERY_STRING="1777644239000").status)

    def test_requests_from_other_sites(self):
        self.keep(STATE)
        for site in "cross-site", "same-site", "?":
            with self.subTest(site):
                self.assertEqual(403, self.ask(HTTP_SEC_FETCH_SITE=site).status)
        for site in "same-origin", "none":
            with self.subTest(site):
                self.assertEqual(200, self.ask(HTTP_SEC_FETCH_SITE=site).status)

    def test_names_that_are_not_this_machine_s(self):
        self.keep(STATE)
        for host in ("attacker.example", "attacker.example:8080", "nas.home.arpa.attacker.example",
                     "192.168.1.2", "[fe80::1]", "nas:80:80", "[", ":", "."):
            with self.subTest(host):
                answer = self.ask(HTTP_HOST=host)
                self.assertEqual(421, answer.status)
                self.assertNotIn(b"acknowledge:", answer.body)
        for host in ("localhost", "NAS", "nas.home.arpa.", "nas.home.arpa:8080", "192.168.1.20:80",
                     "[fe80::200:5eff:fe00:530a]", "[FE80:0::200:5eff:fe00:530a]:8080"):
            with self.subTest(host):
                self.assertEqual(200, self.ask(HTTP_HOST=host).status)
        self.assertNotIn("names", self.ask().value())

    def test_log_that_is_not_utf8_is_shown(self):
        log = f"{self.folder}/nasd.log"
        with open(log, "wb") as file:
            file.write(b"2026-05-01T14:03:02 void b()\nWARNING: Caf\xe9\n")
        self.keep({**STATE, "log": log})
        self.assertEqual("Caf\ufffd", self.ask().value()["entries"][0]["text"])

    def test_what_is_not_a_regular_file_is_not_opened(self):
        self.keep({**STATE, "log": f"{self.folder}/fifo"})
        os.mkfifo(f"{self.folder}/fifo")
        self.assertEqual([], self.ask().value()["entries"])
        self.state = f"{self.folder}/fifo"
        self.assertEqual(500, self.ask().status)

    def test_bodies_that_cannot_be_read(self):
        self.keep(STATE)
        for status, variables in (
            (415, {"CONTENT_TYPE": "application/x-www-form-urlencoded"}),
            (415, {"CONTENT_TYPE": ""}),
            (411, {"CONTENT_LENGTH": ""}),
            (400, {"CONTENT_LENGTH": "-1"}),
            (400, {"CONTENT_LENGTH": "2x"}),
            (400, {"CONTENT_LENGTH": "0"}),
            (400, {"CONTENT_LENGTH": "200"}),
            (413, {"CONTENT_LENGTH": "257"}),
            (413, {"CONTENT_LENGTH": "99999999999999999999999"}),
        ):
            with self.subTest(variables):
                self.assertEqual(status, self.post("abc", **variables).status)

    def test_bodies_that_are_no_token(self):
        self.keep(STATE)
        for body in "a b", "a\0b", "a\n", "ü", "\x7f":
            with self.subTest(body):
                self.assertEqual(400, self.post(body).status)

    # ---- acknowledging ----

    def token(self):
        return self.ask().value()["warnings"][0]["token"]

    def test_token_acknowledges_its_warning(self):
        self.keep(STATE)
        self.assertEqual(202, self.post(self.token()).status)
        self.assertEqual(["1000-1"], self.daemon.acknowledged)

    def test_token_is_what_it_permits_the_time_and_the_signature_of_both(self):
        self.keep(STATE)
        before = int(time.time())
        token = self.token()
        issued = int(re.fullmatch(r"acknowledge:1000-1:(\d+):[A-Za-z0-9+/]{22}==", token)[1])
        self.assertTrue(before <= issued <= int(time.time()))
        self.assertEqual(signed(f"acknowledge:1000-1:{issued}"), token)

    def test_acknowledged_warning_has_no_token(self):
        self.keep({**STATE, "warnings": [{**WARNING, "acknowledged": True}]})
        self.assertNotIn("token", self.ask().value()["warnings"][0])

    def test_token_holds_for_ten_minutes(self):
        self.keep(STATE)
        now = int(time.time())
        self.assertEqual(202, self.post(signed(f"acknowledge:1000-1:{now - 570}")).status)
        self.assertEqual(403, self.post(signed(f"acknowledge:1000-1:{now - 601}")).status)

    def test_without_a_valid_token_nothing_happens(self):
        self.keep(STATE)
        now = int(time.time())
        token = self.token()
        start = token.rindex(":") + 1  # of the signature; the last digit's bits do not all count
        altered = token[:start] + ("B" if token[start] == "A" else "A") + token[start + 1:]
        for forged in (
            "x", ":", "::", "==", token[:-3], altered, "x" + token, token + token,
            token.replace("1000-1", "1000-2"), token.replace("acknowledge", "forget"),
            f"acknowledge:1000-1:{now}:", f"acknowledge:1000-1:{now}:" + "A" * 22 + "==",
            signed("acknowledge:1000-1"),                # no time
            signed(f"acknowledge:1000-1:{now}x"),
            signed(f"acknowledge:1000-1:{now + 3600}"),  # from the future
            signed(f"forget:1000-1:{now}"),              # leave for something else
        ):
            with self.subTest(forged):
                answer = self.post(forged)
                self.assertEqual(403, answer.status)
                self.assertNotIn(b"1000-1", answer.body)
        self.assertEqual([], self.daemon.acknowledged)

    def test_warning_that_is_gone(self):
        self.keep(STATE)
        self.assertEqual(404, self.post(signed(f"acknowledge:1000-2:{int(time.time())}")).status)

    def test_daemon_that_does_not_answer_is_an_error(self):
        self.keep(STATE)
        self.daemon.shutdown()
        self.daemon.server_close()
        self.assertEqual(500, self.post(self.token()).status)
        self.assertIn(b"nobody answers", self.complaint)


if __name__ == "__main__":
    PROGRAM, KEY = sys.argv[1:3]
    unittest.main(argv=sys.argv[:1], verbosity=1)
