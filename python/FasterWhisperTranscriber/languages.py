"""Which language is spoken where, found piece by piece.

Whisper names a language for half a minute at a time, so that two languages close together become one. Here each piece
between pauses is judged by itself, and the most probable sequence is taken (Viterbi): a change of language must be
worth its price, so that a short or unclear piece keeps the language of its neighbours.
"""

from __future__ import annotations

import math
import sys
from collections.abc import Callable, Mapping, Sequence
from typing import NamedTuple

import numpy as np

from FasterWhisperTranscriber.word_times import FRAME_SECONDS, Samples, find_sound, runs_of

PAUSE_SECONDS = 0.5
SHORTEST_PIECE = 1.5  # seconds; a shorter one says too little and goes with what is nearest to it
CHANGE_PRICE = 4.0  # in natural logarithms of probability
LEAST_PROBABILITY = 1e-4  # what a model calls impossible is not
UNSURE = 0.5

Probabilities = Mapping[str, float]


class Piece(NamedTuple):
    """A stretch of speech, in samples."""

    start: int
    end: int


class LanguageSpan(NamedTuple):
    """A stretch of speech in one language, in samples."""

    start: int
    end: int
    language: str


def cut_at_pauses(samples: Samples, span: Piece, sampling_rate: int) -> list[Piece]:
    """The span, cut in the middle of each pause of half a second, without pieces that are too short to judge."""
    frame = int(sampling_rate * FRAME_SECONDS)
    quiet = runs_of(~find_sound(samples[span.start : span.end], frame))
    last = (span.end - span.start) // frame
    cuts = [span.start + (begin + end) // 2 * frame
            for begin, end in quiet if (end - begin) * FRAME_SECONDS >= PAUSE_SECONDS and begin > 0 and end < last]
    edges = [span.start, *cuts, span.end]
    while len(edges) > 2:
        lengths = np.diff(edges)
        shortest = int(lengths.argmin())
        if lengths[shortest] >= SHORTEST_PIECE * sampling_rate:
            break
        # Joined with the shorter neighbour, which needs it more.
        joins_left = shortest == len(lengths) - 1 or (shortest > 0 and lengths[shortest - 1] < lengths[shortest + 1])
        del edges[shortest if joins_left else shortest + 1]
    return [Piece(begin, end) for begin, end in zip(edges, edges[1:])]


def most_probable(judged: Sequence[Probabilities]) -> list[str]:
    """A language for every piece: the most probable sequence, when each change costs CHANGE_PRICE."""
    candidates = sorted({max(one, key=lambda code: one[code]) for one in judged})
    if not candidates:
        return []
    best = {code: 0.0 for code in candidates}
    came_from: list[dict[str, str]] = []
    for one in judged:
        leader = max(candidates, key=lambda code: best[code])
        before = {code: code if best[code] >= best[leader] - CHANGE_PRICE else leader for code in candidates}
        came_from.append(before)
        best = {
            code: max(best[code], best[leader] - CHANGE_PRICE) + math.log(max(one.get(code, 0.0), LEAST_PROBABILITY))
            for code in candidates
        }
    code = max(candidates, key=lambda each: best[each])
    path: list[str] = []
    for before in reversed(came_from):
        path.append(code)
        code = before[code]
    return path[::-1]


def find_languages(
    samples: Samples, spans: Sequence[Piece], sampling_rate: int, judge: Callable[[Samples], Probabilities]
) -> list[LanguageSpan]:
    """The spans, cut where the language changes; `judge` tells how probable each language is for some samples."""
    pieces = [(number, piece) for number, span in enumerate(spans)
              for piece in cut_at_pauses(samples, span, sampling_rate)]
    judged = [judge(samples[piece.start : piece.end]) for _, piece in pieces]
    languages = most_probable(judged)
    report_unsure([one.get(language, 0.0) for one, language in zip(judged, languages)])
    found: list[LanguageSpan] = []
    last_span = -1
    for (number, piece), language in zip(pieces, languages):
        if number == last_span and found[-1].language == language:
            found[-1] = found[-1]._replace(end=piece.end)
        else:
            found.append(LanguageSpan(piece.start, piece.end, language))
        last_span = number
    return found


def report_unsure(probabilities: Sequence[float]) -> None:
    unsure = sum(one < UNSURE for one in probabilities)
    if unsure and sys.stderr is not None:
        print(f"the language is unclear in {unsure} of {len(probabilities)} stretches of speech", file=sys.stderr)
