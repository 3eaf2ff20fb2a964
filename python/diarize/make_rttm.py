"""From labelled windows to speaker turns, and from turns to the speakers of transcript segments."""

from __future__ import annotations

import bisect
from collections import defaultdict
from collections.abc import Iterable, Mapping, MutableSequence, Sequence
from typing import Any

from diarize import voice_changes
from diarize.voice_changes import Segment

Turn = tuple[float, float, int]

# Windows further apart than this belong to different turns, even when one voice speaks in both.
_LONGEST_PAUSE = 0.5
_SHORTEST_WORD = 0.001


def read_labels(subsegs_list: Sequence[tuple[float, float]], cluster_labels: Iterable[int]) -> list[Turn]:
    """Each window with its label, in order of time."""
    labels = [int(label) for label in cluster_labels]
    if len(labels) != len(subsegs_list):
        raise ValueError(f"{len(subsegs_list)} windows but {len(labels)} labels")
    return sorted((float(begin), float(end), label) for (begin, end), label in zip(subsegs_list, labels))


def merge_segments(subseg_to_labels: Iterable[Turn]) -> list[Turn]:
    """Turns that do not overlap: windows of one voice are joined, the overlap of two voices is split in the middle."""
    turns: list[Turn] = []
    for begin, end, label in subseg_to_labels:
        if turns:
            last_begin, last_end, last_label = turns[-1]
            if label == last_label and begin - last_end <= _LONGEST_PAUSE:
                turns[-1] = (last_begin, max(last_end, end), label)
                continue
            if begin < last_end:
                begin = (begin + last_end) / 2
                turns[-1] = (last_begin, begin, last_label)
        if end > begin:
            turns.append((begin, end, label))
    return turns


def merge_outputs(
    merged: Sequence[Turn], segments: MutableSequence[Segment], success: bool
) -> tuple[MutableSequence[Segment], bool]:
    """Writes "speakerID" into the segments in place: "1", "2", … in order of appearance.

    Where the voice changes inside a segment, the segment is replaced by its pieces in the same list. A piece belongs
    to the voice that covers most of its words; words that no turn covers count for the nearest one. A segment without
    words continues the one before it.
    """
    names: dict[int, str] = {}
    timeline = _Timeline(merged)
    last: int | None = None
    if merged:
        segments[:] = [piece for segment in segments for piece in _one_voice_pieces(segment, timeline)]
    for segment in segments if merged else ():
        label = timeline.speaker_of(segment.get("words") or ())
        label = last if label is None else label
        if label is not None:
            segment["speakerID"] = names.setdefault(label, str(len(names) + 1))
        last = label
    return segments, success


def _one_voice_pieces(segment: Segment, timeline: _Timeline) -> Sequence[Segment]:
    words = segment.get("words") or ()
    labels = [timeline.speaker_of([word]) or 0 for word in words]
    if len(set(labels)) < 2 or "text" not in segment:
        return [segment]
    cuts = voice_changes.cut_positions(words, labels, segment["text"])
    return voice_changes.split(segment, cuts) if cuts else [segment]


class _Timeline:
    """Turns, in order and without overlap, to look up by time."""

    def __init__(self, turns: Sequence[Turn]) -> None:
        self._turns = turns
        self._ends = [turn[1] for turn in turns]

    def speaker_of(self, words: Iterable[Mapping[str, Any]]) -> int | None:
        covered: defaultdict[int, float] = defaultdict(float)
        for word in words:
            for label, seconds in self._coverage(word["startMs"] / 1000, word["endMs"] / 1000).items():
                covered[label] += seconds
        return max(covered, key=lambda label: (covered[label], -label)) if covered else None

    def _coverage(self, begin: float, end: float) -> dict[int, float]:
        """Seconds of a word under each voice."""
        first = bisect.bisect_right(self._ends, begin)
        covered: defaultdict[int, float] = defaultdict(float)
        for index in range(first, len(self._turns)):
            turn_begin, turn_end, label = self._turns[index]
            if turn_begin >= end:
                break
            covered[label] += min(end, turn_end) - max(begin, turn_begin)
        return covered or {self._nearest(first, begin, end): max(end - begin, _SHORTEST_WORD)}

    def _nearest(self, after: int, begin: float, end: float) -> int:
        """The voice before or after the pause in which a word lies; `after` is the turn after it."""
        if after == len(self._turns):
            return self._turns[-1][2]
        if after == 0 or self._turns[after][0] - end < begin - self._ends[after - 1]:
            return self._turns[after][2]
        return self._turns[after - 1][2]
