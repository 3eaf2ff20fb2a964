"""Corrects word times with the level of the signal.

The recogniser derives word times from its attention, which is accurate to a few hundredths of a second within running
speech but not at pauses: the word after a pause often begins in the silence, or even in the tail of the word before.
The level of the signal shows where the sound really begins.
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import NamedTuple, Optional

import numpy as np
import numpy.typing as npt

FRAME_SECONDS = 0.01
PAUSE_FRAMES = 12  # shorter gaps are the closures of p, t and k inside words
CLICK_FRAMES = 3  # shorter bursts are not speech
SPEECH_BELOW_PEAK_DB = 30.0
SPEECH_ABOVE_FLOOR_DB = 8.0
LEAST_RANGE_DB = 15.0  # with less between loud and soft, noise or music fills the pauses, too
Samples = npt.NDArray[np.float32]
LONGEST_TAIL = 0.6  # seconds that a segment's last word may last longer than the recogniser noticed
PAUSE_MARKS = tuple(".,;:?!…。、，；：？！؟،؛।")


class TimedWord(NamedTuple):
    """A recognised word; times in seconds from the start of the samples."""

    start: float
    end: float
    word: str
    probability: float


class Sound:
    """Where in a span of audio there is sound."""

    def __init__(self, samples: Samples, sampling_rate: int) -> None:
        self.sounding = find_sound(samples, int(sampling_rate * FRAME_SECONDS))

    def stretches(self, start: float, end: float) -> list[tuple[float, float]]:
        """The stretches of sound between two times that pauses separate."""
        first = max(0, int(round(start / FRAME_SECONDS)))
        frames = self.sounding[first : int(round(end / FRAME_SECONDS))]
        return [
            ((first + begin) * FRAME_SECONDS, (first + stop) * FRAME_SECONDS)
            for begin, stop in runs_of(frames)
        ]


def find_sound(samples: Samples, frame_length: int) -> npt.NDArray[np.bool_]:
    """One flag per frame; pauses are wholly off and what lies between them is wholly on."""
    count = len(samples) // frame_length
    if count == 0:
        return np.zeros(0, dtype=np.bool_)
    frames = samples[: count * frame_length].reshape(count, frame_length)
    level = 10.0 * np.log10(np.einsum("ij,ij->i", frames, frames) / frame_length + 1e-10)
    floor, peak = np.percentile(level, (5, 95))
    if peak - floor < LEAST_RANGE_DB:
        return np.ones(count, dtype=np.bool_)
    sounding: npt.NDArray[np.bool_] = level > max(peak - SPEECH_BELOW_PEAK_DB, floor + SPEECH_ABOVE_FLOOR_DB)
    for begin, stop in runs_of(~sounding):
        if stop - begin < PAUSE_FRAMES:
            sounding[begin:stop] = True
    for begin, stop in runs_of(sounding):
        if stop - begin < CLICK_FRAMES:
            sounding[begin:stop] = False
    return sounding


def runs_of(flags: npt.NDArray[np.bool_]) -> list[tuple[int, int]]:
    """Begin and end (exclusive) of each run of true values."""
    edges = np.flatnonzero(np.diff(flags.astype(np.int8), prepend=0, append=0))
    return [(int(begin), int(stop)) for begin, stop in zip(edges[::2], edges[1::2])]


def seconds_per_character(words: Sequence[TimedWord]) -> float:
    """The pace of a segment: the median over its words."""
    return float(np.median([(word.end - word.start) / len(word.word) for word in words]))


def own_stretch(
    word: TimedWord, previous: Optional[TimedWord], stretches: list[tuple[float, float]], pace: float
) -> tuple[float, float]:
    """The stretch of sound that belongs to the word, since no word continues across a pause.

    After punctuation it is the last one; else the one whose length is nearest to what the word should take.
    """
    if previous is None or previous.word.endswith(PAUSE_MARKS):
        return stretches[-1]
    expected = pace * len(word.word)
    return min(stretches, key=lambda stretch: abs(stretch[1] - stretch[0] - expected))


def fit_word(word: TimedWord, previous: Optional[TimedWord], sound: Sound, pace: float) -> TimedWord:
    """The word without silence at its ends and without sound from beyond a pause."""
    stretches = sound.stretches(word.start, word.end)
    if not stretches:
        return word
    begin, stop = own_stretch(word, previous, stretches, pace)
    return word._replace(start=max(word.start, begin), end=min(word.end, stop))


def share_gap(word: TimedWord, following: TimedWord, sound: Sound) -> tuple[TimedWord, TimedWord]:
    """Two neighbours, extended into the gap between them where the sound of either continues."""
    stretches = sound.stretches(word.end, following.start)
    if stretches and stretches[0][0] - word.end < FRAME_SECONDS:
        word = word._replace(end=stretches.pop(0)[1])
    if stretches and following.start - stretches[-1][1] < FRAME_SECONDS:
        following = following._replace(start=stretches[-1][0])
    return word, following


def fit_words(words: Sequence[TimedWord], sound: Sound) -> list[TimedWord]:
    """The words of one segment, with corrected times."""
    if not words:
        return []
    pace = seconds_per_character(words)
    fitted = [fit_word(word, words[i - 1] if i else None, sound, pace) for i, word in enumerate(words)]
    for i in range(len(fitted) - 1):
        fitted[i], fitted[i + 1] = share_gap(fitted[i], fitted[i + 1], sound)
    return fitted


def fit_last_word(word: TimedWord, following: Optional[TimedWord], sound: Sound) -> TimedWord:
    """The last word of a segment, extended to where its sound ends; `following` is the next segment's first word."""
    limit = word.end + LONGEST_TAIL
    if following is not None:
        limit = min(limit, following.start)
    stretches = sound.stretches(word.end, limit)
    if not stretches or stretches[0][0] - word.end >= FRAME_SECONDS:
        return word
    return word._replace(end=max(word.end, min(stretches[0][1], limit)))
