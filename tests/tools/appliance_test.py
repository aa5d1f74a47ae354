#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The whole appliance, seen by a real browser: nasd, status.cgi, lighttpd, the page in chromium.

    appliance_test.py <source folder> <folder of nasd and status.cgi> <folder for pictures> [test]

Nothing waits for a fixed time: what is expected is asked for until it is there or a deadline is
over. All that is started ends with the test, and all it wrote goes.
"""
import base64
import concurrent.futures
import contextlib
import gzip
import itertools
import math
import os
import plistlib
import random
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import urllib.request

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys

sys.dont_write_bytecode = True
from programs import Programs, ask, until  # noqa: E402

SOURCE = BUILD = PICTURES = AXE = None

CHROMIUM = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
            "--disable-background-networking", "--disable-component-update", "--disable-sync",
            "--disable-dev-shm-usage", "--hide-scrollbars", "--window-size=1280,900"]


class Browser(webdriver.Chrome):
    """Chromium, and what the tests ask of a page."""

    def __init__(self, folder):
        options = webdriver.ChromeOptions()
        options.ignore_local_proxy_environment_variables()
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        for argument in (*CHROMIUM, f"--user-data-dir={folder}"):
            options.add_argument(argument)
        super().__init__(options=options, service=Service(shutil.which("chromedriver")))

    def run(self, script, *arguments):
        return self.execute_script(f"return {script}", *arguments)

    def texts(self, selector):
        return self.run("[...document.querySelectorAll(arguments[0])].map(e => e.textContent)",
                        selector)

    def text(self, selector):
        return "".join(self.texts(selector))

    def console(self):
        return self.get_log("browser")

    def press(self, *keys):
        """A key that is to be held, like SHIFT, is until the end."""
        keyboard = ActionChains(self)
        for key in keys:
            keyboard = keyboard.key_down(key) if key == Keys.SHIFT else keyboard.send_keys(key)
        (keyboard.key_up(Keys.SHIFT) if Keys.SHIFT in keys else keyboard).perform()

    def look(self, width=0, scheme="", forced_colours=""):
        """As a screen of that width (0 is the window's own), in light or dark."""
        self.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": scheme},
                         {"name": "forced-colors", "value": forced_colours}]})
        self.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": 0, "deviceScaleFactor": 0, "mobile": width > 0})

    def picture(self, name, most=4000):
        """The page from its top, `most` pixels high, in the folder for pictures."""
        height = min(self.run("document.documentElement.scrollHeight"), most)
        width = self.run("document.documentElement.clientWidth")
        data = self.execute_cdp_cmd("Page.captureScreenshot", {
            "captureBeyondViewport": True,
            "clip": {"x": 0, "y": 0, "width": width, "height": height, "scale": 1}})["data"]
        with open(os.path.join(PICTURES, name), "wb") as file:
            file.write(base64.b64decode(data))


class Page(unittest.TestCase):
    """An appliance of its own, and a browser that shows its page."""

    @classmethod
    def setUpClass(cls):
        cls.programs = Programs()
        cls.addClassCleanup(cls.programs.close)
        cls.browser = Browser(cls.folder())
        cls.programs.callback(cls.browser.quit)
        os.makedirs(PICTURES, exist_ok=True)

    @classmethod
    def folder(cls):
        return cls.programs.enter_context(tempfile.TemporaryDirectory(ignore_cleanup_errors=True))

    def setUp(self):
        self.mine = Programs()
        self.addCleanup(self.mine.close)
        self.data = self.mine.enter_context(tempfile.TemporaryDirectory())
        self.config = self.path("nas_conf_db.xml")
        shutil.copy(f"{SOURCE}/examples/appliance/nas_conf_db.xml", self.config)
        self.start_nasd()
        self.start_server()

    def path(self, name):
        return os.path.join(self.data, name)

    def start_nasd(self):
        self.nasd = self.mine.start([
            f"{BUILD}/nasd", "--config", self.config, "--state", self.path("state.plist"),
            "--lasting", self.path("lasting.plist"), "--control", self.path("control"),
            "--log", self.path("nasd.log"), "--cycle", "200"])

    def start_server(self):
        def serves():
            with socket.socket() as free:
                free.bind(("127.0.0.1", 0))
                port = free.getsockname()[1]
            server = self.server = self.mine.start(
                ["lighttpd", "-D", "-f", f"{SOURCE}/examples/appliance/lighttpd.conf"],
                env={**os.environ, "NASD_PORT": str(port), "NASD_CGI": BUILD,
                     "NASD_WWW": f"{SOURCE}/examples/appliance/www",
                     "NASD_STATE": self.path("state.plist"),
                     "NASD_CONTROL": self.path("control"),
                     "NASD_WEB_LOG": self.path("lighttpd.log")})
            self.url = f"http://127.0.0.1:{port}/"
            while server.poll() is None:  # It ends at once where the port has been taken meanwhile.
                with contextlib.suppress(OSError):
                    return ask(self.url)[0] == 200
                time.sleep(0.05)
            return False
        until(serves, "a web server")

    def open_page(self):
        self.browser.console()  # Forget what earlier tests left.
        self.browser.get(self.url)
        self.until_text("#freshness", "Live")

    def until_text(self, selector, text):
        until(lambda: text in self.browser.text(selector), f"'{text}' in {selector}")

    def assert_console_is_clean(self):
        self.assertEqual([], self.browser.console())

    def post(self, token):
        return ask(f"{self.url}cgi-bin/status.cgi", "POST", token.encode(),
                   {"Content-Type": "text/plain"})[0]

    def script(self):
        return ask(f"{self.url}cgi-bin/status.cgi")[1]

    def written(self):
        return re.search(r"'written' : '([^']+)'", self.script())[1]

    def show(self, **changes):
        """The page of a state that does not change, and how to change it."""
        Programs.stop(self.nasd)
        self.state = {**sample_state(self.path("nasd.log")), **changes}
        with open(self.path("nasd.log"), "w", encoding="utf-8") as file:
            file.write(SAMPLE_LOG)
        self.keep(self.state)
        self.open_page()
        self.addCleanup(self.browser.look)

    def keep(self, state):
        with open(self.path("new"), "wb") as file:
            plistlib.dump(state, file)
        os.rename(self.path("new"), self.path("state.plist"))

    def change(self, name, value, event="change"):
        self.browser.run("((e, value, event) => { e.value = value; e.dispatchEvent(new Event(event)) })"
                         "(document.getElementById(arguments[0]), arguments[1], arguments[2])",
                         name, value, event)


class Appliance(Page):
    # ---- what the page shows ----

    def test_values_appear_and_change_as_the_daemon_writes(self):
        self.open_page()
        self.assertEqual("nas.home.arpa", self.browser.text("h1"))
        self.assertIn(os.uname().release, self.browser.text("#system"))
        self.assertEqual(["sda", "sdb"], self.browser.texts("#disks strong"))
        self.assertIn("lo", self.browser.texts("#interfaces strong"))
        self.until_text("#log", "started with cycles of 200 ms")
        line = "document.querySelector('#load path.line')?.getAttribute('d')"
        first = until(lambda: self.browser.run(line), "a line in the load's graph")
        until(lambda: self.browser.run(line) != first, "another line in the load's graph")
        self.assert_console_is_clean()

    def test_shares_stand_in_natural_order(self):
        self.open_page()
        self.assertEqual(
            ["100% done.", "<script>alert(1)</script>", "Backups", "Films", "Invoices: 2025?",
             "it's \"x\"", "music", "old scans", "Photos 1", "Photos 2", "Photos 10", "Überblick"],
            self.browser.texts("#shares strong"))

    def test_awkward_names_are_shown_as_text(self):
        self.open_page()
        names = self.browser.texts("#shares strong")
        self.assertIn("<script>alert(1)</script>", names)
        self.assertIn("it's \"x\"", names)
        self.assertEqual(0, self.browser.run("document.querySelectorAll('body script').length"))
        folders = self.browser.texts("#shares .mono")
        self.assertIn("/shares/internal/it's %22x%22", folders)
        self.assertEqual([], [folder for folder in folders if "script" in folder])  # it has a slash
        self.assert_console_is_clean()

    def test_new_configuration_is_shown_after_sighup(self):
        self.open_page()
        with open(self.config, encoding="utf-8") as file:
            text = file.read()
        with open(self.config, "w", encoding="utf-8") as file:
            file.write(text.replace("<sharename>music<", "<sharename>&lt;b&gt;music&lt;/b&gt;<"))
        self.nasd.send_signal(signal.SIGHUP)
        self.until_text("#shares", "<b>music</b>")
        self.assert_console_is_clean()

    def test_stopped_daemon_shows_as_stale_and_comes_back(self):
        self.open_page()
        self.assertEqual(0, Programs.stop(self.nasd))
        self.until_text("#freshness", "Stale")
        self.assertIn("nas.home.arpa", self.browser.text("h1"))
        self.start_nasd()
        self.until_text("#freshness", "Live")
        self.assert_console_is_clean()

    def test_state_from_the_future_is_not_live(self):
        self.open_page()
        Programs.stop(self.nasd)
        with open(self.path("state.plist"), "wb") as file:
            state = sample_state(self.path("nasd.log"))
            plistlib.dump({**state, "written": "2099-01-01T00:00:00Z"}, file)
        self.until_text("#freshness", "Stale")
        self.assertEqual("The appliance's clock was set back", self.browser.text("#age"))

    def test_page_of_a_daemon_that_never_ran_waits(self):
        Programs.stop(self.nasd)
        for name in "state.plist", "state.plist~":
            with contextlib.suppress(FileNotFoundError):
                os.remove(self.path(name))
        self.browser.get(self.url)
        self.until_text("#age", "not written its state yet")
        self.assertEqual("Waiting", self.browser.text("#freshness"))

    # ---- acknowledging ----

    def test_warning_is_acknowledged_by_keyboard(self):
        self.open_page()
        button = "#warnings li:first-child button"
        warning = self.browser.text("#warnings li:first-child strong")
        self.browser.press(Keys.TAB, Keys.TAB)  # past the skip link
        self.assertEqual(f"Acknowledge: {warning}",
                         self.browser.run("document.activeElement.getAttribute('aria-label')"))
        self.browser.press(Keys.ENTER)
        self.until_text("#acknowledgement", "Acknowledged.")
        self.until_text("#warnings li:first-child .tag", "acknowledged")
        self.assertEqual([], self.browser.texts(button))
        self.assert_console_is_clean()

    def test_acknowledgement_survives_a_restart_of_the_daemon(self):
        token = until(lambda: re.search(r"'token' : '([^']+)'", self.script()), "a token")[1]
        self.assertEqual(202, self.post(token))
        until(lambda: "'acknowledged' : true" in self.script(), "the acknowledgement")
        Programs.stop(self.nasd)
        os.remove(self.path("state.plist"))
        self.start_nasd()
        until(lambda: "'warnings'" in self.script(), "a new state")
        self.assertIn("'acknowledged' : true", self.script())

    def test_acknowledging_is_refused_without_a_valid_token(self):
        token = until(lambda: re.search(r"'token' : '([^']+)'", self.script()), "a token")[1]
        self.assertEqual(403, self.post("acknowledge:1-1:1:" + "A" * 22 + "=="))
        self.assertEqual(403, self.post(token.replace("acknowledge:", "acknowledge:1")))
        self.assertNotIn("'acknowledged' : true", self.script())

    # ---- how it looks ----

    def test_pictures(self):
        Programs.stop(self.nasd)
        with open(self.path("nasd.log"), "w", encoding="utf-8") as file:
            file.write(SAMPLE_LOG)
        with open(self.path("state.plist"), "wb") as file:
            plistlib.dump(sample_state(self.path("nasd.log")), file)
        self.open_page()
        self.addCleanup(self.browser.look)
        for name, width, most, scheme in (
            ("wide", 1280, 4000, "light"), ("dark", 1280, 4000, "dark"),
            ("phone", 390, 4000, "light"), ("phone-dark", 390, 4000, "dark"),
            ("status-page", 1080, 800, "light"),  # for docs/
        ):
            with self.subTest(name):
                self.browser.look(width, scheme)
                self.assertLessEqual(self.browser.run("document.documentElement.scrollWidth"), width)
                self.assertEqual("Live", self.browser.text("#freshness"))
                self.browser.picture(f"{name}.png", most)
        self.assert_console_is_clean()

    def test_everything_is_reached_by_keyboard_and_shows_that_it_has_the_focus(self):
        self.show()
        self.until_text("#log", "started with cycles")
        for width in 1280, 360:
            self.browser.look(width, "light")
            self.browser.run("document.querySelector('.skip').focus()")
            self.browser.press(Keys.TAB, Keys.SHIFT, Keys.TAB)  # to the next and back
            reached = []
            for _ in range(30):
                name, outline = self.browser.run(
                    "(e => [e.closest('[id]')?.id ?? e.className, getComputedStyle(e).outlineStyle])"
                    "(document.activeElement)")
                if not name:
                    break
                self.assertEqual("solid", outline, name)
                if name not in reached:  # a time has several fields
                    reached.append(name)
                self.browser.press(Keys.TAB)
            self.assertEqual(["skip", "warnings", "load", "period", "traffic", "share-filter",
                              "share-order", "log-text", "log-category", "log-since", "log-until",
                              "log"], reached)

    def test_everything_can_be_read_by_a_screen_reader(self):
        self.open_page()
        self.assertEqual([], self.browser.run(
            "[...document.querySelectorAll('section')]"
            ".filter(e => !document.getElementById(e.getAttribute('aria-labelledby')))"
            ".map(e => e.outerHTML)"))
        self.assertEqual([], self.browser.run(
            "[...document.querySelectorAll('svg, [role=meter]')]"
            ".filter(e => !e.getAttribute('aria-label')).map(e => e.outerHTML)"))
        self.assertEqual([1, 1], self.browser.run(
            "[document.querySelectorAll('main').length, document.querySelectorAll('h1').length]"))

    def test_focus_stays_where_rows_change(self):
        self.show()
        self.browser.run("document.querySelector('#warnings button').focus()")
        first, second = self.state["warnings"]
        new = {"id": "3-1", "text": "Disk sdb is not in this machine", "acknowledged": False,
               "since": first["since"]}
        self.keep({**self.state, "warnings": [new, first, second]})
        self.until_text("#warnings", "Disk sdb")
        focused = "document.activeElement.closest('li')?.dataset.key"
        self.assertEqual(first["id"], self.browser.run(focused))
        self.keep({**self.state, "warnings": [new, {**first, "acknowledged": True}, second]})
        until(lambda: len(self.browser.texts("#warnings button")) == 1, "one button less")
        self.assertEqual(first["id"], self.browser.run(focused))
        self.keep({**self.state, "warnings": [new, second]})
        until(lambda: len(self.browser.texts("#warnings li")) == 2, "a row less")
        self.assertEqual("warnings", self.browser.run("document.activeElement.id"))

    def test_message_goes_when_there_is_a_new_warning(self):
        self.show()
        self.browser.run("document.getElementById('acknowledgement').textContent = 'Acknowledged.'")
        self.keep({**self.state, "system": {**self.state["system"], "processors": 7}})
        self.until_text("#system", "7")
        self.assertEqual("Acknowledged.", self.browser.text("#acknowledgement"))
        new = {**self.state["warnings"][0], "id": "3-1", "text": "Disk sdb is gone"}
        self.keep({**self.state, "warnings": [new, *self.state["warnings"]]})
        self.until_text("#warnings", "Disk sdb")
        self.assertEqual("", self.browser.text("#acknowledgement"))

    def test_silence_does_not_claim_to_be_updated(self):
        self.open_page()
        Programs.stop(self.server)
        self.until_text("#freshness", "No answer")
        self.assertRegex(self.browser.text("#age"), "^Last word .* ago$")

    def test_names_that_turn_the_direction_turn_nothing_else(self):
        turned = "\u202eevil"
        self.show(shares=[{"name": turned, "type": "public", "status": "active",
                           "location": "internal", "folder": "/x",
                           "users": [{"name": turned, "access": "full"}]}],
                  warnings=[{"id": "1-1", "text": f"Share {turned} has no location",
                             "since": "2026-05-01T14:03:59Z", "acknowledged": False}])
        self.assertEqual("Share evil has no location", self.browser.text("#warnings strong"))
        self.assertEqual(["isolate", "isolate"], self.browser.run(
            "[...document.querySelectorAll('#shares strong, #shares bdi')]"
            ".map(e => getComputedStyle(e).unicodeBidi)"))

    def test_all_times_are_the_appliance_s(self):
        system = sample_state("")["system"]
        self.show(system={**system, "zone": "NPT", "utc_offset": 20700},
                  warnings=[{"id": "1-1", "text": "x", "since": "2026-05-01T14:03:59Z",
                             "acknowledged": False}])
        self.assertIn("7:48", self.browser.text("#warnings"))
        self.assertEqual("times in NPT", self.browser.text("#zone"))
        self.assertIn("Europe/Zurich (NPT)", self.browser.text("#system"))

    def test_values_of_a_graph_are_read_by_keyboard_and_pointer(self):
        self.show()
        self.browser.run("document.querySelector('#load svg').focus()")
        self.browser.press(Keys.ARROW_LEFT)
        first = self.browser.text("#load .reading")
        self.assertRegex(first, r"^\d+:\d\d:\d\d.*: \d(\.\d+)? load$")
        self.browser.press(Keys.ARROW_LEFT)
        self.assertNotEqual(first, self.browser.text("#load .reading"))
        self.keep({**self.state, "system": {**self.state["system"], "processors": 7}})
        self.until_text("#system", "7")
        self.assertRegex(self.browser.text("#load .reading"), "load$")
        self.browser.press(Keys.ESCAPE)
        self.assertEqual("", self.browser.text("#load .reading"))
        self.browser.run("(b => document.querySelector('#traffic svg').dispatchEvent(new PointerEvent("
                         "'pointermove', {clientX: b.left + b.width / 2})))"
                         "(document.querySelector('#traffic svg').getBoundingClientRect())")
        self.assertRegex(self.browser.text("#traffic .reading"), "/s received, .*/s sent$")

    def test_graphs_show_the_last_hour_and_day(self):
        now = int(time.time())

        def means(step, count):
            return {"time": [time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(now - step * age))
                             for age in range(count, -1, -1)],
                    **{of: [1.0] * (count + 1) for of in ("load", "received", "sent")},
                    "uptime": list(range(count + 1))}

        history = sample_state("")["history"]
        self.show(history={**history, "hour": means(30, 120), "day": means(600, 144)})
        for value, start in ("hour", "1\u00a0h ago"), ("day", "1\u00a0d ago"), ("cycles", "2\u00a0min 59"):
            self.browser.run("(e => { e.value = arguments[0]; e.dispatchEvent(new Event('change')) })"
                             "(document.getElementById('period'))", value)
            self.assertTrue(self.browser.text("#load .start-label").startswith(start))

    def test_shares_are_searched(self):
        self.show()
        look_for = ("(e => { e.value = arguments[0]; e.dispatchEvent(new Event('input')) })"
                    "(document.getElementById('share-filter'))")
        self.browser.run(look_for, "PHOTOS 1")
        self.assertEqual(["Photos 1", "Photos 10"], self.browser.texts("#shares li:not([hidden]) strong"))
        self.assertEqual("2 of 9", self.browser.text("#share-count"))
        self.browser.run(look_for, "")
        self.assertEqual("9", self.browser.text("#share-count"))

    def test_shares_are_ordered(self):
        self.show()
        self.change("share-order", "location")
        self.assertEqual(["Backups", "Films", "it's \"x\""], self.browser.texts("#shares strong")[:3])
        self.change("share-order", "status")
        self.assertEqual("old scans", self.browser.texts("#shares strong")[-1])
        self.change("share-order", "type")
        self.assertEqual(["<script>", "Films", "music"], self.browser.texts("#shares strong")[-3:])
        self.change("share-order", "name")
        self.assertEqual(["Backups", "Films", "it's \"x\""], self.browser.texts("#shares strong")[:3])

    # ---- the log ----

    def until_log(self, messages):
        until(lambda: self.browser.texts("#log .message") == messages, f"{messages} in the log")

    def test_log_is_searched_by_category_text_and_time(self):
        self.show()
        self.until_text("#log", "started with cycles")
        self.change("log-category", "SUMMARY")
        self.until_log(["traffic 48213094 bytes in, 5120376 out", "load at most 1.31"])
        self.change("log-text", "LOAD", "input")
        self.until_log(["load at most 1.31"])
        self.assertEqual("Found 1 entry; there are no older ones.", self.browser.text("#log-found"))
        self.change("log-category", "")
        self.change("log-text", "", "input")
        self.change("log-since", "2026-05-01T13:44")
        self.change("log-until", "2026-05-01T13:44")
        self.until_log(["/shares/external is nearly full"])
        self.assert_console_is_clean()

    def test_log_goes_back_over_old_files_by_keyboard(self):
        with gzip.open(self.path("nasd.log.1.gz"), "wt", encoding="utf-8") as old:
            for minute in range(150):
                old.write(f"2026-04-30T{minute // 60:02}:{minute % 60:02}:00 void b()\n"
                          f"INFO: old {minute}\n")
        self.show()
        self.until_text("#log", "old 149")
        self.assertEqual(100, len(self.browser.texts("#log li")))
        self.browser.run("document.getElementById('log').focus()")
        self.browser.press(Keys.TAB)
        self.assertEqual("log-older", self.browser.run("document.activeElement.id"))
        self.browser.press(Keys.ENTER)
        self.until_text("#log", "old 0")
        self.assertEqual(156, len(self.browser.texts("#log li")))
        self.assertEqual("log", self.browser.run("document.activeElement.id"))
        self.assertFalse(self.browser.run("document.getElementById('log-older').checkVisibility()"))
        self.browser.run("document.getElementById('log-text').focus()")
        self.browser.press("old 14")
        self.until_log([f"old {n}" for n in (*range(149, 139, -1), 14)])
        self.browser.press(Keys.TAB, "WARN")
        self.until_log([])
        self.assertEqual("Found 0 entries; there are no older ones.",
                         self.browser.text("#log-found"))
        self.assert_console_is_clean()

    def test_new_entries_come_into_the_log_where_they_fit(self):
        self.show()
        self.until_text("#log", "started with cycles")
        self.change("log-category", "WARNING")
        warnings = ["/shares/external is nearly full",
                    "The web interface has no administration password"]
        self.until_log(warnings)
        with open(self.path("nasd.log"), "a", encoding="utf-8") as file:
            for category in "INFO", "WARNING", "NEW", "WARNING":
                file.write(f"2026-05-01T14:05:00 void b()\n{category}: {category} comes\n")
        self.until_log(["WARNING comes", "WARNING comes", *warnings])
        self.assertIn("NEW", self.browser.texts("#log-category option"))
        self.change("log-category", "")
        self.until_text("#log", "NEW comes")
        self.assertEqual(10, len(self.browser.texts("#log li")))

    def test_search_that_is_refused_says_why(self):
        self.show()
        self.change("log-since", "12026-05-01T13:44")
        self.until_text("#log-found", "The log cannot be searched: The search has a time that is not")

    def test_board_is_shown_by_words(self):
        self.show()
        self.assertEqual(["normal", "2 of 2 fitted"], self.browser.texts("#system .tag.good"))
        self.keep({**self.state, "board": {"revision": 3, "drives": 1, "temperature": "too high"}})
        until(lambda: self.browser.texts("#system .tag.bad") == ["too high", "1 of 2 fitted"], "bad tags")
        self.keep({name: self.state[name] for name in self.state if name != "board"})
        self.until_text("#system", "Boardnone whose lines can be read")

    def test_top_says_whether_all_is_well(self):
        self.show()
        self.assertEqual("1 warning to see to", self.browser.text("#verdict"))
        self.keep({**self.state, "warnings": []})
        self.until_text("#verdict", "All is well")

    def test_paper_has_all_entries_and_bars(self):
        self.show()
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": "print"})
        self.assertEqual(["visible", "none"], self.browser.run(
            "(s => [s.overflowY, s.maxHeight])(getComputedStyle(document.getElementById('log')))"))
        self.assertEqual({"exact"}, set(self.browser.run(
            "[...document.querySelectorAll('.bar, .bar > span')]"
            ".map(e => getComputedStyle(e).printColorAdjust)")))
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": ""})

    def test_forced_colours_keep_bars_lamp_and_lines(self):
        self.show()
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "forced-colors", "value": "active"}]})
        colours = self.browser.run(
            "[...document.querySelectorAll('.bar > span, .lamp')]"
            ".map(e => getComputedStyle(e).backgroundColor)")
        ground = self.browser.run("getComputedStyle(document.body).backgroundColor")
        self.assertTrue(colours)
        self.assertNotIn(ground, colours)

    def test_large_text_on_a_narrow_screen_is_not_cut(self):
        self.show()
        self.browser.look(360, "light")
        self.browser.run("document.documentElement.style.fontSize = '200%'")
        self.assertLessEqual(self.browser.run("document.documentElement.scrollWidth"), 360)
        self.assertEqual([], self.browser.run(
            "[...document.querySelectorAll('.tag, h1, strong, button, .pill')]"
            ".filter(e => e.scrollWidth > e.clientWidth + 1 && e.clientWidth > 0)"
            ".map(e => e.outerHTML)"))
        self.browser.run("document.documentElement.style.fontSize = ''")

    # ---- the server ----

    def test_page_is_asked_for_again(self):
        for name, rule in (("", "no-cache"), ("status.js", "no-cache"), ("style.css", "no-cache"),
                           ("cgi-bin/status.cgi", "no-store")):
            with urllib.request.build_opener(urllib.request.ProxyHandler({})).open(
                    self.url + name) as answer:
                self.assertEqual(rule, answer.headers["Cache-Control"])

    def back_ends(self):
        """How many the web server has."""
        found = 0
        for process in filter(str.isdigit, os.listdir("/proc")):
            with contextlib.suppress(OSError), open(f"/proc/{process}/stat", encoding="utf-8") as file:
                found += file.read().rsplit(")", 1)[1].split()[1] == str(self.server.pid)
        return found

    def last_poll(self):
        return self.browser.run("document.getElementById('state').src")

    def see_changes(self):
        for count in 5, 6, 7:
            self.keep({**self.state, "system": {**self.state["system"], "processors": count}})
            self.until_text("#system", f"Processors{count}")

    def test_page_is_sent_events_instead_of_asking(self):
        self.show()
        until(lambda: self.back_ends() == 1, "a stream")
        before = self.last_poll()
        self.see_changes()
        self.assertEqual(before, self.last_poll())
        self.browser.get("about:blank")
        until(lambda: self.back_ends() == 0, "the end of the stream")

    def test_page_asks_where_there_are_streams_enough(self):
        for _ in range(4):
            stream = self.mine.start([f"{BUILD}/status.cgi"], stdout=subprocess.PIPE, env={
                "REQUEST_METHOD": "GET", "QUERY_STRING": "events", "NASD_STATE": self.path("state.plist")})
            self.addCleanup(stream.stdout.close)
            self.assertEqual(b"Status: 200\r\n", stream.stdout.readline())
        self.assertEqual(503, ask(f"{self.url}cgi-bin/status.cgi?events")[0])
        self.show()
        before = self.last_poll()
        self.see_changes()
        self.assertNotEqual(before, self.last_poll())

    def test_page_asks_again_when_events_break_off(self):
        self.show()
        until(lambda: self.back_ends() == 1, "a stream")
        before = self.last_poll()
        Programs.stop(self.server)
        self.until_text("#freshness", "No answer")
        self.assertNotEqual(before, self.last_poll())

    def test_many_requests_at_once_are_answered_by_few_back_ends(self):
        most = 0
        finished = threading.Event()

        def get(_):
            return ask(f"{self.url}cgi-bin/status.cgi")[0]

        with concurrent.futures.ThreadPoolExecutor(100) as clients:
            answers = clients.map(get, range(200))
            waiting = threading.Thread(target=lambda: (list(answers), finished.set()))
            waiting.start()
            while not finished.is_set():
                most = max(most, self.back_ends())
            waiting.join()
        self.assertLessEqual(most, 17)

    def test_policy_of_the_page_allows_its_own_files_only(self):
        with urllib.request.build_opener(urllib.request.ProxyHandler({})).open(self.url) as page:
            policy = page.headers["Content-Security-Policy"]
        self.assertIn("default-src 'none'; script-src 'self'", policy)
        self.assertNotIn("unsafe", policy)


class Axe(Page):
    """The page as axe-core judges it."""

    def findings(self):
        with open(AXE, encoding="utf-8") as file:
            self.browser.execute_script(file.read())
        return self.browser.execute_async_script("""
            axe.run({resultTypes: ['violations']}).then(({violations}) => arguments[0](
              violations.map(({id, help, nodes}) => [id, help, ...nodes.map(({html}) => html)])))""")

    def test_nothing_is_found(self):
        if not os.path.exists(AXE):
            print("axe-core is not installed: run scripts/setup where a registry of npm's is at hand")
            self.skipTest("axe-core is not installed")
        self.show()
        self.until_text("#log", "started with cycles")
        self.change("log-category", "SUMMARY")
        self.until_text("#log-found", "Found 2 entries")
        for width, scheme, colours in itertools.product((360, 1280), ("light", "dark"),
                                                        ("none", "active")):
            with self.subTest(f"{width} {scheme} forced colours: {colours}"):
                self.browser.look(width, scheme, colours)
                self.assertEqual([], self.findings())
        self.browser.look(1280, "dark")
        self.keep({**self.state, "written": "2026-05-01T14:03:59Z", "disks": [], "shares": [],
                   "warnings": []})
        self.until_text("#freshness", "Stale")
        self.assertEqual([], self.findings())


# ---- the state in the pictures ----

SAMPLE_LOG = """\
2026-05-01T13:31:04 void appliance::Daemon::run(const volatile sig_atomic_t&, volatile sig_atomic_t&)
INFO: started with cycles of 1000 ms
2026-05-01T13:31:05 void appliance::Keeper::update_warnings(time_t)
WARNING: The web interface has no administration password
2026-05-01T13:44:51 void appliance::Keeper::update_warnings(time_t)
WARNING: /shares/external is nearly full
2026-05-01T13:46:20 void appliance::Keeper::take_acknowledgements()
INFO: acknowledged: The web interface has no administration password
2026-05-01T14:03:04 virtual void appliance::LoadSampler::summarize()
SUMMARY: load at most 1.31
2026-05-01T14:03:04 virtual void appliance::TrafficSampler::summarize()
SUMMARY: traffic 48213094 bytes in, 5120376 out
"""


def sample_state(log):
    """A household's appliance on an ordinary day. Its daemon paused once."""
    def utc(seconds):
        return time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(seconds))

    now = int(time.time())
    ages = [age for age in range(179, -1, -1) if not 120 < age < 138]
    escapes = str.maketrans({"<": "%3C", ">": "%3E", '"': "%22"})

    dice = random.Random(4)

    def wave(length):
        return [0.5 + 0.4 * math.sin(age / length) + 0.2 * dice.random() ** 3 for age in ages]

    def share(name, kind, users, status="active", location="internal"):
        return {"name": name, "type": kind, "status": status, "location": location,
                "folder": f"/shares/{location}/" + name.translate(escapes),
                "users": [{"name": user, "access": access} for user, access in users.items()]}

    return {
        "written": utc(now), "cycle": 20000,  # still fresh in the last picture
        "log": log, "names": ["127.0.0.1"],
        "system": {"hostname": "nas", "domain": "home.arpa", "platform": "zeb2",
                   "description": "Files of the household", "timezone": "Europe/Zurich",
                   "kernel": "Linux 6.1.0", "processors": 1,
                   "zone": "CEST", "utc_offset": 7200,
                   "uptime": 1023450.0, "memory_total": 262144000.0, "memory_free": 91750400.0,
                   "load": [0.42, 0.38, 0.31]},
        "board": {"revision": 3, "drives": 2, "temperature": "normal"},
        "history": {"boot": "1", "uptime": [int(now - age) % 100000 for age in ages],
                    "time": [utc(now - age) for age in ages],
                    "load": [0.8 * each for each in wave(23)],
                    "received": [7.4e6 * each for each in wave(31)],
                    "sent": [2.6e6 * each for each in wave(17)]},
        "interfaces": [
            {"name": "eth0", "mac": "00:00:5e:00:53:0a", "up": True, "received": 3.1e6,
             "sent": 1.2e6, "addresses": ["192.168.1.20", "fe80:0:0:0:200:5eff:fe00:530a"]},
            {"name": "eth1", "up": False, "received": 0.0, "sent": 0.0,
             "addresses": ["192.168.2.20"]}],
        "disks": [{"device": "sda", "present": True, "size": 5e11, "inactivityperiod": 20},
                  {"device": "sdb", "present": True, "size": 1e12, "inactivityperiod": 0}],
        "volumes": [{"folder": "/shares/internal", "mounted": True, "total": 4.9e11, "free": 1.7e11},
                    {"folder": "/shares/external", "mounted": True, "total": 9.8e11, "free": 6.1e10}],
        "shares": [
            share("Backups", "private", {"backup": "full"}, location="external"),
            share("Films", "public", {"guest": "readonly", "ben": "full"}),
            share("it's \"x\"", "private", {"clara": "full", "anna": "readonly"}),
            share("music", "public", {"guest": "readonly", "anna": "full"}),
            share("old scans", "private", {}, status="suspended"),
            share("Photos 1", "private", {"anna": "full"}),
            share("Photos 2", "private", {"anna": "full", "ben": "full"}),
            share("Photos 10", "private", {"anna": "full", "ben": "readonly"}),
            share("<script>", "private", {"clara": "full"})],
        "warnings": [
            {"id": "2-1", "text": "/shares/external is nearly full", "since": utc(now - 1200),
             "acknowledged": False},
            {"id": "1-1", "text": "The web interface has no administration password",
             "since": utc(now - 2000), "acknowledged": True}],
    }


if __name__ == "__main__":
    os.environ["PATH"] += ":/usr/sbin"  # where lighttpd is
    SOURCE, BUILD, PICTURES = (os.path.abspath(argument) for argument in sys.argv[1:4])
    AXE = f"{SOURCE}/build/browser/node_modules/axe-core/axe.min.js"
    unittest.main(argv=sys.argv[:1] + sys.argv[4:], verbosity=1)
