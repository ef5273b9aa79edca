"""Installs into a scratch folder, moves it, and builds and runs the examples against it as strangers
do: by CMake, by pkg-config, by plain flags, from Python.

Usage: test_install.py SOURCE BUILD [unittest options]
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

SOURCE, BUILD = (Path(argument).resolve() for argument in sys.argv[1:3])
EXAMPLES = SOURCE / "examples"
HERE = Path(__file__).resolve().parent
C_OUTPUT = "4000 IM IM\n5001 MO MO\ninput 2: 1234\n"
CPP_OUTPUT = "block 2: 300 300 300 samples"


class InstallTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = Path(tempfile.mkdtemp(prefix="tornval-install-"))
        cls.addClassCleanup(shutil.rmtree, cls.scratch)
        subprocess.run(["cmake", "--install", BUILD, "--prefix", cls.scratch / "first"],
                       check=True, stdout=subprocess.DEVNULL)
        cls.prefix = cls.scratch / "moved here"
        (cls.scratch / "first").rename(cls.prefix)
        cls.lib = next(cls.prefix.glob("**/libTornvalC63.so")).parent
        cls.modules = next(cls.prefix.glob("**/tornval/__init__.py")).parent.parent
        cls.environment = {
            **{name: value for name, value in os.environ.items() if not name.startswith("TORNVAL_")},
            "TORNVAL_HOME": str(EXAMPLES), "TORNVAL_HD00": str(cls.scratch),
            "PKG_CONFIG_PATH": str(cls.lib / "pkgconfig"),
        }

    def run_in_scratch(self, *command, **environment):
        done = subprocess.run([*map(str, command)], cwd=self.scratch, text=True, timeout=200,
                              env={**self.environment, **environment},
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual(done.returncode, 0, f"{command}: {done.stdout}")
        return done.stdout

    def test_found_by_cmake(self):
        self.run_in_scratch("cmake", "-S", HERE / "consumer", "-B", "by-cmake", "-G", "Ninja",
                            f"-DCMAKE_PREFIX_PATH={self.prefix}", f"-DEXAMPLES={EXAMPLES}")
        self.run_in_scratch("cmake", "--build", "by-cmake")
        self.assertEqual(self.run_in_scratch("by-cmake/c_host"), C_OUTPUT)
        self.assertIn(CPP_OUTPUT, self.run_in_scratch("by-cmake/cpp_host"))
        # A link library of a stranger is taken, and its reason reaches the host.
        (self.scratch / "stranger").mkdir()
        (self.scratch / "stranger/TornvalC63.ini").write_text(
            f"[IM]\nDRIVER_NAME={self.scratch}/by-cmake/liblink.so\n")
        told = self.run_in_scratch(
            sys.executable, "-c",
            "import tornval\n"
            "with tornval.Instrument(home='stranger', partial=True) as i: print(i.reasons)",
            PYTHONPATH=str(self.modules))
        self.assertIn("silent_link has nothing behind it", told)

    def test_found_by_pkg_config_and_by_plain_flags(self):
        flags = self.run_in_scratch("pkg-config", "--cflags", "--libs", "TornvalC63",
                                    "TornvalC63Text")
        # pkg-config quotes a blank in a path with a backslash.
        by_name = re.split(r"(?<!\\) ", flags.strip())
        by_name = [flag.replace("\\ ", " ") for flag in by_name]
        by_hand = [f"-I{self.prefix}/include", f"-L{self.lib}", "-lTornvalC63", "-lTornvalC63Text"]
        for flags in (by_name, by_hand):
            for compiler, source, output in [("cc", "minimal_host.c", C_OUTPUT),
                                             ("c++", "upload_host.cpp", CPP_OUTPUT)]:
                self.run_in_scratch(compiler, EXAMPLES / source, *flags, f"-Wl,-rpath,{self.lib}",
                                    "-o", "host")
                self.assertIn(output, self.run_in_scratch("./host"))

    def test_taken_in_as_source(self):
        self.run_in_scratch("cmake", "-S", HERE / "consumer", "-B", "by-source", "-G", "Ninja",
                            f"-DSOURCE={SOURCE}", f"-DEXAMPLES={EXAMPLES}",
                            "-DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON",
                            "-DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON",
                            "-DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON")
        built = self.run_in_scratch("ninja", "-C", "by-source", "-n")
        self.assertIn("libTornvalC63.so", built)
        for unwanted in ["tests/", "emulator/", "bin/tornval", "host/", "instrument/", "bench/"]:
            self.assertNotIn(unwanted, built.replace("by-source/_deps/", ""))

    def test_the_tools_find_libraries_and_links(self):
        self.assertIn("0.1.0", self.run_in_scratch(self.prefix / "bin/tornval", "--version"))
        (self.scratch / "home").mkdir()
        (self.scratch / "home/TornvalC63.ini").write_text("[IM]\nDRIVER_NAME=virtual_link.so\n")
        measured = self.run_in_scratch(self.prefix / "bin/tornval", "measure", "--input", "2",
                                       TORNVAL_HOME=str(self.scratch / "home"))
        self.assertEqual(measured, "3002\n")

    def test_demo_leaves_what_is_said(self):
        for mode in ([], ["--real-drivers"], ["--serial"]):
            self.run_in_scratch(SOURCE / "script/demo", "--installed", self.scratch / "demo", *mode,
                                PATH=f"{self.prefix}/bin:{os.environ['PATH']}")
            for name in ("acquisition.csv", "acquisition.png", "log_tornval.txt"):
                self.assertGreater((self.scratch / "demo" / name).stat().st_size, 1000, name)

    def test_python(self):
        environment = {"PYTHONPATH": str(self.modules), "MPLCONFIGDIR": str(self.scratch)}
        drawn = self.run_in_scratch(sys.executable, EXAMPLES / "replay.py", "replay.png",
                                    **environment)
        self.assertIn("channel 2: 4200 samples", drawn)
        self.assertGreater((self.scratch / "replay.png").stat().st_size, 10000)
        live = self.run_in_scratch(sys.executable, EXAMPLES / "live.py", "3", **environment)
        self.assertEqual(live.count("input 2: 3002"), 3, live)
        self.assertIn("code 17", live)
        # The fixtures are there without being asked for, and the module's own tests hold here too.
        self.run_in_scratch(sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider",
                            HERE.parent / "python/test_module.py", **environment)

    def test_pip_installs_the_module(self):
        venv, source = self.scratch / "venv", self.scratch / "module"
        python = venv / "bin/python"
        self.run_in_scratch(sys.executable, "-m", "venv", "--without-pip", "--system-site-packages",
                            venv)
        # pip writes beside what it builds.
        shutil.copytree(SOURCE / "bindings/python", source)
        self.run_in_scratch(python, "-m", "pip", "install", "--no-index", "--no-build-isolation",
                            source)
        listed = self.run_in_scratch(
            python, "-c", "import importlib.metadata as m\nfor f in m.files('tornval'): print(f)")
        self.assertEqual({line for line in listed.split() if line.startswith("tornval/")
                          and "__pycache__" not in line},
                         {f"tornval/{file.name}" for file in (SOURCE / "bindings/python/tornval")
                          .iterdir() if file.suffix == ".py" or file.name == "py.typed"})
        # The libraries of a build are found by the variable, those in the environment by themselves.
        subprocess.run(["cmake", "--install", BUILD, "--prefix", venv, "--component", "runtime"],
                       check=True, stdout=subprocess.DEVNULL)
        (self.scratch / "test_host.py").write_text(
            "import tornval\n"
            "def test_host(tornval_emulator, tornval_instrument):\n"
            "    assert tornval_instrument.measure(2) == 3002\n"
            "    print(tornval.__file__, tornval.library_folder())\n"
            "    print((tornval_emulator.home / 'TornvalC63.ini').read_text())\n")
        for variable, folder, links in [
                (str(BUILD / "lib"), BUILD / "lib", BUILD / "links"),
                ("", venv / "lib", venv / "lib/tornval/links")]:
            told = self.run_in_scratch(python, "-m", "pytest", "-q", "-s", "-p", "no:cacheprovider",
                                       "test_host.py", TORNVAL_LIBRARY_DIR=variable)
            self.assertRegex(told, rf"{venv}/lib/python\S+/tornval/__init__.py {folder}\n")
            self.assertIn(f"DRIVER_NAME={links}/virtual_link.so\n", told)

    def test_the_examples_are_short(self):
        for example in [*EXAMPLES.glob("*.c*"), *EXAMPLES.glob("*.py")]:
            self.assertLess(len(example.read_text().splitlines()), 60, example.name)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
