"""Host programs of a speech engine, as the tests run them."""

from __future__ import annotations

import json
import os
import subprocess
import sys
import wave
from collections.abc import Mapping
from pathlib import Path
from typing import Any

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests" / "support"))
BIN = Path(os.environ.get("KESTREL_BUILD_BIN", ROOT / "build" / "bin"))
DEPS = Path(os.environ.get("KESTREL_DEPS_DIR", ROOT / ".deps"))
MODELS = DEPS / "models"

Outcome = dict[str, Any]


def raw_samples(name: str, folder: Path) -> Path:
    """A recording without its header."""
    raw = folder / (name + ".raw")
    with wave.open(str(DEPS / "speech" / (name + ".wav"))) as recording:
        raw.write_bytes(recording.readframes(recording.getnframes()))
    return raw


class Host:
    """Runs scenarios in a fresh process of a host executable."""

    def __init__(self, log_dir: Path, executable: Path = BIN / "kestrel_stt_linked_host") -> None:
        self.log_dir = log_dir
        self.executable = executable

    def run(self, *steps: str, engine: str = "embedded", models: Path = MODELS, cwd: Path | None = None,
            environment: Mapping[str, str] | None = None) -> list[Outcome]:
        process = subprocess.run([str(self.executable), engine, str(models), str(self.log_dir), *steps],
                                 cwd=cwd or self.log_dir, env={**os.environ, **(environment or {})},
                                 capture_output=True, text=True, timeout=280)
        assert process.returncode == 0, process.stderr
        outcomes = [json.loads(line) for line in process.stdout.splitlines() if line.startswith('{"')]
        assert len(outcomes) == len(steps), process.stdout
        return outcomes

    def log(self) -> str:
        return (self.log_dir / "PythonStdErr.txt").read_text()
