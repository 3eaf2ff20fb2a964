"""How far found speaker turns and the names over the words agree with the truth.

Turns are compared in steps of 10 ms, but for a collar around the borders of the true speech, which nobody knows to the
hundredth of a second.
"""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from typing import Any

import numpy as np
import numpy.typing as npt
from scipy.optimize import linear_sum_assignment  # type: ignore[import-untyped]

from conversations import Conversation

_STEP = 0.01
_COLLAR = 0.25


@dataclass(frozen=True)
class Score:
    """Shares of the true speech, except for the counts."""

    confusion: float
    missed: float
    wrong_words: float  # of the words recognised
    mixed_segments: float  # segments that hold words of two voices, of all
    found: int
    true: int


def score(conversation: Conversation, turns: Sequence[tuple[float, float, int]],
          segments: Sequence[Mapping[str, Any]]) -> Score:
    """`segments` are the transcript with its speakers."""
    steps = int(conversation.seconds / _STEP) + 1
    names = sorted(conversation.speakers)
    speech = [(turn.begin, turn.end, names.index(turn.speaker)) for turn in conversation.speech]
    truth = _timeline(speech, steps)
    counted = ~_collars(speech, steps)
    found = _timeline(turns, steps)
    both = (truth >= 0) & (found >= 0) & counted
    seconds = int(((truth >= 0) & counted).sum())
    meant, given, segment_of = _words(conversation, segments, names)
    mixed = [len(set(meant[segment_of == number])) > 1 for number in np.unique(segment_of)]
    return Score(
        confusion=_mismatches(truth[both], found[both]) / seconds,
        missed=int(((truth >= 0) & (found < 0) & counted).sum()) / seconds,
        wrong_words=_mismatches(meant, given) / max(1, len(meant)),
        mixed_segments=float(np.mean(mixed)) if mixed else 0.0,
        found=len(np.unique(found[found >= 0])),
        true=len(names))


def _words(conversation: Conversation, segments: Sequence[Mapping[str, Any]], names: Sequence[str]) -> Any:
    """For every word: who spoke it, whose name it has, and its segment."""
    begins = np.array([turn.begin for turn in conversation.turns])
    ends = np.array([turn.end for turn in conversation.turns])
    labels = list(dict.fromkeys(str(segment.get("speakerID", "1")) for segment in segments))
    rows = []
    for number, segment in enumerate(segments):
        for word in segment["words"]:
            middle = (word["startMs"] + word["endMs"]) / 2000
            distance = np.maximum(np.maximum(begins - middle, middle - ends), 0)
            if (distance == 0).sum() > 1:
                continue  # two speak at once, and nobody knows whose word was recognised
            speaker = conversation.turns[int(distance.argmin())].speaker
            rows.append((names.index(speaker), labels.index(str(segment.get("speakerID", "1"))), number))
    return np.array(rows, np.int64).reshape(-1, 3).T


def _collars(speech: Sequence[tuple[float, float, int]], steps: int) -> npt.NDArray[np.bool_]:
    collars = np.zeros(steps, np.bool_)
    for edge in (edge for begin, end, _ in speech for edge in (begin, end)):
        collars[max(0, round((edge - _COLLAR) / _STEP)) : round((edge + _COLLAR) / _STEP)] = True
    return collars


def _timeline(turns: Sequence[tuple[float, float, int]], steps: int) -> npt.NDArray[np.int64]:
    timeline = np.full(steps, -1, np.int64)
    for begin, end, speaker in turns:
        timeline[round(begin / _STEP) : round(end / _STEP)] = speaker
    return timeline


def _mismatches(truth: npt.NDArray[np.int64], found: npt.NDArray[np.int64]) -> int:
    """Under the assignment of found to true speakers that agrees best."""
    if not len(truth):
        return 0
    agreement = np.zeros((int(truth.max()) + 1, int(found.max()) + 1), np.int64)
    np.add.at(agreement, (truth, found), 1)
    rows, columns = linear_sum_assignment(-agreement)
    return len(truth) - int(agreement[rows, columns].sum())
