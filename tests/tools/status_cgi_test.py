#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The web back end as a web server runs it: a program with its request in the environment.

    status_cgi_test.py <status.cgi> <the key of MD5Authenticator>

The states it reads are written by Python's plistlib, its script is evaluated by node and its
signatures are checked by hashlib.
"""
import base64
import gzip
import hashlib
import itertools
import json
import os
import plistlib
import re
import signal
import socketserver
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import urllib.parse

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


def entry(time_of_day, category, text):
    """As the daemon logs it."""
    return f"2026-05-01T{time_of_day} void b()\n{category}: {text}\n"


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
        self.status = int(self.headers["Status"])
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
        entries = self.ask().value()["entries"]
        self.assertEqual(2, len({entry.pop("id") for entry in entries}))
        self.assertEqual(
            [{"time": "2026-05-01T14:03:02", "where": "void b()", "category": "WARNING",
              "text": "it's\ntwo: <b>"},
             {"time": "2026-05-01T14:03:01", "where": "void a()", "category": "INFO",
              "text": "one"}], entries)

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

    # ---- events ----

    def listen(self, seconds=60):
        program = self.start(QUERY_STRING="events", NASD_EVENTS_SECONDS=str(seconds))
        self.addCleanup(program.communicate)
        self.addCleanup(program.kill)
        return program

    def event(self, program):
        """What the next event holds."""
        for line in program.stdout:
            if line.startswith(b"data: "):
                return json.loads(line[6:])
        return self.fail("no event")

    def test_events_are_the_state_whenever_it_is_replaced(self):
        self.keep(STATE)
        stream = self.listen()
        self.assertEqual(b"Status: 200\r\n", stream.stdout.readline())
        self.assertEqual(b"Content-Type: text/event-stream; charset=utf-8\r\n",
                         stream.stdout.readline())
        first = self.event(stream)
        by_script = self.ask().value()
        for key in "written", "cycle", "system", "shares", "entries":
            self.assertEqual(by_script[key], first[key])
        self.assertRegex(first["warnings"][0]["token"], "^acknowledge:1000-1:")
        os.rename(self.state, f"{self.folder}/old")
        self.keep({**STATE, "cycle": 17})
        self.assertEqual(17, self.event(stream)["cycle"])

    def test_state_that_does_not_change_is_sent_again(self):
        self.keep(STATE)
        stream = self.listen()
        self.assertEqual(self.event(stream)["written"], self.event(stream)["written"])

    def test_stream_ends_after_its_time(self):
        self.keep(STATE)
        out = self.listen(1).communicate()[0]
        self.assertTrue(out.endswith(b"\n\nevent: end\ndata:\n\n"), out[-40:])

    def test_stream_that_nobody_reads_ends(self):
        self.keep({**STATE, "shares": STATE["shares"] * 5000})  # more than a pipe holds
        self.assertEqual(-signal.SIGALRM, self.listen(1).wait())

    def test_there_are_four_streams_at_most_and_room_for_everything_else(self):
        self.keep(STATE)
        streams = [self.listen() for _ in range(4)]
        for stream in streams:
            self.event(stream)
        self.assertEqual(503, self.ask(QUERY_STRING="events").status)
        self.assertEqual(200, self.ask().status)
        streams[2].kill()
        streams[2].wait()
        self.event(self.listen())

    def test_streams_are_refused_as_everything_is(self):
        self.assertEqual(400, self.ask("HEAD", QUERY_STRING="events").status)
        self.assertEqual(400, self.ask(QUERY_STRING="events&x").status)
        self.assertEqual(403, self.ask(QUERY_STRING="events", HTTP_SEC_FETCH_SITE="cross-site").status)
        self.keep(STATE)
        self.assertEqual(421, self.ask(QUERY_STRING="events", HTTP_HOST="attacker.example").status)
        self.keep({**STATE, "warnings": "none"})
        self.assertEqual(500, self.ask(QUERY_STRING="events").status)

    # ---- the log ----

    def log(self, *parts):
        """Writes the log's files, the oldest first, and has the state name it."""
        names = ["", *(f".{number}" for number in range(len(parts)))]
        for name, text in zip(names, reversed(parts)):
            with open(f"{self.folder}/nasd.log{name}", "w", encoding="utf-8") as file:
                file.write(text)
        self.keep({**STATE, "log": f"{self.folder}/nasd.log"})

    def compress(self, number):
        name = f"{self.folder}/nasd.log.{number}"
        with open(name, "rb") as file, gzip.open(f"{name}.gz", "wb") as compressed:
            compressed.write(file.read())
        os.remove(name)

    def search(self, **fields):
        answer = self.ask(QUERY_STRING=urllib.parse.urlencode({"log": "", **fields}))
        self.assertEqual(200, answer.status, answer.body)
        self.assertEqual("application/json; charset=utf-8", answer.headers["Content-Type"])
        return json.loads(answer.body)

    def found(self, **fields):
        return [entry["text"] for entry in self.search(**fields)["entries"]]

    THREE = (entry("13:00:01", "INFO", "one") + entry("13:00:02", "WARNING", "two"),
             entry("13:00:03", "EVENT LOOP|DEBUG", "three"),
             entry("13:00:59", "INFO", "Four\nand more") + entry("13:01:00", "INFO", "five"))

    def test_log_is_read_over_all_its_files(self):
        self.log(*self.THREE)
        self.compress(1)
        self.assertEqual(["five", "Four\nand more", "three", "two", "one"], self.found())

    def test_log_is_searched(self):
        self.log(*self.THREE)
        for fields, texts in (
            ({"category": "INFO"}, ["five", "Four\nand more", "one"]),
            ({"category": "DEBUG"}, ["three"]),
            ({"category": "EVENT LOOP|DEBUG"}, ["three"]),
            ({"category": "EVENT"}, []),
            ({"text": "FOUR"}, ["Four\nand more"]),
            ({"text": "void b("}, ["five", "Four\nand more", "three", "two", "one"]),
            ({"text": "o", "category": "WARNING"}, ["two"]),
            ({"since": "2026-05-01T13:01"}, ["five"]),
            ({"until": "2026-05-01T13:00:02"}, ["two", "one"]),
            ({"since": "2026-05-01T13:00:03", "until": "2026-05-01T13:00"},
             ["Four\nand more", "three"]),
            ({"text": "100% + \u00fc"}, []),
        ):
            with self.subTest(fields):
                self.assertEqual(texts, self.found(**fields))

    def test_categories_are_those_that_were_met(self):
        self.log(*self.THREE)
        self.assertEqual(["DEBUG", "EVENT LOOP", "INFO", "WARNING"],
                         self.search(category="INFO")["categories"])

    def test_search_goes_on_where_it_stopped_though_files_are_rotated_meanwhile(self):
        minutes = [f"{n // 60 + 1:02}:{n % 60:02}:00" for n in range(350)]
        text = [entry(minute, "INFO", minute) for minute in minutes]
        self.log("".join(text[:120]), "".join(text[120:230]), "".join(text[230:]))
        seen, position = [], ""
        for move in (2, 1, None, None):
            answer = self.search(log=position)
            seen += [each["text"] for each in answer["entries"]]
            position = answer.get("position", "")
            if move:
                log = f"{self.folder}/nasd.log"
                for number, end in itertools.product((2, 1, 0), ("", ".gz")):
                    if os.path.exists(f"{log}.{number}{end}"):
                        os.rename(f"{log}.{number}{end}", f"{log}.{number + 1}{end}")
                os.rename(log, f"{log}.0")
                with open(log, "w", encoding="utf-8") as file:
                    file.write(entry("20:00:00", "INFO", f"later {move}"))
                if move == 2:
                    self.compress(2)
        self.assertEqual(minutes[::-1], seen)
        self.assertEqual("", position)

    def test_position_in_a_file_that_is_gone_finds_nothing(self):
        self.log(*self.THREE)
        answer = self.search(log="1.12345.100")
        self.assertEqual([], answer["entries"])
        self.assertNotIn("position", answer)

    def test_entries_keep_their_identity(self):
        self.log(*self.THREE)
        ids = {entry["text"]: entry["id"] for entry in self.search()["entries"]}
        self.assertEqual(5, len(set(ids.values())))
        self.compress(1)
        self.assertEqual(ids, {entry["text"]: entry["id"] for entry in self.search()["entries"]})
        self.assertEqual(ids["five"], self.ask().value()["entries"][0]["id"])

    def test_answer_is_bounded_and_can_be_continued(self):
        for rows in ([f"{n} {'x' * 5000}" for n in range(200)],  # many bytes
                     [str(n) for n in range(250)]):              # many entries
            self.log("".join(entry("13:00:00", "INFO", text) for text in rows))
            seen, position, requests = [], "", 0
            while position is not None:
                answer = self.search(log=position)
                self.assertLessEqual(len(answer["entries"]), 100)
                self.assertLess(sum(len(each["text"]) for each in answer["entries"]), 270000)
                seen += [each["text"] for each in answer["entries"]]
                position = answer.get("position")
                requests += 1
            self.assertEqual(rows[::-1], seen)
            self.assertGreater(requests, 2)

    def test_long_log_is_searched_in_steps(self):
        line = entry("13:00:00", "INFO", "x" * 1000)
        self.log(entry("12:00:00", "INFO", "needle") + line * 12000)  # 12 MB
        answer = self.search(text="needle")
        self.assertEqual([], answer["entries"])
        self.assertEqual(["needle"], self.found(text="needle", log=answer["position"]))

    def test_file_that_cannot_be_searched_is_named_and_the_others_are_searched(self):
        self.log(*self.THREE)
        self.compress(1)
        with open(f"{self.folder}/nasd.log.1.gz", "r+b") as file:
            file.truncate(20)
        os.remove(f"{self.folder}/nasd.log.0")
        os.mkfifo(f"{self.folder}/nasd.log.0")
        answer = self.search()
        self.assertEqual(["five", "Four\nand more"], [each["text"] for each in answer["entries"]])
        self.assertEqual(["nasd.log.1: gzip ended with status 1"], answer["faults"])

    def test_damaged_log_is_searched(self):
        with open(f"{self.folder}/nasd.log", "wb") as file:
            file.write(b"\0\xff\n" * 1000 + entry("13:00:00", "INFO", "one").encode() + b"2026-05-")
        self.keep({**STATE, "log": f"{self.folder}/nasd.log"})
        self.assertEqual(["one\n2026-05-"], self.found())

    def test_search_that_is_malformed_is_refused_with_the_reason(self):
        self.log(*self.THREE)
        for query, reason in (
            ("log=&since=yesterday", "a time that is not one like"),
            ("log=&until=2026-05-01", "a time that is not one like"),
            ("log=&until=2026-05-01T24:00", "a time that is not one like"),
            ("log=1", "at a place that is not one"),
            ("log=-1.2.3", "at a place that is not one"),
            ("log=1.2.9999999999999999999", "at a place that is not one"),
            ("log=../../etc/passwd", "at a place that is not one"),
            ("log=&file=/etc/passwd", "an unknown part"),
            ("log=&text=a&text=b", "twice"),
            ("log=&text=%", "malformed"),
            ("log=&text=%4", "malformed"),
            ("log=&text=%zz", "malformed"),
            ("log=&text=%00", "malformed"),
            ("log=&text=%0a", "malformed"),
            ("log=&text=%ff", "malformed"),
            ("log=&text=" + "x" * 201, "too long"),
            ("log=&text=" + "x" * 3000, "too long"),
            ("text=x", "malformed"),
        ):
            with self.subTest(query[:40]):
                answer = self.ask(QUERY_STRING=query)
                self.assertEqual(400, answer.status)
                self.assertIn(reason, answer.body.decode())
        self.assertEqual(405, self.ask("PUT", QUERY_STRING="log=").status)
        self.assertEqual(400, self.post("x", QUERY_STRING="log=").status)
        self.assertEqual(403, self.ask(QUERY_STRING="log=", HTTP_SEC_FETCH_SITE="cross-site").status)
        self.assertEqual(421, self.ask(QUERY_STRING="log=", HTTP_HOST="attacker.example").status)

    def test_log_before_the_first_state_is_not_there(self):
        self.assertEqual(503, self.ask(QUERY_STRING="log=").status)

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
