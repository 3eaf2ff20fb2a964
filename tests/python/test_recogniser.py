"""The recogniser's wrapper, as far as no model is needed."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import numpy as np
import pytest
from FasterWhisperTranscriber import Transcriber
from FasterWhisperTranscriber.model_folder import find_model_folder, model_size_of
from FasterWhisperTranscriber.settings import read_settings
from FasterWhisperTranscriber.short_window import trim_padding
from FasterWhisperTranscriber.word_times import Sound, TimedWord, fit_last_word, fit_words

RATE = 16000
FILES = ("model.bin", "config.json", "tokenizer.json")


def model_in(folder: Path, files: tuple[str, ...] = FILES) -> None:
    folder.mkdir()
    for name in files:
        (folder / name).write_text("{}")


def test_model_folder_is_whisper_base_or_the_first(tmp_path: Path) -> None:
    model_in(tmp_path / "empty", ())
    model_in(tmp_path / "z-large")
    model_in(tmp_path / "faster-whisper-tiny")
    assert model_size_of(find_model_folder(str(tmp_path))) == "tiny"
    model_in(tmp_path / "whisper-base")
    assert model_size_of(find_model_folder(str(tmp_path))) == "base"
    assert model_size_of(Path("large-v3")) == "large-v3"


def test_missing_models_are_named(tmp_path: Path) -> None:
    with pytest.raises(ValueError, match="directory is not set"):
        Transcriber(None)
    with pytest.raises(FileNotFoundError, match="nowhere"):
        Transcriber(str(tmp_path / "nowhere"))
    with pytest.raises(FileNotFoundError, match=f"{tmp_path}.*whisper-base"):
        Transcriber(str(tmp_path))
    model_in(tmp_path / "whisper-base", FILES[:2])
    with pytest.raises(FileNotFoundError, match="whisper-base' lacks tokenizer.json"):
        Transcriber(str(tmp_path))
    (tmp_path / "whisper-base" / "tokenizer.json").write_text("{}")
    with pytest.raises(RuntimeError, match="whisper-base' cannot be loaded: "):
        Transcriber(str(tmp_path))


@pytest.mark.parametrize(
    "content, window", [(0, 1500), (300, 1500), (1000, 1500), (1001, 2000), (2300, 3000), (3000, 3000)]
)
def test_window_leaves_silence_after_the_span(content: int, window: int) -> None:
    features = np.zeros((80, 3000), dtype=np.float32)
    features[:, :content] = -0.5
    trimmed = trim_padding(features)
    assert trimmed.shape == (80, window) and trimmed.flags.c_contiguous
    assert np.array_equal(trimmed, features[:, :window])


def sound_of(*stretches: tuple[float, float], seconds: float = 6.0, noise: float = 1e-3) -> Sound:
    """Noise, loud in the given stretches."""
    samples = np.random.default_rng(1).normal(0, noise, int(seconds * RATE)).astype(np.float32)
    for begin, end in stretches:
        samples[int(begin * RATE) : int(end * RATE)] *= 100
    return Sound(samples, RATE)


@pytest.mark.parametrize(
    "stretches, words, times",
    [
        # The first word begins in silence and ends too early: both are corrected.
        ([(0.5, 1.5), (2.0, 2.5)], [(0.0, 1.0, " Hello!"), (2.0, 2.5, " You")], [(0.5, 1.5), (2.0, 2.5)]),
        # After a mark the pause precedes the word: the tail goes to the word before.
        ([(0.5, 1.5), (2.0, 2.5)], [(0.5, 1.0, " Hello."), (1.0, 2.5, " You")], [(0.5, 1.5), (2.0, 2.5)]),
        # Without one, the word's length tells on which side of the pause it stands.
        ([(0.5, 1.5), (2.0, 3.0)], [(0.5, 1.4, " hello"), (1.4, 3.0, " again")], [(0.5, 1.5), (2.0, 3.0)]),
        (
            [(0.1, 1.5), (2.0, 3.0)],
            [(0.1, 0.5, " oh"), (0.5, 2.1, " hello"), (2.1, 3.0, " again")],
            [(0.1, 0.5), (0.5, 1.5), (2.0, 3.0)],
        ),
        # The closure of a consonant is no pause, a click no speech, and a word in silence stays where it is.
        ([(0.5, 0.7), (0.78, 1.0)], [(0.5, 1.0, " attic")], [(0.5, 1.0)]),
        ([(0.6, 0.61), (1.0, 1.5)], [(0.5, 1.5, " click")], [(1.0, 1.5)]),
        ([(0.5, 1.0)], [(3.0, 3.5, " ghost")], [(3.0, 3.5)]),
        ([(0.5, 2.0)], [(0.5, 1.0, " in"), (1.2, 2.0, " one")], [(0.5, 1.2), (1.2, 2.0)]),
    ],
)
def test_word_times_follow_the_sound(stretches: Any, words: Any, times: Any) -> None:
    fitted = fit_words([TimedWord(*word, 0.5) for word in words], sound_of(*stretches))
    assert [word.word for word in fitted] == [word[2] for word in words]
    assert np.allclose([(word.start, word.end) for word in fitted], times, atol=0.011)


@pytest.mark.parametrize("seconds", [6.0, 0.0, 0.005])
def test_even_noise_tells_nothing(seconds: float) -> None:
    words = [TimedWord(0.1, 0.4, " a", 0.5), TimedWord(0.4, 0.9, " b", 0.5)]
    assert fit_words(words, sound_of(seconds=seconds)) == words
    assert fit_words([], sound_of()) == []


def test_a_last_word_ends_where_its_sound_ends() -> None:
    samples = np.full(2 * RATE, 1e-4, np.float32)
    samples[: int(0.8 * RATE)] = 0.3
    samples[int(1.2 * RATE) :] = 0.3
    sound = Sound(samples, RATE)
    word = TimedWord(0.2, 0.5, "word", 0.9)
    assert fit_last_word(word, None, sound).end == pytest.approx(0.8, abs=0.011)
    assert fit_last_word(word, TimedWord(0.6, 0.7, "next", 0.9), sound).end == pytest.approx(0.6, abs=0.011)
    assert fit_last_word(word._replace(end=0.9), None, sound).end == 0.9
    assert fit_last_word(word._replace(start=1.2, end=1.3), None, sound).end == pytest.approx(1.9, abs=0.011)


def test_the_settings_choose_the_model(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    settings = tmp_path / "settings.json"
    monkeypatch.setenv("KESTREL_RECOGNISER_SETTINGS", str(settings))
    assert read_settings() == (None, None)
    settings.write_text('{"model": "/m", "terms": "Anna, Ben"}')
    assert read_settings() == ("/m", "Anna, Ben")
    settings.write_text("[]")
    with pytest.raises(ValueError, match="settings.json' cannot be read"):
        read_settings()
