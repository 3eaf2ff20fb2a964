"""Fetches Debian packages, pinned by version and checksum, and unpacks them without installing."""

from __future__ import annotations

import shutil
import subprocess
import tempfile
from dataclasses import dataclass
from pathlib import Path

from pinned_packages import FetchError, sha256_of


@dataclass(frozen=True)
class DebianPackage:
    name: str
    version: str
    sha256: str


def unpacked(package: DebianPackage, folder: Path) -> Path:
    """The folder with the package's files, fetched unless it is there already."""
    tree = folder / package.name
    if tree.is_dir():
        return tree
    folder.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=folder, prefix=".fetch-") as temporary:
        archive = _download(package, Path(temporary))
        aside = Path(temporary) / "tree"
        subprocess.run(["dpkg-deb", "-x", str(archive), str(aside)], check=True)
        shutil.rmtree(tree, ignore_errors=True)
        aside.replace(tree)
    return tree


def _download(package: DebianPackage, folder: Path) -> Path:
    wanted = f"{package.name}={package.version}"
    # As root, apt would hand the download to a user who may not write here.
    command = ["apt-get", "--quiet", "--option", "APT::Sandbox::User=root", "download", wanted]
    answer = subprocess.run(command, cwd=folder, capture_output=True, text=True, check=False)
    archives = list(folder.glob("*.deb"))
    if answer.returncode != 0 or len(archives) != 1:
        reason = answer.stderr.strip()
        raise FetchError(f'Debian package {wanted} cannot be fetched (is "apt-get update" due?):\n{reason}')
    if sha256_of(archives[0]) != package.sha256:
        raise FetchError(f"Debian package {wanted} is not the one known here: its checksum differs")
    return archives[0]
