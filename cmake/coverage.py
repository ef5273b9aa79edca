"""Reads counts of lines (lcov) from the standard input and tells the share of each folder.

    coverage.py LEAST FILE "FOLDER ..."    FILE gets each line that did not run. Ends with 1 where less
                                           than LEAST percent of src ran.
"""

import os
import sys
from collections import defaultdict
from pathlib import Path

least, missed, folders = float(sys.argv[1]), Path(sys.argv[2]), " ".join(sys.argv[3:]).split()
counts = defaultdict(dict)
for entry in sys.stdin:
    kind, _, rest = entry.strip().partition(":")
    if kind == "SF":
        name = os.path.relpath(os.path.normpath(missed.parent / rest))
    elif kind == "DA":
        line, count = map(int, rest.split(",")[:2])
        counts[name][line] = max(count, counts[name].get(line, 0))
status = 0
with open(missed, "w") as out:
    for folder in folders:
        files = {name: lines for name, lines in counts.items() if name.startswith(folder + "/")}
        run = sum(count > 0 for lines in files.values() for count in lines.values())
        total = sum(map(len, files.values()))
        share = 100 * run / total if total else 0
        print(f"coverage of {folder}/: {share:.2f} % ({run} of {total} lines)")
        status |= folder == "src" and share < least
        for name, lines in sorted(files.items()):
            text = Path(name).read_text().splitlines()
            out.writelines(f"{name}:{line}: {text[line - 1].strip()}\n"
                           for line, count in sorted(lines.items()) if count == 0)
sys.exit(status)
