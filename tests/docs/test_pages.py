"""Takes the commands, examples and frames out of the pages and does what they say.

Usage: test_pages.py SOURCE BUILD [unittest options]

Commands run in a copy of the products, so that what they write disturbs nobody.
"""

import contextlib
import os
import re
import select
import shutil
import subprocess
import sys
import tempfile
import time
import tty
import unittest
from pathlib import Path

SOURCE, BUILD = (Path(argument).resolve() for argument in sys.argv[1:3])
PAGES = [SOURCE / name for name in ("README.md", "CONTRIBUTING.md", "emulator/README.md",
                                    "bindings/python/README.md")] + sorted(
                                        (SOURCE / "docs").glob("*.md"))
# Scripts take too long, or change the machine: of these the help and the options are looked at.
SCRIPTS = ("script/", "fuzz/")
# Commands that end otherwise, as their page says.
EXIT_CODES = {"TORNVAL_HOME=build build/bin/tornval drivers": 2}
COMMAND = re.compile(r"^    ((?:[A-Z_0-9]+=\S+ )*"
                     r"(?:script/|fuzz/|build/|ctest|cc |c\+\+ |cmake|pip|printf|python3|tornval)\S*.*)$")
IN_TEXT = re.compile(r"`((?:(?:script|fuzz)/|ctest |tornval )[^`]+)`")


def commands():
    """(page, command) of all pages, without remarks behind a command."""
    for page in PAGES:
        fenced = False
        for line in page.read_text().splitlines():
            fenced ^= line.startswith("```")
            if fenced:
                continue
            if match := COMMAND.match(line):
                yield page.name, re.sub(r"\s+#.*$", "", match[1]).strip()
            yield from ((page.name, command) for command in IN_TEXT.findall(line))


def fenced(page, language):
    return re.findall(rf"^```{language}\n(.*?)^```", (SOURCE / page).read_text(), flags=re.M | re.S)


class PagesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = Path(tempfile.mkdtemp(prefix="tornval-pages-"))
        cls.addClassCleanup(shutil.rmtree, cls.scratch)
        (cls.scratch / "build").mkdir()
        for folder in ("bin", "lib", "links", "python"):
            shutil.copytree(BUILD / folder, cls.scratch / "build" / folder, symlinks=True,
                            ignore=shutil.ignore_patterns("*.ini", "test"))
        for entry in SOURCE.iterdir():
            if not entry.name.startswith(("build", ".")):
                (cls.scratch / entry.name).symlink_to(entry)
        cls.environment = {
            **{name: value for name, value in os.environ.items() if not name.startswith("TORNVAL_")},
            "TORNVAL_HD00": str(cls.scratch), "PYTHONPATH": str(cls.scratch / "build/python"),
            "PYTHONDONTWRITEBYTECODE": "1",
        }

    def shell(self, command, code=0, folder=None, **environment):
        done = subprocess.run(["bash", "-c", command], cwd=folder or self.scratch, text=True,
                              timeout=200, env={**self.environment, **environment},
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual(done.returncode, code, f"{command}: {done.stdout}")
        return done.stdout

    def test_commands_do_what_is_said(self):
        seen = list(commands())
        self.assertGreater(len(seen), 45)
        with contextlib.ExitStack() as running:
            for page, command in seen:
                program = next(word for word in command.split() if "=" not in word)
                with self.subTest(page=page, command=command):
                    if program.startswith((*SCRIPTS, "tornval")):
                        self.check_options(program, command)
                    elif program == "build/bin/tornval-instrument":
                        process = running.enter_context(subprocess.Popen(
                            command.split(), cwd=self.scratch, stdout=subprocess.PIPE, text=True,
                            env=self.environment, stderr=subprocess.DEVNULL))
                        running.callback(process.terminate)
                        self.assertRegex(process.stdout.readline(), "board: /dev/pts/")
                        self.assertRegex(process.stdout.readline(), "milliohm: /dev/pts/")
                    elif program == "ctest":
                        listed = self.shell(command.replace("Name", "docs_pages") + " -N",
                                            folder=SOURCE)
                        self.assertIn("Total Tests: 1\n", listed)
                    elif program == "pip":  # tests/install does it
                        self.assertTrue((SOURCE / command.split()[-1] / "pyproject.toml").exists())
                    else:
                        self.shell(command.replace("--install build ", f"--install {BUILD} "),
                                   EXIT_CODES.get(command, 0))

    def check_options(self, program, command):
        path = program if "/" in program else f"build/bin/{program}"
        folder = SOURCE if "/" in program else None
        text = self.shell(f"{path} --help", folder=folder)
        self.assertGreater(len(text.split()), 5, program)
        if program == "tornval":
            for name in re.findall(r" ([a-z]+)(?= |$)", command):
                text += self.shell(f"{path} {name} --help")
        for option in re.findall(r"(?<![\w-])--[a-z-]+", command):
            self.assertIn(option, text, command)

    def test_build_takes_presets_and_targets(self):
        fake = self.scratch / "fake"
        fake.mkdir()
        (fake / "cmake").write_text(f'#!/bin/sh\necho "$@" >>{self.scratch}/calls\n')
        (fake / "cmake").chmod(0o755)
        for line, calls in [
                ("", ["--preset release", "--build --preset release"]),
                ("release debug", ["--preset release", "--build --preset release",
                                   "--preset debug", "--build --preset debug"]),
                ("asan tornval", ["--preset asan", "--build --preset asan --target tornval"]),
                ("tornval", ["--preset release", "--build --preset release --target tornval"])]:
            self.shell(f"script/build {line}", folder=SOURCE,
                       PATH=f"{fake}:{self.environment['PATH']}")
            self.assertEqual((self.scratch / "calls").read_text().splitlines(), calls)
            (self.scratch / "calls").unlink()
        self.shell("script/build --nonsense", code=1, folder=SOURCE)

    def test_the_first_example_runs_as_pasted(self):
        (program,) = fenced("README.md", "c")
        (self.scratch / "examples").unlink()
        shutil.copytree(SOURCE / "examples", self.scratch / "examples")
        (self.scratch / "examples/minimal_host.c").write_text(program)
        lines = [command for page, command in commands() if "minimal_host" in command]
        self.assertEqual(len(lines), 2, lines)
        self.assertIn("input 2: 1234", self.shell(" && ".join(lines)))

    def test_the_python_example_runs_as_pasted(self):
        (program,) = fenced("README.md", "python")
        (self.scratch / "pasted.py").write_text(program + "print([s.size for s in samples])\n")
        self.assertEqual(self.shell(f"{sys.executable} pasted.py"), "1234\n[4200, 4200, 4200]\n")

    def test_the_fixture_of_the_python_page_works(self):
        page = (SOURCE / "bindings/python/README.md").read_text()
        test = "\n".join(line[4:] for line in page[page.index("    def test_"):].splitlines())
        (self.scratch / "test_pasted.py").write_text("import pytest\nimport tornval\n\n" + test)
        self.shell(f"{sys.executable} -m pytest -q -p no:cacheprovider -p tornval.pytest_plugin "
                   "test_pasted.py")

    def test_frames_are_real(self):
        """Each line with > goes to the emulated instrument, each with < is its answer."""
        process = subprocess.Popen(
            [BUILD / "bin/tornval-instrument", "--pty", "--set", "board:rows=2", "--set",
             "milliohm:version=MO 1.0"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.addCleanup(process.wait)
        self.addCleanup(process.terminate)
        self.addCleanup(process.stdout.close)
        ports = {}
        for _ in range(2):
            part, name = process.stdout.readline().strip().split(": ")
            ports[part] = os.open(name, os.O_RDWR | os.O_NOCTTY)
            self.addCleanup(os.close, ports[part])
            tty.setraw(ports[part])
        compared = 0
        for page in ("docs/wire-format.md", "docs/serial-line.md"):
            for line in (SOURCE / page).read_text().splitlines():
                match = re.match(r"    (?:module )?([<>])  ((?:[0-9a-f]{2} *)+)$", line)
                if not match:
                    continue
                frame = bytes.fromhex(match[2])
                port = ports["milliohm" if frame[9] in (0xA1, 0xFF) else "board"]
                if match[1] == ">":
                    self.read(port, 1 << 16, 0.05)
                    os.write(port, frame)
                else:
                    self.assertEqual(self.read(port, len(frame), 10).hex(" "), frame.hex(" "))
                    compared += 1
        self.assertGreater(compared, 8)

    @staticmethod
    def read(port, size, seconds):
        taken, end = b"", time.monotonic() + seconds
        while len(taken) < size and (left := end - time.monotonic()) > 0:
            if select.select([port], [], [], left)[0]:
                taken += os.read(port, size - len(taken))
        return taken

    def test_links_lead_somewhere(self):
        for page in PAGES:
            for target in re.findall(r"\]\(([^)#:]+)(?:#[^)]*)?\)", page.read_text()):
                self.assertTrue((page.parent / target).exists(), f"{page.name}: {target}")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
