"""Fails when an exported function, a record's layout or a constant of the headers is not what it was.

Usage: check_interface.py SOURCE BUILD            compares
       check_interface.py SOURCE BUILD --update   takes what is there as what shall be

Functions that stay are debian/libtornvalc63-0.symbols, records are interface.txt beside this file. A
change of either that is meant belongs into a new minor version, and into the changelog.
"""

import difflib
import re
import subprocess
import sys
import tempfile
from pathlib import Path

import cffi

SOURCE, BUILD = (Path(argument).resolve() for argument in sys.argv[1:3])
KEPT = Path(__file__).resolve().parent / "interface.txt"
HEADERS = ["TornvalC63.h", "TornvalC63Text.h", "cecore.h", "TornvalLinks.h"]


def declarations():
    """The headers as a compiler sees them, without those of the system."""
    with tempfile.TemporaryDirectory() as empty:
        for name in ("stdint.h", "wchar.h"):
            (Path(empty) / name).touch()
        text = "".join(f'#include "{header}"\n' for header in HEADERS)
        return subprocess.run(
            ["cc", "-E", "-P", "-nostdinc", f"-I{empty}", f"-I{SOURCE}/include", "-DTORNVAL_API=",
             "-DTORNVAL_LINK_API=", "-DCECORE_API=", "-x", "c", "-"],
            input=text, check=True, text=True, stdout=subprocess.PIPE).stdout


def described():
    text = declarations()
    ffi = cffi.FFI()
    ffi.cdef(re.sub(r"#pragma.*", "", text))
    lines = [f"library of version {number}" for number in
             re.findall(r"TORNVAL_VERSION_MAJOR (\d+)",
                        (SOURCE / "include/TornvalC63.h").read_text())]
    for name in sorted(ffi.list_types()[0]):
        kind = ffi.typeof(name)
        if kind.kind == "struct":
            lines.append(f"{name}: {ffi.sizeof(kind)} bytes")
            lines += [f"    {field.offset}: {field.type.cname} {each}" for each, field in kind.fields]
        else:
            lines.append(f"{name}: {kind.cname}")
    lines += [f"{name} = {value}" for name, value in sorted(
        (name, value) for body in re.findall(r"enum\s*\{(.*?)\}", text, flags=re.S)
        for name, value in re.findall(r"(\w+)\s*=\s*([^,\s}]+)", body))]
    lines += sorted(" ".join(each.split()) for each in
                    re.findall(r"^ *[\w*][\w* ]*?\w+\([^;{]*?\);", text, flags=re.M))
    return lines


def check_functions():
    """Both ways: no name that stays is missing, and none is shown that is not on the list."""
    faults, library, kept = [], None, {}
    for line in (SOURCE / "debian/libtornvalc63-0.symbols").read_text().splitlines():
        if match := re.match(r"(lib\S+\.so\.\d+) ", line):
            library = match[1]
            kept[library] = set()
        elif match := re.match(r" (\w+)@Base ", line):
            kept[library].add(match[1])
    for library, names in kept.items():
        shown = subprocess.run(["nm", "-D", "--defined-only", BUILD / "lib" / library], check=True,
                               text=True, stdout=subprocess.PIPE).stdout
        # What has a name of C++ is between the libraries of one version.
        shown = {line.split()[2] for line in shown.splitlines() if " _Z" not in line}
        faults += [f"{library}: {name} is gone" for name in sorted(names - shown)]
        faults += [f"{library}: {name} is new" for name in sorted(shown - names)]
    return faults


lines = described()
if sys.argv[3:] == ["--update"]:
    KEPT.write_text("\n".join(lines) + "\n")
faults = check_functions() + list(difflib.unified_diff(
    KEPT.read_text().splitlines(), lines, "kept", "found", lineterm="", n=0))
print("\n".join(faults))
sys.exit(1 if faults else 0)
