"""The installed programs find the services, Python packages and models that were installed with them."""

from __future__ import annotations

import json
import os
import subprocess
from collections.abc import Iterator
from pathlib import Path

import pytest

BIN = Path(os.environ["KESTREL_PREFIX"]) / "bin"
RECORDING = Path(os.environ["KESTREL_DEPS_DIR"]) / "speech" / "librivox_4.wav"


def run(home: Path, program: str, *arguments: object) -> str:
    environment = {"PATH": "/usr/bin:/bin", "LANG": "C.UTF-8", "KESTREL_HOME": str(home)}
    process = subprocess.run([BIN / program, *map(str, arguments)], cwd=home, env=environment, text=True,
                             capture_output=True, timeout=280, check=False)
    assert process.returncode == 0, process.stderr
    return process.stdout


@pytest.fixture
def home(tmp_path: Path) -> Iterator[Path]:
    yield tmp_path
    run(tmp_path, "kestrel", "down")


@pytest.mark.parametrize("engine", ["service", "embedded"])
def test_a_clip_is_transcribed_and_found(engine: str, home: Path) -> None:
    assert run(home, "kestrel", "--version").startswith("kestrel ")
    run(home, "kestrel", "up", "--index-port", 0, "--speech-port", 0)
    run(home, "kestrel", "transcribe", RECORDING, "--project", "P", "--language", "en", "--engine", engine)
    hits = json.loads(run(home, "kestrel", "search", "amiabel woman", "--project", "P", "--json"))["hits"]
    assert hits[0]["match"].startswith("amiable woman")


@pytest.mark.parametrize("program", ["kestrel-index", "kestrel-speech"])
def test_services_start_from_any_folder(program: str, home: Path) -> None:
    assert "--port" in run(home, program, "--help")
