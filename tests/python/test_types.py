"""The Python sources stand up to the strict type checker."""

from __future__ import annotations

import subprocess
import sys
from pathlib import Path

from conftest import ROOT

CHECKED = ("python/FasterWhisperTranscriber", "python/diarize", "models", "speech", "tools", "services/speech/kestrel_speech",
           "kestrelml/pySources")


def test_strict_types(tmp_path: Path) -> None:
    files = [str(file) for folder in CHECKED for file in sorted((ROOT / folder).rglob("*.py"))]
    command = [sys.executable, "-m", "mypy", "--cache-dir", str(tmp_path), *files]
    checked = subprocess.run(command, cwd=ROOT, capture_output=True, text=True)
    assert checked.returncode == 0, checked.stdout + checked.stderr
