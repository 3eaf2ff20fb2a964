"""Where the language changes, with a scripted judge: pieces, inertia, spans."""

from __future__ import annotations

from typing import Any

import numpy as np
import pytest
from conftest import RATE
from FasterWhisperTranscriber.languages import LanguageSpan, Piece, cut_at_pauses, find_languages, most_probable


def sound(*lengths: float) -> Any:
    """Noise and silence by turns, of so many seconds."""
    noise = np.random.default_rng(2)
    pieces = [noise.standard_normal(int(length * RATE)) * (0.1 if i % 2 == 0 else 0.0001)
              for i, length in enumerate(lengths)]
    return np.concatenate(pieces).astype(np.float32)


def seconds(pieces: list[Piece]) -> list[tuple[float, float]]:
    return [(round(begin / RATE, 1), round(end / RATE, 1)) for begin, end in pieces]


def test_pieces_are_cut_at_pauses_and_long_enough_to_judge() -> None:
    audio = sound(4.0, 0.6, 3.0, 0.3, 2.0, 0.8, 0.6, 0.8, 5.0)
    assert seconds(cut_at_pauses(audio, Piece(0, len(audio)), RATE)) == [(0.0, 4.3), (4.3, 10.3), (10.3, 17.1)]
    assert seconds(cut_at_pauses(audio, Piece(RATE, 2 * RATE), RATE)) == [(1.0, 2.0)]


@pytest.mark.parametrize("judged, languages", [
    ([{"en": 0.99, "fr": 0.001}, {"en": 0.001, "fr": 0.99}, {"en": 0.001, "fr": 0.99}], ["en", "fr", "fr"]),
    ([{"en": 0.9, "fr": 0.1}, {"en": 0.3, "fr": 0.5}, {"en": 0.9, "fr": 0.1}], ["en", "en", "en"]),
    ([{"en": 0.4, "fr": 0.5}, {"en": 0.99}, {"en": 0.99}], ["en", "en", "en"]),
    ([], []),
], ids=["change", "unclear piece", "unclear beginning", "nothing"])
def test_a_change_must_be_probable(judged: list[dict[str, float]], languages: list[str]) -> None:
    assert most_probable(judged) == languages


def test_spans_are_cut_only_where_the_language_changes(capsys: pytest.CaptureFixture[str]) -> None:
    audio = sound(3.0, 0.6, 3.0, 0.6, 3.0, 3.0, 4.0)
    judged = iter([{"en": 0.99}, {"en": 0.45}, {"it": 0.99, "en": 1e-6}, {"it": 0.99, "en": 1e-6}])
    spans = [Piece(0, int(10.3 * RATE)), Piece(int(13.2 * RATE), len(audio))]
    found = find_languages(audio, spans, RATE, lambda _: next(judged))
    cut = int(6.9 * RATE)
    assert [one.language for one in found] == ["en", "it", "it"]
    assert found[2] == LanguageSpan(*spans[1], "it")
    assert found[0].start == 0 and found[0].end == found[1].start and abs(found[0].end - cut) < 0.05 * RATE
    assert "unclear in 1 of 4" in capsys.readouterr().err
