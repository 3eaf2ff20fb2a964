"""The examples do what they say, with real services and models."""

from __future__ import annotations

import os
import subprocess
import sys
import wave
from collections.abc import Iterator
from pathlib import Path

import pytest

sys.path[:0] = [str(Path(__file__).resolve().parents[1] / folder) for folder in ("index", "support")]

from index_process import IndexProcess
from speech_process import SpeechProcess

BIN = Path(os.environ["KESTREL_BUILD_BIN"])
DEPS = Path(os.environ["KESTREL_DEPS_DIR"])


@pytest.fixture
def index(tmp_path: Path) -> Iterator[IndexProcess]:
    """An index service that knows the user whom a host without credentials is."""
    service = IndexProcess(tmp_path / "data").wait_until_ready()
    client = service.client()
    role = {"cluster": ["monitor"], "indices": [{"names": ["*"], "privileges": ["all"]}]}
    user = {"password": "Wq3ZbN8yPc2Lx6", "roles": ["all"]}
    assert client("PUT", "_security/role/all", role).status == 200
    assert client("POST", "_security/user/transcript_user_dbg", user).status == 200
    yield service
    service.stop()


@pytest.fixture
def speech_uri(tmp_path: Path) -> Iterator[str]:
    with SpeechProcess(tmp_path) as process:
        yield process.uri


def test_transcribe_and_find(index: IndexProcess, speech_uri: str, tmp_path: Path) -> None:
    samples = tmp_path / "samples"
    with wave.open(str(DEPS / "speech" / "librivox_4.wav")) as file:
        samples.write_bytes(file.readframes(file.getnframes()))
    arguments = [samples, index.uri, speech_uri, DEPS / "models", "a more amiabel woman"]
    result = subprocess.run([str(BIN / "transcribe_and_find"), *map(str, arguments)], capture_output=True, text=True)
    assert result.returncode == 0, result.stderr
    assert "amiable woman" in result.stdout
