"""Looks at the live picture of a simulated instrument: the page in headless Chromium, the terminal.

Usage: test_live.py TORNVAL RECORDING [unittest options]. With TORNVAL_PICTURE=FILE the page's picture
is kept there.
"""

import base64
import contextlib
import fcntl
import http.client
import json
import os
import pty
import select
import shutil
import signal
import socket
import struct
import subprocess
import sys
import termios
import time
import unittest
import urllib.parse

from home import HomeTest

TORNVAL, RECORDING = sys.argv[1:3]
BROWSER = next(filter(None, map(shutil.which, ["chromium-headless-shell", "chromium"])), None)


class Browser:
    """One page, driven over the two pipes that the browser reads and writes."""

    def __init__(self, folder, address):
        to_browser, self.out = os.pipe()
        self.into, from_browser = os.pipe()

        def place():
            os.dup2(to_browser, 103)
            os.dup2(from_browser, 104)
            os.dup2(103, 3)
            os.dup2(104, 4)

        self.process = subprocess.Popen(
            [BROWSER, "--headless", "--no-sandbox", "--disable-gpu", "--remote-debugging-pipe",
             "--window-size=1240,860", f"--user-data-dir={folder}/browser", "about:blank"],
            preexec_fn=place, close_fds=False, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(to_browser)
        os.close(from_browser)
        self.number, self.session, self.rest = 0, {}, b""
        target = self.call("Target.createTarget", url=address)["targetId"]
        self.session = {"sessionId": self.call("Target.attachToTarget", targetId=target,
                                               flatten=True)["sessionId"]}

    def call(self, method, **params):
        self.number += 1
        message = {"id": self.number, "method": method, "params": params, **self.session}
        os.write(self.out, json.dumps(message).encode() + b"\0")
        until = time.monotonic() + 60
        while True:
            while b"\0" not in self.rest:
                if not select.select([self.into], [], [], max(0, until - time.monotonic()))[0]:
                    raise TimeoutError(method)
                self.rest += os.read(self.into, 65536)
            answer, self.rest = self.rest.split(b"\0", 1)
            answer = json.loads(answer)
            if answer.get("id") == self.number:
                return answer["result"]

    def eval(self, expression):
        return self.call("Runtime.evaluate", expression=expression, awaitPromise=True,
                         returnByValue=True)["result"].get("value")

    def wait_for(self, expression):
        until = time.monotonic() + 60
        while not self.eval(expression):
            if time.monotonic() > until:
                raise TimeoutError(expression + ": " + self.eval("document.body.innerText"))
            time.sleep(0.1)

    def close(self):
        self.process.kill()
        self.process.wait()
        os.close(self.out)
        os.close(self.into)


class LiveTest(HomeTest):
    def setUp(self):
        super().setUp()
        self.environment |= {"LC_ALL": "C.UTF-8", "TERM": "xterm"}
        self.configure(f"[LOG]\nENABLE=1\nTYPE=0\nLEVEL=4369\n[IM]\nSIMU=1\nDAT_SIMU_FILE={RECORDING}\n"
                       "SIMU_KELNOR_PROBE_CORRECTION=1000\nUNIT_3=mbar\n[BT]\nLOAD=1\nSIMU=1\n")

    def serve(self, *arguments):
        server = subprocess.Popen([TORNVAL, "serve", "--interval", "50", *arguments], text=True,
                                  env=self.environment, stdout=subprocess.PIPE)
        self.addCleanup(server.wait)
        self.addCleanup(server.kill)
        self.addCleanup(server.stdout.close)
        self.address = urllib.parse.urlsplit(server.stdout.readline().strip())
        return server

    def ask(self, path, method="GET", token=None, **headers):
        connection = http.client.HTTPConnection(self.address.netloc, timeout=20)
        with contextlib.closing(connection):
            query = self.address.query if token is None else "token=" + token
            connection.request(method, f"{path}?{query}", headers=headers)
            answer = connection.getresponse()
            return answer.status, answer.read() if path != "/events" else b""

    def test_only_who_may_ask_is_answered(self):
        server = self.serve()
        port = self.address.port
        self.assertEqual(self.ask("/")[0], 200)
        self.assertEqual(self.ask("/", Host=f"localhost:{port}")[0], 200)
        self.assertEqual(self.ask("/", Origin=f"http://127.0.0.1:{port}")[0], 200)
        for path in ["/", "/app.js", "/events"]:
            for more in [{"token": ""}, {"token": self.address.query[6:-1] + "g"},
                         {"Host": f"evil.example:{port}"}, {"Origin": "http://evil.example"},
                         {"Origin": "null"}]:
                self.assertEqual(self.ask(path, **more)[0], 403, more)
        self.assertEqual(self.ask("/start", "POST")[0], 403)  # without --control
        self.assertEqual(self.ask("/nothing")[0], 404)
        with self.assertRaises(OSError):  # not beyond this machine's own loop
            socket.create_connection((socket.gethostbyname(socket.gethostname()), port), 1) \
                if not socket.gethostbyname(socket.gethostname()).startswith("127.") else \
                socket.create_connection(("127.0.0.2", port), 1)

        # Listeners that do not read are dropped, others are served, and too many are refused.
        def listen():
            listener = socket.create_connection((self.address.hostname, port))
            self.addCleanup(listener.close)
            listener.sendall(f"GET /events?{self.address.query} HTTP/1.1\r\nHost: 127.0.0.1:{port}"
                             "\r\n\r\n".encode())
            return listener
        listeners = [listen() for _ in range(24)]
        for listener in listeners:
            self.assertIn(b"200", listener.recv(16))
        self.assertEqual(self.ask("/events")[0], 503)
        self.assertEqual(self.ask("/")[0], 200)
        begin = time.monotonic()
        server.send_signal(signal.SIGTERM)
        self.assertEqual(server.wait(20), 128 + signal.SIGTERM)
        self.assertLess(time.monotonic() - begin, 10)

    def test_the_page_shows_the_instrument(self):
        if BROWSER is None:
            self.fail("no Chromium here: apt-get install chromium-headless-shell (script/bootstrap)")
        server = self.serve("--control")
        browser = Browser(self.folder, self.address.geturl())
        self.addCleanup(browser.close)
        text = "document.getElementById('%s').innerText"
        browser.wait_for(text % "values" + ".includes('1234')")
        self.assertIn("3333", browser.eval(text % "values"))
        self.assertIn("mbar", browser.eval(text % "values"))
        self.assertRegex(browser.eval(text % "drivers"), r"4000\s+IM.*SIMULATED\s+ready")
        browser.wait_for(text % "trace" + ".includes('CRouter::')")
        browser.eval("document.getElementById('start').click()")
        browser.wait_for("sampleData[0].length > 3000")
        self.assertIn("running", browser.eval(text % "acquisition"))
        # Meanwhile the board is not asked for anything else, and the module is.
        browser.wait_for(text % "values" + ".includes('acquiring')")
        self.assertNotIn("1234", browser.eval("document.querySelector('#values tbody').rows[3]"
                                              ".cells[1].innerText"))
        self.assertIn("3333", browser.eval(text % "values"))
        self.assertEqual(browser.eval("document.querySelectorAll('#failures li').length"), 1)
        with open(RECORDING) as file:
            first = [int(float(number) * 1000.0) for number in file.readline().split()[1:3]]
        # The first block has 300 rows: none of them is thinned away.
        self.assertEqual(browser.eval("sampleData.slice(1, 3).map((list) => list[0])"), first[::-1])
        if "TORNVAL_PICTURE" in os.environ:
            with open(os.environ["TORNVAL_PICTURE"], "wb") as file:
                file.write(base64.b64decode(browser.call("Page.captureScreenshot")["data"]))
        browser.eval("document.getElementById('stop').click()")
        browser.wait_for(text % "acquisition" + ".startsWith('not running')")
        browser.wait_for("!" + text % "values" + ".includes('acquiring')")
        self.assertTrue(browser.eval("performance.getEntriesByType('resource')"
                                     ".every((entry) => entry.name.startsWith(location.origin))"))
        server.send_signal(signal.SIGINT)
        self.assertEqual(server.wait(20), 128 + signal.SIGINT)

    def test_the_terminal_is_given_back(self):
        for end, code in [(b"q", 0), (signal.SIGTERM, 128 + 15), (b"\x03", 128 + 2),
                          (signal.SIGHUP, 128 + 1), (signal.SIGSEGV, -signal.SIGSEGV)]:
            master, slave = pty.openpty()
            fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 30, 100, 0, 0))
            before = termios.tcgetattr(slave)
            process = subprocess.Popen([TORNVAL, "monitor", "--interval", "50"], stdin=slave,
                                       stdout=slave, stderr=slave, env=self.environment,
                                       preexec_fn=lambda: (os.setsid(), fcntl.ioctl(
                                           0, termios.TIOCSCTTY, 0)))
            shown, until = b"", time.monotonic() + 60
            while not all(word in shown for word in
                          [b"SIMULATED", b"1234", b"milliohm 1", b"3333", b"mbar", b"CRouter::", b"failed", b"BT channel 1: ",
                           "▁".encode()]):
                self.assertLess(time.monotonic(), until, shown)
                if select.select([master], [], [], 0.1)[0]:
                    shown += os.read(master, 65536)
            self.assertNotEqual(termios.tcgetattr(slave), before)
            os.write(master, end) if isinstance(end, bytes) else process.send_signal(end)
            while process.poll() is None:
                if select.select([master], [], [], 0.1)[0]:
                    shown += os.read(master, 65536)
                self.assertLess(time.monotonic(), until)
            while select.select([master], [], [], 0.1)[0]:
                shown += os.read(master, 65536)
            self.assertEqual(process.returncode, code)
            self.assertEqual(termios.tcgetattr(slave), before, end)
            self.assertGreater(shown.rfind(b"\x1b[?1049l"), shown.rfind(b"\x1b[?1049h"), end)
            self.assertIn(b"\x1b[?25h", shown[shown.rfind(b"\x1b[?1049h"):])
            os.close(master)
            os.close(slave)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
