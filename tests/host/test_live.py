"""Looks at the live picture of a simulated instrument in a terminal.

Usage: test_live.py TORNVAL RECORDING [unittest options]
"""

import fcntl
import os
import pty
import select
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest

TORNVAL, RECORDING = sys.argv[1:3]


class LiveTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="tornval-test-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.environment = {**os.environ, "TORNVAL_HOME": self.folder,
                            "TORNVAL_HD00": self.folder, "LC_ALL": "C.UTF-8", "TERM": "xterm"}
        with open(os.path.join(self.folder, "TornvalC63.ini"), "w") as file:
            file.write(f"[LOG]\nENABLE=1\nTYPE=0\nLEVEL=4369\n[IM]\nSIMU=1\nDAT_SIMU_FILE={RECORDING}\n"
                       "SIMU_KELNOR_PROBE_CORRECTION=1000\nUNIT_3=mbar\n[BT]\nLOAD=1\nSIMU=1\n")

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
                          [b"SIMULATED", b"1234", b"milliohm 1", b"3333", b"mbar", b"CRouter::",
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
