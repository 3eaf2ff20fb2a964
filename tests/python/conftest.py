"""What the tests of the Python parts share."""

from __future__ import annotations

import importlib.util
import os
import sys
import wave
from collections.abc import Iterator, Sequence
from pathlib import Path
from types import ModuleType
from typing import Any, NamedTuple

import numpy as np
import numpy.typing as npt
import pytest

ROOT = Path(__file__).resolve().parents[2]
DEPS = Path(os.environ.get("KESTREL_DEPS_DIR", ROOT / ".deps"))
MODULE_SOURCE = ROOT / "kestrelml" / "pySources" / "SpeechToText" / "WhisperTranscriptionImpl.py"
RATE = 16000

for folder in ("python", "services/speech", "kestrelml/pySources", "tests/support"):
    sys.path.insert(0, str(ROOT / folder))


class Word(NamedTuple):
    start: float
    end: float
    word: str
    probability: float = 0.9


class Segment(NamedTuple):
    start: float
    end: float
    text: str
    words: Sequence[Any]


def timed(*texts: str) -> list[Word]:
    """Words of a quarter of a second each, one after the other."""
    return [Word(i / 4, (i + 1) / 4, text) for i, text in enumerate(texts)]


def segments_of(*texts: str) -> list[Segment]:
    """Segments whose words are those of their texts, timed on from one to the next."""
    segments, count = [], 0
    for text in texts:
        words = [Word((count + i) / 4, (count + i + 1) / 4, " " + word) for i, word in enumerate(text.split())]
        count += len(words)
        segments.append(Segment(words[0].start, words[-1].end, text, words))
    return segments


def fresh_module() -> ModuleType:
    """The module as a new interpreter would import it: own state, nothing shared with another test."""
    spec = importlib.util.spec_from_file_location("transcription_under_test", MODULE_SOURCE)
    assert spec is not None and spec.loader is not None
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


@pytest.fixture
def module() -> ModuleType:
    return fresh_module()


@pytest.fixture(scope="session")
def text_module() -> Any:
    """For tests of functions without state."""
    from SpeechToText import WhisperTranscriptionImpl

    return WhisperTranscriptionImpl


def recording(name: str) -> npt.NDArray[np.int16]:
    with wave.open(str(DEPS / "speech" / name)) as file:
        assert (file.getframerate(), file.getnchannels(), file.getsampwidth()) == (RATE, 1, 2)
        return np.frombuffer(file.readframes(file.getnframes()), dtype=np.int16)


def upload_chunks(samples: npt.NDArray[np.int16], chunk: int = 10 * RATE) -> Iterator[dict[str, Any]]:
    """Upload requests for a clip, as a host sends them, but for the samples' encoding."""
    for start in range(0, len(samples), chunk):
        piece = samples[start : start + chunk]
        yield {"start_sample": start, "end_sample": start + len(piece), "audioSamples": piece}
