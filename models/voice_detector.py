"""The voice detector's model, which the recogniser's package carries; the application runs it by itself, too."""

from __future__ import annotations

import hashlib
import shutil
from importlib.util import find_spec
from pathlib import Path

_FILE = "silero_vad_v6.onnx"


def _source() -> Path:
    package = find_spec("faster_whisper")
    if package is None or package.origin is None:
        raise OSError("the package faster-whisper is not installed; run scripts/setup")
    return Path(package.origin).parent / "assets" / _FILE


def digest() -> str:
    return hashlib.sha256(_source().read_bytes()).hexdigest()


def copy(path: Path) -> None:
    path.parent.mkdir(parents=True, exist_ok=True)
    shutil.copyfile(_source(), path)
