"""Splits voiced spans at their pauses.

A voice detector bridges pauses of seconds, and speakers change in pauses: windows that do not span one contain a single
voice far more often.
"""

from __future__ import annotations

from collections.abc import Sequence

import numpy as np
import numpy.typing as npt

Audio = npt.NDArray[np.float32]
Span = tuple[float, float]

_PAUSE_SECONDS = 0.25
_SHORTEST_SECONDS = 0.15
_SPEECH_RANGE_DB = 40.0  # what lies further below the loud speech of a clip is a pause
_ABOVE_NOISE = 0.3  # share of the way from the noise floor to the loud speech


def find_islands(audio: Audio, spans: Sequence[Span], sampling_rate: int, frame_shift: int) -> list[Span]:
    """The stretches of each span, in seconds, between pauses; a quiet span has none."""
    frame = sampling_rate * frame_shift // 1000
    level = _level_db(audio, frame)
    bounds = [(int(begin * sampling_rate) // frame, int(end * sampling_rate) // frame) for begin, end in spans]
    voiced = [level[begin:end] for begin, end in bounds]
    if not sum(len(part) for part in voiced):
        return []
    loud = float(np.percentile(np.concatenate(voiced), 95))
    noise = float(np.percentile(level, 5))
    threshold = max(loud - _SPEECH_RANGE_DB, noise + _ABOVE_NOISE * (loud - noise))
    seconds = frame / sampling_rate
    return [(first * seconds, last * seconds)
            for begin, end in bounds
            for first, last in _runs(level[begin:end] > threshold, begin, seconds)]


def _level_db(audio: Audio, frame: int) -> npt.NDArray[np.float64]:
    frames = audio[: len(audio) // frame * frame].reshape(-1, frame)
    level: npt.NDArray[np.float64] = 10 * np.log10(np.mean(np.square(frames, dtype=np.float64), axis=1) + 1e-12)
    return level


def _runs(loud: npt.NDArray[np.bool_], offset: int, seconds: float) -> list[tuple[int, int]]:
    """Runs of loud frames; quiet ones shorter than a pause belong to the run around them."""
    frames = np.flatnonzero(loud)
    if not len(frames):
        return []
    cuts = np.flatnonzero(np.diff(frames) * seconds > _PAUSE_SECONDS)
    firsts = np.concatenate([frames[:1], frames[cuts + 1]])
    lasts = np.concatenate([frames[cuts], frames[-1:]]) + 1
    return [(offset + int(first), offset + int(last)) for first, last in zip(firsts, lasts)
            if (last - first) * seconds >= _SHORTEST_SECONDS]
