"""Both engines on the same recordings: the service's transcript and the embedded module's are the same."""

from __future__ import annotations

from collections.abc import Iterator
from pathlib import Path

import pytest
from speech_hosts import Host, raw_samples
from speech_process import SpeechProcess


@pytest.fixture(scope="module")
def service(tmp_path_factory: pytest.TempPathFactory) -> Iterator[str]:
    """The address of a speech service of this test's own."""
    with SpeechProcess(tmp_path_factory.mktemp("service")) as process:
        yield process.uri


@pytest.mark.parametrize("recording, language", [("conversation_en", "en"), ("spanish", "es")])
def test_transcripts_are_equal(recording: str, language: str, host: Host, service: str, tmp_path: Path) -> None:
    samples = raw_samples(recording, tmp_path)
    half = samples.stat().st_size // 4 * 2
    (tmp_path / "first.raw").write_bytes(samples.read_bytes()[:half])
    (tmp_path / "second.raw").write_bytes(samples.read_bytes()[half:])
    steps = [
        f"upload|{tmp_path / 'first.raw'}|clip|project",
        f"upload|{tmp_path / 'second.raw'}|clip|project|{half // 2}",
        f"finalize|clip|project|{language}",
        "languages",
        "progress",
    ]
    through_service = host.run(*steps, engine=service)
    embedded = host.run(*steps)
    assert [outcome["code"] for outcome in embedded] == [0] * len(steps), embedded[2]["error"]
    assert len(embedded[2]["segments"]) > 1
    assert embedded == through_service


def test_failures_are_equal(host: Host, service: str, samples: Path) -> None:
    steps = [f"upload|{samples}|clip|project", "finalize|clip|project|tlh", "finalize|clip|project|en"]
    assert host.run(*steps, engine=service) == host.run(*steps)


def test_a_second_engine_cancels_through_the_service(host: Host, service: str, tmp_path: Path) -> None:
    samples = raw_samples("english_short", tmp_path)
    _, cancelled = host.run(f"upload|{samples}|clip|project", "finalize-cancelled|clip|project|en", engine=service)
    assert cancelled["code"] == 1
    assert "STT transcription cancelled" in cancelled["error"]
