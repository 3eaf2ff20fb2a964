"""Runs clang-tidy over the sources of a compilation database, and over each only once for the same content.

A source that passed leaves a stamp named by a digest of all that its findings depend on: the source, the project's
headers that it includes, the compiler's arguments, the configuration and the version of clang-tidy.
"""

from __future__ import annotations

import argparse
import hashlib
import json
import os
import re
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from functools import cache
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
INCLUDE = re.compile(rb'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)
INCLUDE_FOLDERS = (ROOT, ROOT / "services" / "index")


@cache
def included_files(file: Path) -> frozenset[Path]:
    """The project's headers that a file includes, and the file itself."""
    found = {file}
    for name in INCLUDE.findall(file.read_bytes()):
        for folder in (file.parent, *INCLUDE_FOLDERS):
            header = folder / os.fsdecode(name)
            if header.is_file():
                found |= included_files(header.resolve())
                break
    return frozenset(found)


class Tidy:
    def __init__(self, build: Path, stamps: Path) -> None:
        self._build = build
        self._stamps = stamps
        version = subprocess.run(["clang-tidy", "--version"], capture_output=True, check=True).stdout
        self._common = version + (ROOT / ".clang-tidy").read_bytes()

    def sources(self, folders: list[str]) -> dict[Path, str]:
        """The sources in these folders of the project with their compiler commands."""
        database = json.loads((self._build / "compile_commands.json").read_text(encoding="utf-8"))
        wanted = [ROOT / folder for folder in folders]
        commands = {Path(entry["file"]).resolve(): str(entry["command"]) for entry in database}
        return {file: command for file, command in sorted(commands.items())
                if any(file.is_relative_to(folder) for folder in wanted)}

    def findings(self, file: Path, command: str) -> str:
        """What clang-tidy says; nothing when it said nothing about the same content before."""
        stamp = self._stamps / self._digest(file, command)
        if stamp.exists():
            return ""
        run = subprocess.run(["clang-tidy", "--quiet", "-p", str(self._build), str(file)],
                             capture_output=True, text=True, check=False)
        if run.returncode == 0:
            stamp.touch()
            return ""
        return run.stdout + (run.stderr if not run.stdout else "")

    def _digest(self, file: Path, command: str) -> str:
        digest = hashlib.sha256(self._common)
        digest.update(command.replace(str(self._build), "").replace(str(ROOT), "").encode())
        for included in sorted(included_files(file)):
            digest.update(included.read_bytes())
        return digest.hexdigest()


def main() -> int:
    parser = argparse.ArgumentParser(description=(__doc__ or "").splitlines()[0])
    parser.add_argument("--build", type=Path, required=True, help="folder with compile_commands.json")
    parser.add_argument("--stamps", type=Path, required=True, help="folder for the stamps")
    parser.add_argument("folders", nargs="+", help="folders of the project to look at")
    arguments = parser.parse_args()
    arguments.stamps.mkdir(parents=True, exist_ok=True)
    tidy = Tidy(arguments.build.resolve(), arguments.stamps)
    sources = tidy.sources(arguments.folders)
    failed = 0
    with ThreadPoolExecutor(os.cpu_count()) as threads:
        for text in threads.map(tidy.findings, sources.keys(), sources.values()):
            failed += bool(text)
            print(text, end="", flush=True)
    print(f"clang-tidy: {len(sources)} sources, {failed} with findings")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
