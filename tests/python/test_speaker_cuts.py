"""Segments in which the voice changes are cut at a word."""

from __future__ import annotations

from typing import Any

import pytest
from diarize import make_rttm


def segment(text: str, *words: tuple[str, int, int]) -> dict[str, Any]:
    return {"text": text, "language": "en",
            "words": [{"word": word, "startMs": start, "endMs": end, "probability": 0.9} for word, start, end in words]}


def pieces(turns: list[make_rttm.Turn], *segments: dict[str, Any]) -> list[tuple[str, str]]:
    """Speaker and text of each piece; no word is lost or moved."""
    given = list(segments)
    words = [word for one in given for word in one["words"]]
    assert make_rttm.merge_outputs(turns, given, True) == (given, True)
    assert [word for one in given for word in one["words"]] == words
    assert all(one["language"] == "en" for one in given)
    return [(one["speakerID"], one["text"]) for one in given]


YES = segment("Are you coming? Yes, I am on my way.", ("Are", 0, 300), ("you", 300, 500), ("coming?", 500, 900),
              ("Yes,", 1000, 1400), ("I", 1400, 1500), ("am", 1500, 1700), ("on", 1700, 1900), ("my", 1900, 2000),
              ("way.", 2000, 2400))


@pytest.mark.parametrize("border", [0.7, 0.95, 1.45])
def test_the_cut_lies_at_the_clause_that_ends_near_the_border(border: float) -> None:
    turns = [(0.0, border, 0), (border, 2.4, 1)]
    assert pieces(turns, dict(YES)) == [("1", "Are you coming?"), ("2", "Yes, I am on my way.")]


def test_a_voice_may_come_back() -> None:
    middle = segment("We went there (no we did not) and then home",
                     *[(word, 300 * i, 300 * i + 250)
                       for i, word in enumerate("We went there no we did not and then home".split())])
    found = pieces([(0.0, 0.87, 4), (0.87, 2.07, 2), (2.07, 3.0, 4)], middle)
    assert found == [("1", "We went there"), ("2", "(no we did not)"), ("1", "and then home")]


def test_a_scrap_of_another_voice_is_no_piece() -> None:
    assert pieces([(0.0, 1.45, 0), (1.45, 1.65, 1), (1.65, 2.4, 0)], dict(YES)) == [("1", YES["text"])]


def test_text_without_spaces_and_words_that_it_does_not_hold() -> None:
    chinese = segment("你好。我很好。", ("你好", 0, 500), ("我", 1500, 1600), ("很", 1600, 1700), ("好", 1700, 2000))
    assert pieces([(0.0, 1.0, 0), (1.0, 2.0, 1)], chinese) == [("1", "你好。"), ("2", "我很好。")]
    odd = segment("CD on sale", ("C D", 0, 600), ("on", 700, 900), ("sale", 900, 1500))
    assert pieces([(0.0, 0.65, 0), (0.65, 1.5, 1)], odd) == [("1", "CD"), ("2", "on sale")]
    foreign = segment("nothing fits", ("other", 0, 600), ("words", 700, 1500))
    assert pieces([(0.0, 0.65, 0), (0.65, 1.5, 1)], foreign) == [("1", "nothing fits")]
