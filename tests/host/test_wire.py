"""Captures sessions with the emulated instruments, reads them and runs them again.

Usage: test_wire.py TORNVAL LINKS LIBRARY [unittest options]
"""

import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time
import unittest

from home import HomeTest

TORNVAL, LINKS, LIBRARY = sys.argv[1:4]

# A host of its own: threads that measure different inputs at once, in any order.
HOST = f"""
import ctypes, threading
class Result(ctypes.Structure):
    _fields_ = [(n, ctypes.c_uint32) for n in "type step error fw status".split()]
lib = ctypes.CDLL({LIBRARY!r})
for name in ["LoadMeasDrivers", "GetInstantMeasure"]:
    getattr(lib, name).restype = Result
assert lib.LoadMeasDrivers(0x10).status == 0
values = {{}}
def measure(voie):
    value = ctypes.c_int32()
    for _ in range(5):
        result = lib.GetInstantMeasure(ctypes.byref(value), voie)
        values.setdefault(voie, []).append((result.status, value.value))
threads = [threading.Thread(target=measure, args=[voie]) for voie in range(8)]
[t.start() for t in threads]
[t.join() for t in threads]
print(sorted(values.items()))
"""


class WireTest(HomeTest):
    def setUp(self):
        super().setUp()
        self.session = self.path("session.pcapng")
        self.environment["TORNVAL_EMULATOR_STATE"] = self.path("calibration")
        # A name without a folder must be found although the drivers are given another home.
        shutil.copy(f"{LINKS}/virtual_link.so", self.folder)
        self.configure("[im]\nDRIVER_NAME=virtual_link.so\nCHANNEL_1=3\nSET_RESET_EXEC=/bin/true\n"
                       f"[BT]\nLOAD=1\nDRIVER_NAME={LINKS}/zondebtc6.dll\n"
                       f"[USB]\nLOAD=1\nDRIVER_NAME={LINKS}/zondeusbc6.dll\n")

    def run_program(self, *arguments, code=0):
        done = subprocess.run(arguments, env=self.environment, text=True, capture_output=True,
                              timeout=120, cwd=self.folder)
        if code is not None:
            self.assertEqual(done.returncode, code, f"{arguments}: {done.stdout}{done.stderr}")
        return done

    def tornval(self, *arguments, code=0):
        return self.run_program(TORNVAL, *arguments, code=code)

    def records(self, code=0):
        return json.loads(self.tornval("wire", self.session, "--json", code=code).stdout)["records"]

    @staticmethod
    def undated(text):
        """Without what may differ: date and start, and that a session is run again."""
        return [re.sub("(emulated|replayed|link .*|-before-.*)$", "", line) for line in text.splitlines()
                if not line.startswith(("# tornval ", "# start"))]

    def test_a_session_is_the_same_captured_and_run_again(self):
        probe = ["probe", "measure", "--param", "100", "--driver"]
        for command in [["measure", "--voie", "2", "--count", "3"], ["microohm"],
                        ["upload", "--blocks", "3", "--csv", "/dev/stdout"],
                        ["calibration", "set", "--voie", "3", "--a", "20000", "--b", "-5",
                         "--verify"],
                        [*probe, "2000", "--channel", "0"], [*probe, "3000", "--channel", "1"],
                        [sys.executable, "-c", HOST]]:
            program = [] if command[0] == sys.executable else [TORNVAL]
            plain = self.run_program(*program, *command)
            if "calibration" in command:
                os.remove(self.environment["TORNVAL_EMULATOR_STATE"])
            captured = self.tornval("capture", "--force", self.session, *command)
            self.assertEqual(self.undated(captured.stdout), self.undated(plain.stdout))
            self.assertIn("calls", captured.stderr)
            for _ in range(2):
                again = self.tornval("replay", "--fast", self.session, *command)
                self.assertEqual(self.undated(again.stdout), self.undated(plain.stdout))
            self.assertFalse([n for n in os.listdir(self.folder) if n.startswith("tornval-")])

    def test_failures_are_the_same_and_a_session_ends_like_a_dead_link(self):
        for fault in ["error-code=2001@212", "send-fails=21@212", "send-status=9@212",
                      "link-status=1@212", "fetch-fails=23@212", "count=3@212"]:
            self.environment["TORNVAL_EMULATOR_BOARD"] = fault
            captured = self.tornval("capture", "--force", self.session, "measure", "--voie", "1",
                                    code=3)
            self.environment["TORNVAL_EMULATOR_BOARD"] = ""
            again = self.tornval("replay", self.session, "measure", "--voie", "1", code=3)
            self.assertEqual(again.stderr.splitlines()[0], captured.stderr.splitlines()[0], fault)
        self.tornval("capture", self.session, "measure", "--voie", "1", code=5)  # it is there
        self.tornval("capture", "--force", self.session, "measure", "--voie", "1")
        for other in [["measure", "--voie", "2"], ["measure", "--voie", "1", "--count", "2"]]:
            document = json.loads(self.tornval("replay", self.session, *other, "--json",
                                               code=3).stdout)
            self.assertEqual(document["record"]["last_error"], 21)

    def test_frames_are_shown_field_by_field(self):
        self.tornval("capture", self.session, "measure", "--voie", "2")
        records = self.records()
        send = next(r for r in records if r["out"] and "send" in r["words"] and "212" in r["words"])
        fields = {f["name"]: (f["offset"], f["value"]) for f in send["fields"]}
        self.assertTrue(send["crc_good"])
        self.assertEqual((fields["input"], fields["size"]), ((12, "2"), (4, "8")))
        self.assertEqual(fields["crc"], (0, "0xBF0B good"))
        own = [r for r in records if r["call"] == send["call"]]
        self.assertEqual([r["out"] for r in own].count(True), 1)
        self.assertIn("announced", own[-1]["words"] + own[-2]["words"])
        answer = [r for r in records if r["words"].startswith("answer")][-1]
        fields = {f["name"]: (f["offset"], f["value"]) for f in answer["fields"]}
        self.assertTrue(answer["crc_good"])
        self.assertEqual((fields["input"], fields["link status"]), ((22, "2"), (0, "0 good")))
        text = self.tornval("wire", self.session).stdout
        self.assertIn("CRC good", text)
        with open(self.session, "r+b") as file:  # a bit of that frame
            place = file.read().index(bytes.fromhex("0bbfd4000800000000d4000002"))
            file.seek(place + 12)
            file.write(b"\x03")
        self.assertEqual([r["call"] for r in self.records() if r.get("crc_good") is False],
                         [send["call"]])

    def test_a_capture_is_whole_after_a_kill(self):
        process = subprocess.Popen(
            [TORNVAL, "capture", self.session, "upload", "--blocks", "1000000"],
            env=self.environment, start_new_session=True, stdout=subprocess.DEVNULL)
        until = time.monotonic() + 60
        while not os.path.exists(self.session) or os.path.getsize(self.session) < 100000:
            self.assertIsNone(process.poll())
            self.assertLess(time.monotonic(), until)
            time.sleep(0.01)
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        self.assertGreater(len(self.records()), 20)

    def test_a_hostile_file_is_refused(self):
        self.tornval("capture", self.session, "microohm")
        with open(self.session, "rb") as file:
            good = file.read()
        dice = random.Random(63)
        for i in range(60):
            bad = bytearray(good[:dice.randrange(len(good))] if i % 3 == 0 else good)
            for _ in range(i % 3 * 8):
                place = dice.randrange(len(bad))
                bad[place] = dice.choice([0, 0xFF, 0x7F, bad[place] ^ 1 << dice.randrange(8)])
            with open(self.session, "wb") as file:
                file.write(bad)
            read = self.tornval("wire", self.session, code=None)
            self.assertIn(read.returncode, [0, 5], read.stderr)
            if i % 6 == 1:
                again = self.tornval("replay", "--fast", self.session, "microohm", code=None)
                self.assertIn(again.returncode, [0, 2, 3, 4, 5], again.stderr)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]])
