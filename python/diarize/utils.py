"""Voiced spans as the voice detector returns them, and as the rest of the package works on them."""

from __future__ import annotations

from collections.abc import Mapping, Sequence

Range = tuple[float, float]


def process_vadsegments(voiced_spans: Sequence[Mapping[str, float]], sampling_rate: int) -> tuple[Range, list[Range]]:
    """Spans given in samples, as (begin, end) in seconds, in order; first their whole range, (0, 0) without any."""
    segments = sorted((span["start"] / sampling_rate, span["end"] / sampling_rate)
                      for span in voiced_spans if span["end"] > span["start"])
    if not segments:
        return (0.0, 0.0), []
    return (segments[0][0], max(end for _, end in segments)), segments
