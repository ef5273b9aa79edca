"""Runs the tornval program on simulated and emulated hardware.

Usage: test_tornval.py TORNVAL LINKS RECORDING [unittest options]
"""

import ast
import contextlib
import csv
import fcntl
import json
import math
import os
import pty
import shutil
import signal
import struct
import subprocess
import sys
import termios
import time
import unittest

from home import HomeTest

TORNVAL, LINKS, RECORDING = sys.argv[1:4]

SIMULATED = f"""[IM]
SIMU=1
DAT_SIMU_FILE={RECORDING}
SIMU_KELNOR_PROBE_CORRECTION=1000
[BT]
LOAD=1
SIMU=1
"""


def real(library, more=""):
    return f"[IM]\nDRIVER_NAME={library}\nCHANNEL_1=0\nCHANNEL_2=1\nCHANNEL_3=2\n{more}"


class TornvalTest(HomeTest):
    def setUp(self):
        super().setUp()
        self.configure(SIMULATED)

    def start(self, *arguments, **settings):
        return subprocess.Popen(
            [TORNVAL, *arguments], env=self.environment, text=True,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, **settings)

    def run_tornval(self, code, *arguments):
        process = self.start(*arguments)
        out, err = process.communicate(timeout=60)
        self.assertEqual(process.returncode, code, f"{arguments}: {out}{err}")
        return out, err

    def run_json(self, code, *arguments):
        document = json.loads(self.run_tornval(code, *arguments, "--json")[0])
        self.assertEqual((document["ok"], document["exit_code"]), (code == 0, code))
        return document

    def test_help_and_usage(self):
        commands = ["drivers", "init", "reset", "measure", "microohm", "generator", "upload",
                    "calibration get", "calibration set", "calibration save",
                    "calibration restore", "send", "probe measure", "probe record", "check", "paths"]
        for command in ["", *commands]:
            out, _ = self.run_tornval(0, *command.split(), "--help")
            self.assertIn("Exit codes", out)
        for wrong in ["", "nonsense", "measure", "measure --voie 13", "measure --voie x",
                      "upload --blocks 0", "send --driver 1 --command 256",
                      "measure --voie 1 --raw --driver 4000", "measure --voie 1 --param 3", "upload",
                      "measure --input 1 --driver XY", "calibration set --input 1 --a 0 --b 1",
                      "calibration set --input 1 --a 1.5 --b 1",
                      "calibration set --input 1 --a -1 --b 1",
                      "send --driver 4000 --command 209 --payload 123",
                      "calibration set --voie 1 --voie 2 --a 1 --b 1",
                      "calibration set --voie 1 --a 1e30 --b 1",
                      "probe measure --driver 2000 --channel 2 --param 1"]:
            out, err = self.run_tornval(1, *wrong.split())
            self.assertEqual(out, "", wrong)
            self.assertNotEqual(err, "", wrong)
        for wrong, meant in [("uplaod --blocks 1", "upload"), ("calibration sett --a 1", "set"),
                             ("measure --inptu 3", "--input"), ("upload --cvs=a", "--csv")]:
            self.assertIn(f'Did you mean "{meant}"?', self.run_tornval(1, *wrong.split())[1])
        self.assertEqual(self.run_json(1, "measure")["error"], "--input is required")
        for stdout, what in [("/dev/full", ["--help"]), ("/dev/full", ["drivers"])]:
            with open(stdout, "w") as file:
                self.assertEqual(subprocess.run([TORNVAL, *what], stdout=file, env=self.environment,
                                                stderr=subprocess.DEVNULL).returncode, 5)
        closed = subprocess.run(["sh", "-c", f"exec {TORNVAL} measure --input 1 >&-"],
                                env=self.environment, stderr=subprocess.DEVNULL)
        self.assertEqual(closed.returncode, 5)

    def test_simulated_instrument(self):
        drivers = self.run_json(0, "drivers")["drivers"]
        self.assertEqual([(d["id"], d["link_type"], d["kind"]) for d in drivers],
                         [(2000, "BT", "simulated"), (4000, "IM", "simulated"),
                          (5001, "MO", "simulated")])
        self.assertIn("SIMULATED", self.run_tornval(0, "measure", "--input", "2")[1])
        self.assertEqual(self.run_tornval(0, "measure", "--voie", "2", "--count", "3")[0],
                         "1234\n" * 3)
        self.assertEqual(self.run_json(0, "measure", "--voie", "0", "--raw")["values"], [1234])
        self.assertEqual(self.run_json(0, "microohm")["values"], [3333, 0, 0])
        version = self.run_json(0, "send", "--driver", "mo", "--command", "0xFF")
        self.assertEqual(version["text"], "Version Simule")
        measure = self.run_json(0, "send", "--driver", "4000", "--command", "212")
        self.assertEqual(measure["processed"], [1234])
        self.assertEqual(len(self.run_json(0, "calibration", "get")["pairs"]), 13)
        self.assertEqual(self.run_json(0, "generator", "--value", "7")["value"], 7)
        for command in ["init", "reset"]:
            self.assertEqual(len(self.run_json(0, command)["drivers"]), 3)
        probe = ["probe", "measure", "--driver", "2000", "--param", "1", "--channel"]
        self.assertEqual(self.run_json(0, *probe, "0")["value"], -252)
        self.run_json(3, *probe, "1")  # it has no samples there
        self.run_json(2, "probe", "measure", "--driver", "4000", "--param", "1", "--channel", "0")
        self.run_json(2, "send", "--driver", "77", "--command", "1")
        self.run_json(3, "calibration", "set", "--voie", "1", "--a", "1", "--b", "2", "--verify")

    def test_upload_is_the_recording(self):
        with open(RECORDING) as file:
            columns = [[float(n) for n in line.split()] for line in file]
        scale = 1000.0 * (0.1 * 0.1 * 0.1)
        replayed = [[int(c * 1000.0), int(b * 1000.0), int(1234.0 - d * 1000.0 * scale)]
                    for _, b, c, d in columns]
        emulated = [[int(n * 1000.0 + math.copysign(0.5, n)) for n in (c, b, d)]
                    for _, b, c, d in columns]
        self.environment["TORNVAL_EMULATOR_RECORDING"] = RECORDING
        for text, rows in [(SIMULATED, replayed), (real(f"{LINKS}/virtual_link.so"), emulated)]:
            self.configure(text)
            document = self.run_json(0, "upload", "--blocks", "15", "--csv", self.path("a.csv"),
                                     "--plot", self.path("a.png"), "--force")
            self.assertEqual(document["samples"], [4500] * 3)
            header, *written = self.table("a.csv")
            self.assertEqual(header, ["sample", "channel_0", "channel_1", "channel_2"])
            self.assertEqual([[int(n) for n in row] for row in written],
                             [[i, *row] for i, row in enumerate((rows * 2)[:4500])])
            with open(self.path("a.png"), "rb") as file:
                self.assertTrue(file.read().startswith(b"\x89PNG"))

    def table(self, name):
        with open(self.path(name)) as file:
            return list(csv.reader(line for line in file if not line.startswith("#")))

    def test_nothing_is_overwritten_or_half_written(self):
        upload = ["upload", "--blocks", "1", "--csv", self.path("a.csv")]
        self.run_json(0, *upload)
        self.run_json(5, *upload)
        self.run_json(0, *upload, "--append")
        self.assertEqual(len(self.table("a.csv")), 601)
        with open(self.path("a.csv")) as file:
            self.assertEqual(sum(line.startswith("# start: ") for line in file), 2)
        with open(self.path("old.csv"), "w") as file:
            file.write("sample,channel_0,channel_1,channel_2\n7,1,2,3")
        upload[-1] = self.path("old.csv")
        self.run_json(0, *upload, "--append")
        self.assertEqual(self.table("old.csv")[1], ["7", "1", "2", "3"])
        self.run_json(5, *upload, "--append", "--period", "0.5")
        self.configure(real(f"{LINKS}/virtual_link.so"))
        self.environment["TORNVAL_EMULATOR_RECORDING"] = RECORDING
        self.assertIn("driver: IM", self.run_json(5, *upload[:-1], self.path("a.csv"),
                                                  "--append")["error"])
        self.configure(real(f"{LINKS}/virtual_link.so", "SCALE_1=2\n"))
        self.assertIn("scaled", self.run_json(5, *upload, "--append")["error"])
        self.environment["TORNVAL_EMULATOR_BOARD"] = "no-answer@211"
        self.run_json(4, *upload, "--force")
        self.assertEqual(len(self.table("old.csv")), 302)
        self.assertEqual(sorted(os.listdir(self.folder)), ["TornvalC63.ini", "a.csv", "old.csv"])
        self.configure(SIMULATED)
        limited = subprocess.run(
            ["bash", "-c", f"trap '' XFSZ; ulimit -f 10; exec {TORNVAL} upload --blocks 9 --csv "
             + self.path("full.csv")], capture_output=True, text=True,
            env={**self.environment, "LLVM_PROFILE_FILE": os.devnull})
        self.assertEqual(limited.returncode, 5)
        self.assertTrue(limited.stderr.rstrip().endswith("full.csv.partial"))
        rows = self.table("full.csv.partial")
        self.assertIn(f" {len(rows) - 1} rows had arrived", limited.stderr)
        self.assertEqual({len(row) for row in rows}, {4})
        self.assertGreater(len(rows), 300)
        reader = subprocess.run(f"{TORNVAL} drivers | true", shell=True, env=self.environment,
                                capture_output=True, text=True)
        self.assertEqual(reader.stderr, "")

    def test_files_that_cannot_be_written(self):
        for option, name in [("--csv", "no/file"), ("--plot", "no/file.png"), ("--plot", "a.jpg")]:
            document = self.run_json(5, "upload", "--blocks", "1", option, self.path(name))
            self.assertIn(name, document["error"])
        self.run_json(5, "upload", "--blocks", "1", "--csv", "/dev/full")
        self.configure("[IM]\nSIMU=1\nDAT_SIMU_FILE=/nowhere\n")
        document = self.run_json(3, "upload", "--blocks", "1")
        self.assertIn("DAT_SIMU_FILE", document["error"])

    def test_checks_the_configuration(self):
        with open(f"{LINKS}/virtual_link.so", "rb") as file:
            foreign = bytearray(file.read())
        foreign[18] ^= 0xFF  # the machine
        with open(self.path("foreign.so"), "wb") as file:
            file.write(foreign)
        needs = "no link library is named"
        for text, *told in [
                (SIMULATED,),
                (f"stray=1\n[IM]\nSIMU=yes\nDRIVER_NAME={LINKS}/test/lacking_RS_Close.so\nCHANEL_1=3\n"
                 f"CHANNEL_2=13\n\n; a re{'m' * 9000}ark\nSET_RESET_EXEC=TornvalC63.ini\nUNIT_3=bar\n"
                 "SCALE_3=1,5\nTIMEOUT=99999999999\n[LOGG]\n[ BT ]\nLOAD=1\n[im]\nTIMEOUT=1\n",
                 (1, "not read"), (3, "counts as 0"), (4, "RS_Close"), (5, "CHANNEL_1 meant"),
                 (6, "range 0 to 12"), (8, "key mmm"), (9, "cannot be run"), (11, "no number"),
                 (12, "too large"), (13, "LOG meant"), (14, "BT meant"), (16, "only the first")),
                ("[IM]\nSIMU=\"1\"\n# remark\n", (2, "counts as 0"), (3, "begins with ;"), (0, needs)),
                ("\ufeff\n[IM]\nSIMU=1\nDAT_SIMU_FILE=/\n", (1, "not read"), (4, "no file")),
                ("\ufeff[IM]\nSIMU=1\n".encode("utf-16-le"), (1, "UTF-16"), (0, needs)),
                (b"[IM]\r\nSIMU=1\0\r\n[BT]\r\nLOAD=1\r\n", (2, "zero byte"), (0, "zondebtc6.dll")),
                ("", (1, "empty"), (0, needs)),
                (real("foreign.so", "[BT]\nDRIVER_NAME=nobody.loads.it\n"), (2, "another machine")),
                (real(f"{LINKS}/serial_link.so", "[SERIAL_LINK]\nPORT_1=/etc/passwd\nPORT_2=/no\n"),
                 (7, ""), (8, "No such file"))]:
            self.configure(text)
            code = 5 if told else 0
            found = {f["line"]: f["text"] for f in self.run_json(code, "check")["findings"]}
            for line, words in told:
                self.assertIn(words, found.pop(line))
            self.assertEqual(found, {}, text)
        os.remove(self.path("TornvalC63.ini"))
        os.mkdir(self.path("TornvalC63.ini"))
        self.assertIn("Is a directory", self.run_json(5, "check")["findings"][0]["text"])

    def test_json_stays_alone_on_standard_output(self):
        self.configure("[LOG]\nENABLE=1\nTYPE=1\nLEVEL=4369\n" + SIMULATED)
        out, err = self.run_tornval(0, "drivers", "--json")
        json.loads(out)
        self.assertIn("CRouter::", err)

    def test_progress_only_on_a_terminal(self):
        upload = ["upload", "--blocks", "3"]
        self.assertNotIn("blocks", self.run_tornval(0, *upload)[1])
        self.assertIn("100%", self.run_tornval(0, *upload, "--progress")[1])
        pid, master = pty.fork()
        if pid == 0:
            os.execve(TORNVAL, ["tornval", *upload], self.environment)
        fcntl.ioctl(master, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 80, 0, 0))
        shown = b""
        with contextlib.suppress(OSError):  # the end of a terminal
            while block := os.read(master, 65536):
                shown += block
        os.close(master)
        self.assertEqual(os.waitpid(pid, 0)[1], 0)
        self.assertIn(b"blocks: ", shown)

    def test_recording_ends_properly_on_a_signal(self):
        for stop in [signal.SIGINT, signal.SIGTERM, signal.SIGHUP]:
            name = self.path(f"{stop.name}.csv")
            process = self.start("probe", "record", "--driver", "BT", "--channel", "1",
                                 "--follow", "--interval", "20", "--csv", name, "--json")
            while not os.path.exists(name + ".partial") or \
                    os.path.getsize(name + ".partial") < 20000:
                self.assertIsNone(process.poll())
                time.sleep(0.01)
            process.send_signal(stop)
            *reads, document = map(json.loads, process.communicate(timeout=30)[0].splitlines())
            self.assertEqual(process.returncode, 128 + stop)
            self.assertTrue(document["stopped"])
            self.assertEqual(reads[-1]["rows"], document["rows"])
            header, *rows = self.table(f"{stop.name}.csv")
            self.assertEqual(header, ["sample", "channel_0", "channel_1"])
            self.assertEqual([row[1:] for row in rows], [["-252", ""]] * document["rows"])
            self.assertEqual(document["rows"], 798 * document["reads"])

    def await_handler(self, process, number):
        """Waits until a program, which may start slowly, obeys a signal."""
        while True:
            self.assertIsNone(process.poll())
            with open(f"/proc/{process.pid}/status", encoding="ascii") as status:
                caught = next(line for line in status if line.startswith("SigCgt:"))
            if int(caught.split()[1], 16) & 1 << (number - 1):
                return
            time.sleep(0.01)

    def test_a_signal_ends_every_wait(self):
        self.configure(real(f"{LINKS}/virtual_link.so"))
        self.environment["TORNVAL_EMULATOR_BOARD"] = "no-answer@212,no-answer@211"
        for command, stop in [(["measure", "--input", "1"], signal.SIGINT),
                              (["upload", "--blocks", "3"], signal.SIGHUP)]:
            process = self.start(*command)
            self.await_handler(process, stop)
            time.sleep(1)
            self.assertIsNone(process.poll())
            process.send_signal(stop)
            begin = time.monotonic()
            process.communicate(timeout=30)
            self.assertEqual(process.returncode, 128 + stop)
            self.assertLess(time.monotonic() - begin, 2)  # half a second, and a busy machine

    def reasons(self, code=2):
        """What is told about each driver; the terminal shows all that the document has."""
        out, err = self.run_tornval(code, "drivers", "--json")
        told = {}
        for reason in json.loads(out)["reasons"]:
            self.assertIn("  - " + reason["words"], err)
            told[reason["about"]] = told.get(reason["about"], "") + reason["words"] + "\n"
        return told

    def test_says_why_a_driver_is_missing(self):
        self.configure(real("nolink.so", "[BT]\nLOAD=1\n"))
        reasons = self.reasons()
        for link in ["MO", "IM"]:
            self.assertIn("system error 126", reasons[link])
            self.assertIn("tried " + self.path("nolink.so"), reasons[link])
            self.assertIn("tried nolink.so: ", reasons[link])
        self.assertIn(self.path("zondebtc6.dll"), reasons["BT"])
        document = self.run_json(2, "measure", "--voie", "1")
        self.assertIn("nolink.so", document["reasons"][0]["text"])
        self.run_json(2, "init")

        self.configure(real(""))
        self.assertIn("no link library is named", self.reasons()["IM"])
        for entry in ["RS_Init", "RS_DeviceIoControl", "RS_Close", "RS_Init_Ex",
                      "RS_DeviceIoControl_Ex", "RS_Close_Ex"]:
            self.configure(real(f"{LINKS}/test/lacking_{entry}.so"))
            self.assertIn(f"has no entry point {entry} (", self.reasons()["MO"])

        # A port that does not open: the library keeps the module, and it is not among what is there.
        self.configure(f"[IM]\nDRIVER_NAME={LINKS}/serial_link.so\n[SERIAL_LINK]\nPORT_1=/no1\n"
                       "PORT_2=/no2\n")
        document = self.run_json(2, "drivers")
        self.assertEqual((document["drivers"], [d["link_type"] for d in document["not_reachable"]]),
                         ([], ["MO"]))
        self.assertIn("/no2: No such file or directory; serial ports here: ", self.reasons()["MO"])
        for command in ["microohm", "init", "send --driver MO --command 255"]:
            self.assertIn("does not reach its hardware: serial /no2",
                          self.run_json(2, *command.split())["error"])
        if "monitor" in self.run_tornval(0, "--help")[0]:  # not in a build for another processor
            self.assertIn("reaches", self.run_tornval(2, "monitor")[1])
        os.remove(self.path("TornvalC63.ini"))
        self.assertIn(self.path("TornvalC63.ini"), self.reasons()["IM"])
        self.assertIn("is not loaded", self.run_json(2, "measure", "--voie", "1")["error"])

    def test_real_drivers_and_their_failures(self):
        self.environment["TORNVAL_EMULATOR_STATE"] = self.path("calibration")
        # An emulated link is known by itself, not by its name.
        shutil.copy(f"{LINKS}/virtual_link.so", self.path("renamed.so"))
        self.configure(real("renamed.so", f"[BT]\nLOAD=1\nDRIVER_NAME={LINKS}/zondebtc6.dll\n"))
        self.assertEqual([d["kind"] for d in self.run_json(0, "drivers")["drivers"]],
                         ["emulated"] * 3)
        self.configure(real(f"{LINKS}/virtual_link.so", "SET_RESET_EXEC=/bin/true\n"))
        document = self.run_json(0, "calibration", "set", "--voie", "3", "--a", "20000", "--b",
                                 "-5", "--voie", "12", "--a", "7", "--b", "8", "--verify",
                                 "--keep", self.path("before.csv"))
        self.assertEqual(document["pairs"],
                         [{"input": 3, "a": 20000.0, "b": -5.0, "is": "new"},
                          {"input": 12, "a": 7.0, "b": 8.0, "is": "new"}])
        self.assertEqual(self.run_json(0, "calibration", "get")["pairs"][12]["b"], 8.0)
        self.run_json(0, "calibration", "save", self.path("now.csv"))
        restore = ["calibration", "restore", self.path("before.csv")]
        self.run_json(0, *restore, "--dry-run")
        self.assertEqual(self.run_json(0, "calibration", "get")["pairs"][12]["b"], 8.0)
        self.run_json(0, *restore, "--keep", self.path("again.csv"), "--verify")
        self.assertEqual(self.table("again.csv"), self.table("now.csv"))
        self.assertEqual(self.run_json(0, *restore)["written"], 0)
        self.environment["TORNVAL_EMULATOR_BOARD"] = "error-code=2001@214"
        document = self.run_json(3, "calibration", "set", "--input", "3", "--a", "9", "--b", "9",
                                 "--keep", self.path("third.csv"))
        self.assertEqual(document["pairs"][0]["is"], "new")
        self.assertIn("not committed", document["reasons"][-1]["text"])
        self.assertIn("third.csv", document["error"])
        self.environment["TORNVAL_EMULATOR_BOARD"] = ""
        self.run_json(3, "generator", "--value", "1")
        faults = [("error-code=2001@212", 3, "2001"), ("send-fails=21@212", 3, "not ready"),
                  ("send-status=9@212", 3, "status word 9"), ("link-status=1@212", 3, "status field"),
                  ("fetch-fails=23@212", 3, "checksum"), ("no-answer@212", 4, "time-out")]
        for fault, code, words in faults:
            self.environment["TORNVAL_EMULATOR_BOARD"] = fault
            document = self.run_json(code, "measure", "--voie", "1")
            self.assertIn(words, document["error"], fault)
            self.assertEqual(document["record"]["status"], 1)
        self.environment["TORNVAL_EMULATOR_BOARD"] = "error-code=2001@211"
        self.run_json(3, "upload", "--blocks", "2", "--csv", self.path("a.csv"))
        self.assertFalse(os.path.exists(self.path("a.csv")))
        self.environment["TORNVAL_EMULATOR_MILLIOHM"] = "measure-status=0x81"
        self.assertIn("0x81", self.run_json(3, "microohm")["error"])
        self.configure(real(f"{LINKS}/virtual_link.so"))
        document = self.run_json(3, "calibration", "set", "--voie", "3", "--a", "1", "--b", "1")
        self.assertIn("SET_RESET_EXEC", document["error"])
        self.assertEqual(document["written"], 0)
        self.configure(real(f"{LINKS}/virtual_link.so", "SET_RESET_EXEC=TornvalC63.ini\n"))
        document = self.run_json(3, "calibration", "set", "--voie", "3", "--a", "1", "--b", "1")
        self.assertIn("cannot be run", document["error"])

    def test_both_channels_of_a_probe_in_its_units(self):
        self.configure(f"[USB]\nLOAD=1\nDRIVER_NAME={LINKS}/zondeusbc6.dll\nSAMPLE_PERIOD=0.5\n"
                       "UNIT_0=mV\nUNIT_1=Hz\nSCALE_1=0.1\nOFFSET_1=-8\n")
        self.environment["TORNVAL_EMULATOR_RECORDING"] = RECORDING
        record = ["probe", "record", "--driver", "USB", "--channel", "1", "--reads", "3", "--csv",
                  self.path("p.csv"), "--force"]
        self.run_json(0, *record, "--plot", self.path("p.svg"))
        names, *rows = self.table("p.csv")
        self.assertEqual(names, ["time_s", "channel_0", "channel_1"])
        self.assertEqual([row[0] for row in rows[:3]], ["0", "0.5", "1"])
        self.configure(f"[USB]\nLOAD=1\nDRIVER_NAME={LINKS}/zondeusbc6.dll\n")
        self.run_json(0, *record, "--format", "npy", "--plot", self.path("q.png"))
        with open(self.path("p.csv"), "rb") as file:  # an array by now
            self.assertEqual(file.read(8), b"\x93NUMPY\1\0")
            head = ast.literal_eval(file.read(struct.unpack("<H", file.read(2))[0]).decode())
            self.assertEqual(file.tell() % 64, 0)
            raw = list(struct.iter_unpack("<3d", file.read()))
        self.assertEqual(head, {"descr": [(n, "<f8") for n in ["sample", *names[1:]]],
                                "fortran_order": False, "shape": (len(rows),)})
        self.assertGreater(len({row[2] for row in raw}), 3)
        self.assertEqual([[float(n) for n in row[1:]] for row in rows],
                         [[a, round(b * 0.1 - 8, 1)] for _, a, b in raw])
        with open(self.path("p.svg")) as file:
            picture = file.read()
        for words in ["channel 0, mV", "channel 1, Hz", "time in s"]:
            self.assertIn(words, picture)
        self.run_json(1, *record[:-1], "--format", "npy", "--append")

    def test_a_signal_ends_the_drawing(self):
        with open(self.path("gnuplot"), "w") as file:
            file.write(f"#!/bin/sh\ntouch {self.path('drawing')}\nexec sleep 60\n")
        os.chmod(self.path("gnuplot"), 0o755)
        self.environment["PATH"] = self.folder + ":" + self.environment["PATH"]
        process = self.start("upload", "--blocks", "1", "--csv", self.path("a.csv"), "--plot",
                             self.path("a.png"))
        while not os.path.exists(self.path("drawing")):
            time.sleep(0.01)
        process.send_signal(signal.SIGINT)
        begin = time.monotonic()
        process.communicate(timeout=30)
        self.assertEqual(process.returncode, 130)
        self.assertLess(time.monotonic() - begin, 2)
        self.assertEqual(len(self.table("a.csv")), 301)
        self.assertFalse([name for name in os.listdir(self.folder) if name.startswith("a.png")])

    def test_probe_statuses(self):
        self.configure(f"[USB]\nLOAD=1\nDRIVER_NAME={LINKS}/zondeusbc6.dll\n")
        record = ["probe", "record", "--driver", "3000", "--channel", "0", "--reads", "4",
                  "--csv", self.path("p.csv")]
        self.environment["TORNVAL_EMULATOR_USB"] = "status=44@33*1"
        document = self.run_json(3, *record, "--mask", "0x40", "--force")
        self.assertEqual((document["reads"], document["stopped"]), (4, True))
        self.assertGreater(document["rows"], 0)
        self.environment["TORNVAL_EMULATOR_USB"] = "status=45@33*1"
        document = self.run_json(3, *record, "--mask", "0x40", "--force")
        self.assertIn("45", document["error"])


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]])
