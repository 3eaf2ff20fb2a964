"""Runs clang-tidy over the sources of a compilation database, and over each only once for the same content.

A source that passed leaves a stamp named by a digest of all that its findings depend on: the source, the project's
headers that it includes, the compiler's arguments, the configuration and the version of clang-tidy.

    python tools/tidy.py --build build-tidy --stamps .deps/tidy-stamps kestrelml tests
    python tools/tidy.py --build build-tidy --stamps .deps/tidy-stamps --latest 24 kestrelml tests
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
CONFIGURATION = ".clang-tidy"
INCLUDE = re.compile(rb'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)
INCLUDE_FOLDERS = (ROOT, ROOT / "services" / "index")
OBJECT = re.compile(r"-o \S+\.o ")
BATCH_SIZE = 8
# What a source defines outside classes and functions: clang-format leaves such lines without indentation.
DEFINED = re.compile(
    r"^(?:TEST(?:_[FP])?\((?P<suite>\w+), (?P<case>\w+)\)|#define (?P<macro>\w+)|using (?P<alias>\w+) ="
    r"|(?:class|struct|enum class|enum) (?P<type>\w+)"
    r"|(?!namespace|[A-Z_]+\()(?=\w)[^\n]*?(?P<name>[\w:~]+)(?: =|[({\[]))",
    re.MULTILINE)


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


@cache
def configurations(folder: Path) -> tuple[Path, ...]:
    """The files that configure clang-tidy for the sources of a folder, the nearest first; it inherits from the others."""
    here = folder / CONFIGURATION
    above = () if folder == ROOT else configurations(folder.parent)
    return (here, *above) if here.is_file() else above


@dataclass(frozen=True)
class Batch:
    """Sources that are compiled with the same arguments; `{source}` stands for the file."""

    arguments: str
    configuration: Path
    files: tuple[Path, ...]

    def halves(self) -> tuple[Batch, Batch]:
        middle = len(self.files) // 2
        first, second = self.files[:middle], self.files[middle:]
        return Batch(self.arguments, self.configuration, first), Batch(self.arguments, self.configuration, second)


def defined_names(source: Path) -> set[str]:
    """Names that other sources of a batch may not define too; a few false matches do no harm."""
    return {".".join(filter(None, match.groups())) for match in DEFINED.finditer(source.read_text(encoding="utf-8"))}


def batches(sources: dict[Path, str]) -> list[Batch]:
    made: list[tuple[Batch, set[str]]] = []
    for file, arguments in sources.items():
        names = defined_names(file)
        alone = Batch(arguments, configurations(file.parent)[0], (file,))
        for place, (batch, taken) in enumerate(made):
            fits = len(batch.files) < BATCH_SIZE and not names & taken
            if fits and (batch.arguments, batch.configuration) == (alone.arguments, alone.configuration):
                made[place] = (Batch(arguments, alone.configuration, (*batch.files, file)), taken | names)
                break
        else:
            made.append((alone, names))
    return [batch for batch, _ in made]


def latest(sources: dict[Path, str], count: int) -> dict[Path, str]:
    """Those that changed last, with the header of the same name: in the working tree, else by the commits."""
    def lines(*command: str) -> list[str]:
        run = subprocess.run(["git", *command], cwd=ROOT, capture_output=True, text=True, check=False)
        if run.returncode != 0:
            sys.exit(f"clang-tidy: git {command[0]} cannot tell what changed; without --latest all sources are read: {run.stderr}")
        return run.stdout.splitlines()

    # A renamed file is listed as "old -> new".
    changed = [line[3:].split(" -> ")[-1] for line in lines("status", "--porcelain", "--untracked-files=all")]
    # The commit at which a shallow clone begins would list every file; it has no parents.
    changed += lines("log", "--max-count=200", "--min-parents=1", "--name-only", "--format=")
    files = dict.fromkeys((ROOT / name).with_suffix(".cpp") for name in changed)
    if not changed:
        print("clang-tidy: the history tells of no change; without --latest all sources are read")
    return {file: sources[file] for file in [file for file in files if file in sources][:count]}


class Tidy:
    def __init__(self, build: Path, stamps: Path) -> None:
        self._build = build
        self._stamps = stamps
        version = subprocess.run(["clang-tidy", "--version"], capture_output=True, check=True).stdout
        self._version = version

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
            # Below the project's folder, so that what a configuration inherits is found.
            run = subprocess.run(["clang-tidy", "--quiet", f"--config-file={batch.configuration}", "-p", folder, str(source)],
                                 capture_output=True, text=True, check=False)
        return "" if run.returncode == 0 else run.stdout or run.stderr

    def _stamp(self, file: Path, arguments: str) -> Path:
        digest = hashlib.sha256(self._version)
        for configuration in configurations(file.parent):
            digest.update(configuration.read_bytes())
        digest.update(arguments.replace(str(self._build), "").replace(str(ROOT), "").encode())
        for included in sorted(included_files(file)):
            digest.update(included.read_bytes())
        return self._stamps / digest.hexdigest()


def main() -> int:
    parser = argparse.ArgumentParser(description=(__doc__ or "").splitlines()[0])
    parser.add_argument("--build", type=Path, required=True, help="folder with compile_commands.json")
    parser.add_argument("--stamps", type=Path, required=True, help="folder for the stamps")
    parser.add_argument("--latest", type=int, metavar="COUNT", help="only so many sources, those that changed last")
    parser.add_argument("folders", nargs="+", help="folders of the project to look at")
    arguments = parser.parse_args()
    arguments.stamps.mkdir(parents=True, exist_ok=True)
    tidy = Tidy(arguments.build.resolve(), arguments.stamps)
    sources = tidy.sources(arguments.folders)
    if arguments.latest is not None:
        sources = latest(sources, arguments.latest)
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
