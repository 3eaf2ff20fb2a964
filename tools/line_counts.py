"""Counts the lines that are not empty: of the code and of its tests, by folder.

    python tools/line_counts.py [CHECKOUT...]    several checkouts stand side by side, for instance before and after
"""

from __future__ import annotations

import subprocess
import sys
from collections import Counter
from pathlib import Path

CODE = ("kestrelml", "services", "apps", "python", "models", "speech", "tools")
TESTS = ("tests", "fuzz")
SUFFIXES = {".cpp", ".h", ".py", ".pyx", ".js", ".css", ".html"}


def counts(checkout: Path) -> Counter[str]:
    listing = subprocess.run(["git", "ls-files", "-z", *CODE, *TESTS], cwd=checkout, capture_output=True, check=True)
    lines: Counter[str] = Counter()
    for name in map(Path, listing.stdout.decode().split("\0")):
        path = checkout / name
        if path.suffix in SUFFIXES and path.is_file():
            lines[name.parts[0]] += sum(bool(line.strip()) for line in path.read_bytes().splitlines())
    return lines


def main() -> None:
    checkouts = [Path(argument) for argument in sys.argv[1:]] or [Path(__file__).resolve().parents[1]]
    columns = [counts(checkout) for checkout in checkouts]
    rows: list[tuple[str, list[str]]] = [(name, [str(column[name]) for column in columns]) for name in (*CODE, *TESTS)]
    sums = [(sum(column[name] for name in CODE), sum(column[name] for name in TESTS)) for column in columns]
    rows += [("code", [str(code) for code, _ in sums]), ("tests", [str(tests) for _, tests in sums]),
             ("tests/code", [f"{100 * tests / code:.1f} %" for code, tests in sums])]
    for name, cells in rows:
        print(f"{name:<12}" + "".join(f"{cell:>10}" for cell in cells))


if __name__ == "__main__":
    main()
