"""How far found speaker turns agree with the true ones, in steps of 10 ms and without leeway at the borders."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt
from scipy.optimize import linear_sum_assignment  # type: ignore[import-untyped]

from conversations import Conversation

_STEP = 0.01


@dataclass(frozen=True)
class Score:
    """Shares of the true speech, except for the counts."""

    confusion: float
    missed: float
    wrong_segments: float
    found: int
    true: int


def score(conversation: Conversation, turns: Sequence[tuple[float, float, int]],
          segment_speakers: Sequence[str]) -> Score:
    """`segment_speakers` are the labels given to a transcript with one segment for every true turn."""
    steps = int(conversation.seconds / _STEP) + 1
    names = sorted(conversation.speakers)
    truth = _timeline([(turn.begin, turn.end, names.index(turn.speaker)) for turn in conversation.speech], steps)
    found = _timeline(turns, steps)
    both = (truth >= 0) & (found >= 0)
    speech = int((truth >= 0).sum())
    labels = list(dict.fromkeys(segment_speakers))
    given = np.array([labels.index(label) for label in segment_speakers])
    meant = np.array([names.index(turn.speaker) for turn in conversation.turns])
    return Score(
        confusion=_mismatches(truth[both], found[both]) / speech,
        missed=int(((truth >= 0) & (found < 0)).sum()) / speech,
        wrong_segments=_mismatches(meant, given) / len(meant),
        found=len(np.unique(found[found >= 0])),
        true=len(names))


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
