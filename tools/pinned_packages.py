"""Fetches packages of the Python package index, pinned by version and checksum, without installing them."""

from __future__ import annotations

import hashlib
import importlib.util
import subprocess
import sys
import tempfile
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path


class FetchError(Exception):
    """A package is unavailable; the text says which, and the installer's message."""


@dataclass(frozen=True)
class Package:
    name: str
    version: str
    file: str
    sha256: str

    @property
    def is_source(self) -> bool:
        return self.file.endswith(".tar.gz")


def sha256_of(path: Path) -> str:
    digest = hashlib.sha256()
    with path.open("rb") as file:
        while chunk := file.read(1 << 20):
            digest.update(chunk)
    return digest.hexdigest()


def fetch(package: Package, folder: Path) -> Path:
    """The package's file in the folder, downloaded unless it is already there, complete."""
    kept = folder / package.file
    if kept.is_file() and sha256_of(kept) == package.sha256:
        return kept
    folder.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=folder, prefix=".fetch-") as temporary:
        _download(package, Path(temporary))
        fetched = Path(temporary) / package.file
        if not fetched.is_file():
            raise FetchError(f"{package.name} {package.version} came without the file {package.file}")
        fetched.replace(kept)
    return kept


def _download(package: Package, folder: Path) -> None:
    requirement = folder / "requirement.txt"
    requirement.write_text(f"{package.name}=={package.version} --hash=sha256:{package.sha256}\n")
    form = ["--no-binary", package.name] if package.is_source else ["--only-binary", package.name]
    command = [*_pip(), "download", "--quiet", "--disable-pip-version-check", "--no-deps", "--require-hashes",
               "--dest", str(folder), *form, "--requirement", str(requirement)]
    answer = subprocess.run(command, capture_output=True, text=True, check=False)
    if answer.returncode != 0:
        reason = answer.stderr.strip() or f"the installer ended with code {answer.returncode}"
        raise FetchError(f"package {package.name} {package.version} ({package.file}) cannot be fetched:\n{reason}")


def _pip() -> Sequence[str]:
    """This interpreter's pip, or the one that scripts/setup puts beside this environment."""
    if importlib.util.find_spec("pip") is not None:
        return [sys.executable, "-m", "pip"]
    beside = Path(sys.prefix).parent / "tools" / "bin" / "python"
    if not beside.exists():
        raise FetchError(f"no pip: neither in {sys.prefix} nor at {beside}; run scripts/setup")
    return [str(beside), "-m", "pip"]
