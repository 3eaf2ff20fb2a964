"""Loops are cut down to what is said once; speech that only repeats itself stays."""

from __future__ import annotations

import pytest
from FasterWhisperTranscriber.loops import without_loops
from FasterWhisperTranscriber.word_times import TimedWord


def spoken(text: str, seconds: float = 0.3) -> list[TimedWord]:
    return [TimedWord(i * seconds, (i + 1) * seconds, f" {word}", 0.9) for i, word in enumerate(text.split())]


@pytest.mark.parametrize("text, kept", [
    ("so we go on. " + "I'm not sure. " * 9 + "Then", "so we go on. I'm not sure. Then"),
    ("the the the the the the the the the the", "the"),
    ("a b c a b c a b c a b c a b", "a b c"),
    ("no, no, no, no!", "no, no, no, no!"),
    ("dial one, dial two, dial three, dial four", "dial one, dial two, dial three, dial four"),
    ("row row row your boat row row row your boat", "row row row your boat row row row your boat"),
])
def test_loops(text: str, kept: str) -> None:
    assert "".join(word.word for word in without_loops(spoken(text))).strip() == kept


def test_a_rush_is_a_loop_sooner() -> None:
    assert len(without_loops(spoken("and so and so and so", seconds=0.02))) == 2
    assert len(without_loops(spoken("and so and so and so"))) == 6
