"""Cuts transcript segments where the voice changes.

A phrase ends at punctuation, not where somebody else begins to speak, so that one segment can hold the words of
several voices. Its words have times and tell where to cut; the text is cut at the same words.
"""

from __future__ import annotations

import unicodedata
from collections.abc import Mapping, MutableMapping, Sequence
from typing import Any

Segment = MutableMapping[str, Any]

# A turn's border is known to half a window; speakers change where there is a pause, or at least where a clause ends.
_BORDER_SECONDS = 0.75
_LONGEST_PAUSE = 0.5
# The end of a sentence or clause speaks for a cut as much as a pause of so many seconds.
_SENTENCE_END = 0.5
_CLAUSE_END = 0.2
_DISTANCE_WEIGHT = 0.4
_SENTENCE_MARKS = tuple(".?!…。？！؟।")
_CLAUSE_MARKS = tuple(",;:、，；：،؛")
_SHORTEST_PIECE = 0.3  # seconds of words that another voice must have amid a segment


def cut_positions(words: Sequence[Any], labels: Sequence[int], text: str) -> dict[int, int]:
    """The words that begin a new piece, by index, and where each stands in the text."""
    starts = _find_words(text, words)
    ends = _ends(text, starts)
    cuts: dict[int, int] = {}
    last = 0
    for first, _ in _runs(words, labels)[1:]:
        candidates = [at for at in _near(words, first) if at > last and starts[at] >= 0]
        if candidates:
            last = max(candidates, key=lambda at: _fitness(words, at, first, ends))
            cuts[last] = starts[last]
    return cuts


def split(segment: Segment, cuts: Mapping[int, int]) -> list[Segment]:
    """The segment as pieces that begin at `cuts`."""
    text, words = segment["text"], segment["words"]
    bounds = [0, *cuts, len(words)]
    edges = [0, *(_text_edge(text, start) for start in cuts.values()), len(text)]
    pieces: list[Segment] = []
    for number in range(len(bounds) - 1):
        piece = dict(segment)
        piece["text"] = text[edges[number] : edges[number + 1]].strip()
        piece["words"] = list(words[bounds[number] : bounds[number + 1]])
        pieces.append(piece)
    return pieces


def _find_words(text: str, words: Sequence[Any]) -> list[int]:
    """Where each word stands in the text; -1 for a word that the text does not hold as such."""
    starts: list[int] = []
    position = 0
    for word in words:
        start = text.find(word["word"], position) if word["word"] else -1
        starts.append(start)
        if start >= 0:
            position = start + len(word["word"])
    return starts


def _ends(text: str, starts: Sequence[int]) -> list[float]:
    """How much the punctuation that follows each word, or belongs to it, speaks for a cut behind it."""
    return [_weight(text[start:stop].rstrip()) if start >= 0 else 0.0
            for start, stop in zip(starts, [*starts[1:], len(text)])]


def _weight(text: str) -> float:
    if text.endswith(_SENTENCE_MARKS):
        return _SENTENCE_END
    return _CLAUSE_END if text.endswith(_CLAUSE_MARKS) else 0.0


def _runs(words: Sequence[Any], labels: Sequence[int]) -> list[tuple[int, int]]:
    """(first word, voice) of each stretch of one voice; too short ones amid a segment belong to what is before them."""
    runs: list[tuple[int, int]] = []
    for index, label in enumerate(labels):
        if not runs or runs[-1][1] != label:
            runs.append((index, label))
    kept: list[tuple[int, int]] = []
    for number, (first, label) in enumerate(runs):
        last = (runs[number + 1][0] if number + 1 < len(runs) else len(words)) - 1
        seconds = (words[last]["endMs"] - words[first]["startMs"]) / 1000
        if kept and (label == kept[-1][1] or (seconds < _SHORTEST_PIECE and last + 1 < len(words))):
            continue
        kept.append((first, label))
    return kept


def _near(words: Sequence[Any], first: int) -> list[int]:
    border = _time_before(words, first)
    return [at for at in range(1, len(words)) if abs(_time_before(words, at) - border) <= _BORDER_SECONDS]


def _fitness(words: Sequence[Any], at: int, first: int, ends: Sequence[float]) -> float:
    pause: float = min((words[at]["startMs"] - words[at - 1]["endMs"]) / 1000, _LONGEST_PAUSE)
    distance: float = abs(_time_before(words, at) - _time_before(words, first))
    return pause + ends[at - 1] - _DISTANCE_WEIGHT * distance


def _time_before(words: Sequence[Any], at: int) -> float:
    """The middle of the pause before a word, in seconds."""
    middle: float = (words[at - 1]["endMs"] + words[at]["startMs"]) / 2000
    return middle


def _text_edge(text: str, start: int) -> int:
    """Where the text is cut before a word: opening punctuation goes with it."""
    while start > 0 and (unicodedata.category(text[start - 1]) in ("Ps", "Pi") or text[start - 1] in "¿¡"):
        start -= 1
    return start
