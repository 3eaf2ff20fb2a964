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
import tempfile
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from functools import cache
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
CONFIGURATION = ROOT / ".clang-tidy"
INCLUDE = re.compile(rb'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)
INCLUDE_FOLDERS = (ROOT, ROOT / "services" / "index")
OBJECT = re.compile(r"-o \S+\.o ")
BATCH_SIZE = 8


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


@dataclass(frozen=True)
class Batch:
    """Sources that are compiled with the same arguments; `{source}` stands for the file."""

    arguments: str
    files: tuple[Path, ...]

    def halves(self) -> tuple[Batch, Batch]:
        middle = len(self.files) // 2
        return Batch(self.arguments, self.files[:middle]), Batch(self.arguments, self.files[middle:])


def batches(sources: dict[Path, str]) -> list[Batch]:
    by_arguments: dict[str, list[Path]] = {}
    for file, arguments in sources.items():
        by_arguments.setdefault(arguments, []).append(file)
    return [Batch(arguments, tuple(files[i:i + BATCH_SIZE]))
            for arguments, files in by_arguments.items() for i in range(0, len(files), BATCH_SIZE)]


class Tidy:
    def __init__(self, build: Path, stamps: Path) -> None:
        self._build = build
        self._stamps = stamps
        version = subprocess.run(["clang-tidy", "--version"], capture_output=True, check=True).stdout
        self._common = version + CONFIGURATION.read_bytes()

    def sources(self, folders: list[str]) -> dict[Path, str]:
        """The sources in these folders of the project with their compiler's arguments."""
        database = json.loads((self._build / "compile_commands.json").read_text(encoding="utf-8"))
        wanted = [ROOT / folder for folder in folders]
        arguments = {Path(entry["file"]).resolve(): OBJECT.sub("", entry["command"]).replace(entry["file"], "{source}")
                     for entry in database}
        return {file: arguments[file] for file in sorted(arguments)
                if any(file.is_relative_to(folder) for folder in wanted)}

    def unchecked(self, sources: dict[Path, str]) -> dict[Path, str]:
        return {file: arguments for file, arguments in sources.items() if not self._stamp(file, arguments).exists()}

    def findings(self, batch: Batch) -> list[str]:
        """What clang-tidy says of each source that has findings. Most of its time goes into the system's headers, which
        the sources of a batch share. Sources that do not compile together are looked at in ever smaller batches."""
        output = self._run(batch)
        if not output:
            for file in batch.files:
                self._stamp(file, batch.arguments).touch()
            return []
        if len(batch.files) == 1:
            return [output]
        return [text for half in batch.halves() for text in self.findings(half)]

    def _run(self, batch: Batch) -> str:
        with tempfile.TemporaryDirectory(dir=self._build) as folder:
            source = Path(folder) / "batch.cpp"
            lines = [f'#include "{file}" // NOLINT(bugprone-suspicious-include)\n' for file in batch.files]
            source.write_text("".join(lines), encoding="utf-8")
            command = batch.arguments.replace("{source}", str(source))
            entry = {"directory": str(self._build), "file": str(source), "command": command}
            (Path(folder) / "compile_commands.json").write_text(json.dumps([entry]), encoding="utf-8")
            run = subprocess.run(["clang-tidy", "--quiet", f"--config-file={CONFIGURATION}", "-p", folder, str(source)],
                                 capture_output=True, text=True, check=False)
        return "" if run.returncode == 0 else run.stdout or run.stderr

    def _stamp(self, file: Path, arguments: str) -> Path:
        digest = hashlib.sha256(self._common)
        digest.update(arguments.replace(str(self._build), "").replace(str(ROOT), "").encode())
        for included in sorted(included_files(file)):
            digest.update(included.read_bytes())
        return self._stamps / digest.hexdigest()


def main() -> int:
    parser = argparse.ArgumentParser(description=(__doc__ or "").splitlines()[0])
    parser.add_argument("--build", type=Path, required=True, help="folder with compile_commands.json")
    parser.add_argument("--stamps", type=Path, required=True, help="folder for the stamps")
    parser.add_argument("folders", nargs="+", help="folders of the project to look at")
    arguments = parser.parse_args()
    arguments.stamps.mkdir(parents=True, exist_ok=True)
    tidy = Tidy(arguments.build.resolve(), arguments.stamps)
    sources = tidy.sources(arguments.folders)
    unchecked = tidy.unchecked(sources)
    failed = 0
    with ThreadPoolExecutor(os.cpu_count()) as threads:
        for texts in threads.map(tidy.findings, batches(unchecked)):
            failed += len(texts)
            print(*texts, sep="", end="", flush=True)
    print(f"clang-tidy: {len(sources)} sources, {len(unchecked)} of them new or changed, {failed} with findings")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
