"""Puts files in place so that a run interrupted at any moment is repaired by the next one.

An artifact is a file or folder with a stamp that holds its checksums. It is built in a temporary folder, moved into
place, and stamped last; whatever has no valid stamp is rebuilt.
"""

from __future__ import annotations

import fcntl
import hashlib
import json
import shutil
from collections.abc import Callable, Iterator, Sequence
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import Path

from pinned_packages import sha256_of


@dataclass(frozen=True)
class Artifact:
    """`build` writes the artifact to the given path; a change of the texts `inputs` makes it stale."""

    name: str
    inputs: Sequence[str]
    build: Callable[[Path], None]


def source_digest(*modules: str) -> str:
    """A text that changes whenever one of these files does."""
    return hashlib.sha256(b"".join(Path(module).read_bytes() for module in modules)).hexdigest()


@contextmanager
def locked(folder: Path) -> Iterator[None]:
    """Two runs on one folder take turns."""
    folder.mkdir(parents=True, exist_ok=True)
    with (folder / ".lock").open("w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def ensure(folder: Path, artifact: Artifact) -> bool:
    """Builds what is missing, stale or damaged; returns False when there was nothing to do."""
    stamp = folder / ".stamps" / f"{artifact.name.replace('/', '.')}.json"
    target = folder / artifact.name
    if _is_whole(target, stamp, artifact):
        return False
    stamp.unlink(missing_ok=True)
    aside = folder / ".partial" / artifact.name
    _remove(aside)
    aside.parent.mkdir(parents=True, exist_ok=True)
    artifact.build(aside)
    _remove(target)
    target.parent.mkdir(parents=True, exist_ok=True)
    aside.replace(target)
    _write_stamp(stamp, {"inputs": list(artifact.inputs), "files": _checksums(target)})
    shutil.rmtree(folder / ".partial")
    return True


def _is_whole(target: Path, stamp: Path, artifact: Artifact) -> bool:
    try:
        recorded = json.loads(stamp.read_text(encoding="utf-8"))
    except (OSError, ValueError):
        return False
    return bool(recorded == {"inputs": list(artifact.inputs), "files": _checksums(target)})


def _checksums(target: Path) -> dict[str, str]:
    files = [target] if target.is_file() else sorted(path for path in target.rglob("*") if path.is_file())
    return {str(path.relative_to(target.parent)): sha256_of(path) for path in files}


def _write_stamp(stamp: Path, content: dict[str, object]) -> None:
    stamp.parent.mkdir(parents=True, exist_ok=True)
    temporary = stamp.with_suffix(".tmp")
    temporary.write_text(json.dumps(content, indent=1), encoding="utf-8")
    temporary.replace(stamp)


def _remove(path: Path) -> None:
    if path.is_dir():
        shutil.rmtree(path)
    else:
        path.unlink(missing_ok=True)
