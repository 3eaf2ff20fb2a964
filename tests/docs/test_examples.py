"""The examples do what they say, with the services that `kestrel up` starts."""

from __future__ import annotations

import json
import os
import subprocess
import sys
import wave
from collections.abc import Iterator
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "app"))

from app_under_test import BIN, SPEECH, Kestrel

DEPS = Path(os.environ["KESTREL_DEPS_DIR"])


@pytest.fixture
def kestrel(tmp_path: Path) -> Iterator[Kestrel]:
    running = Kestrel(tmp_path / "home")
    running.up()
    yield running
    running.run("down")


def test_transcribe_and_find(kestrel: Kestrel, tmp_path: Path) -> None:
    samples = tmp_path / "samples"
    with wave.open(str(SPEECH / "librivox_4.wav")) as file:
        samples.write_bytes(file.readframes(file.getnframes()))
    status = kestrel.good("status", "--json").json()
    account = json.loads((kestrel.home / "index/administrator.json").read_text())

    def run(password: str) -> subprocess.CompletedProcess[str]:
        addresses = (status["index"]["uri"], status["speech"]["uri"])
        return subprocess.run(
            [str(BIN / "transcribe_and_find"), samples, *addresses, DEPS / "models", "a more amiabel woman"],
            capture_output=True,
            text=True,
            env={**os.environ, "INDEX_USER": account["user"], "INDEX_PASSWORD": password},
            check=False,
        )

    refused = run("a wrong one")
    assert refused.returncode == 1
    assert "refuses the user or the password" in refused.stderr
    result = run(account["password"])
    assert result.returncode == 0, result.stderr
    assert "amiable woman" in result.stdout
