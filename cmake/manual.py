"""Writes manual pages and the completion for bash from what the programs and pages say themselves, so
that they cannot drift.

    manual.py program PROGRAM PAGE VERSION    a page of section 1 from --help of all its commands
    manual.py configuration PAGE VERSION MARKDOWN...
                                              a page of section 5 from the tables of keys
    manual.py completion FILE PROGRAM...      what --help lists, for bash
"""

import re
import subprocess
import sys
from pathlib import Path

PROJECT = "Tornval C63"


def escaped(text):
    """Text for troff: backslashes, dashes, and dots at the head of a line."""
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return re.sub(r"^([.'])", r"\\&\1", text, flags=re.M)


class Help:
    """The --help of a command: what stands before "Usage", its lists, what stands behind them."""

    def __init__(self, program, path=()):
        done = subprocess.run([program, *path, "--help"], check=True, text=True,
                              stdout=subprocess.PIPE)
        self.path = path
        self.usage, self.lists = "", {}
        before, behind, current = [], [], None
        for line in done.stdout.splitlines():
            heading = re.fullmatch(r"([A-Z]\w*):", line)
            if line.startswith("Usage:"):
                self.usage = " ".join(line.split()[2 + len(path):])
                current = self.lists
            elif current is None:
                before.append(line)
            elif heading:
                current = self.lists.setdefault(heading[1], [])
            elif isinstance(current, list) and line.startswith("  "):
                self._entry(current, line)
            elif line or behind:
                behind.append(line)
                current = self.lists
        self.description = " ".join(" ".join(before).split())
        self.behind = "\n".join(behind).strip()
        self.subcommands = [name.split()[0] for name, _ in self.lists.get("Subcommands", [])]

    @staticmethod
    def _entry(entries, line):
        name, _, text = line.strip().partition("  ")
        if line.startswith("   ") and entries:
            entries[-1] = (entries[-1][0], f"{entries[-1][1]} {line.strip()}".strip())
        else:
            entries.append((name, text.strip()))

    def options(self):
        return [entry for name, entries in self.lists.items() if name != "Subcommands"
                for entry in entries]

    def words(self):
        """What may stand behind the command."""
        flags = [flag for name, _ in self.options()
                 for flag in re.findall(r"--?[A-Za-z][\w-]*", name.split()[0])]
        return sorted(set(self.subcommands + flags))


def all_helps(program, path=()):
    """A command and all below it, in the order in which they are listed."""
    own = Help(program, path)
    helps = [own]
    for name in own.subcommands:
        helps += all_helps(program, (*path, name))
    return helps


def heading(page, version):
    name, section = page.name.rsplit(".", 1)
    return [f".TH {escaped(name.upper())} {section} \"\" \"{version}\" \"{PROJECT}\"", ".SH NAME"]


def entries_of(entries):
    lines = []
    for name, text in entries:
        lines += [".TP", f".B {escaped(name)}", escaped(text or "\\&")]
    return lines


def write_program(program, page, version):
    first, *others = all_helps(program)
    name = page.name.rsplit(".", 1)[0]
    summary = re.split(r"(?<=[a-z])\.|:", first.description)[0]
    lines = heading(page, version) + [
        f"{escaped(name)} \\- {escaped(summary[0].lower() + summary[1:])}", ".SH SYNOPSIS",
        f".B {escaped(name)}", escaped(first.usage), ".SH DESCRIPTION", escaped(first.description),
        ".SH OPTIONS", *entries_of(first.options())]
    leaves = [each for each in others if not each.subcommands]
    shared = [entry for entry in leaves[0].options()
              if all(entry in each.options() for each in leaves)] if leaves else []
    if leaves:
        lines += [".SS Each command has", *entries_of(shared), ".SH COMMANDS"]
    for each in others:
        if not each.subcommands:
            lines += [f".SS {escaped(' '.join((name, *each.path)))}", escaped(each.description),
                      *entries_of([entry for entry in each.options() if entry not in shared])]
    if first.behind:
        title, _, rest = first.behind.partition(":\n")
        codes = re.findall(r"^  (\S+(?: [+] N)?)  +(.*)$", rest, flags=re.M)
        if codes:
            lines += [f".SH {escaped(title.upper())}", *entries_of(codes)]
        else:
            lines += [".SH NOTES", escaped(first.behind)]
    others = "tornval" if name != "tornval" else "tornval\\-instrument"
    lines += [".SH SEE ALSO", f".BR {others} (1),", ".BR TornvalC63.ini (5)"]
    page.write_text("\n".join(lines) + "\n")


def plain(markdown):
    """The text of a line of markdown."""
    return re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", markdown).replace("`", "")


def write_configuration(page, version, sources):
    lines = heading(page, version) + ["TornvalC63.ini \\- configuration of the measurement library"]
    for source in sources:
        match = re.search(r"^## Configuration\n(.*?)(?=^## )", Path(source).read_text(),
                          flags=re.M | re.S)
        text = match[1].strip()
        section, table = "", False
        lines += [".SH DESCRIPTION" if len(lines) == 3 else ".SH THE SERIAL LINK"]
        for line in text.splitlines():
            cells = [plain(cell.strip()) for cell in line.strip("|").split("|")]
            if not line.startswith("|"):
                example = line.startswith("    ")
                lines += [".PP" if not line else escaped(plain(line.strip()))]
                lines += [".br"] if example else []
            elif set(line) <= set("|- "):
                table = True
            elif not table:
                continue
            elif len(cells) == 4:
                key, default, meaning = cells[1:]
                if cells[0] and cells[0] != section:
                    section = cells[0]
                    lines += [f".SS Section {escaped(section)}"]
                lines += entries_of([(key, meaning + (f" (default: {default})" if default else ""))]
                                    if key else [("", meaning)])
            else:
                key, default, meaning = cells
                lines += entries_of([(key, f"{meaning} (default: {default})")])
    lines += [".SH SEE ALSO", ".BR tornval (1),", ".BR tornval\\-instrument (1)"]
    page.write_text("\n".join(lines) + "\n")


def write_completion(file, programs):
    lines = ["# Completion for bash, from what --help lists."]
    for program in programs:
        name = Path(program).name
        function = "_" + name.replace("-", "_")
        lines += [f"{function}()", "{",
                  "    local path= word words=", "    COMPREPLY=()",
                  "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do",
                  "        [[ $word = -* ]] && break", "        path+=\" $word\"", "    done",
                  "    case \"$path\" in"]
        for each in all_helps(program):
            lines.append("    \"" + "".join(f" {word}" for word in each.path) + "\") words=\"" +
                         " ".join(each.words()) + "\" ;;")
        lines += ["    esac",
                  "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"${COMP_WORDS[COMP_CWORD]}\")",
                  "}", f"complete -o default -F {function} {name}"]
    file.write_text("\n".join(lines) + "\n")


if __name__ == "__main__":
    kind, *rest = sys.argv[1:]
    if kind == "program":
        write_program(rest[0], Path(rest[1]), rest[2])
    elif kind == "configuration":
        write_configuration(Path(rest[0]), rest[1], rest[2:])
    else:
        write_completion(Path(rest[0]), rest[1:])
