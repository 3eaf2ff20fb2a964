"""Voices by telephone: what they all share is taken off their vectors.

A telephone line leaves the voice band only, and the encoder hears the line as well as the voice: vectors of different
voices then resemble each other more than those of one voice in a studio do, and several voices are taken for one. What
all voices share by telephone is a fixed direction. How much of it a recording's vectors hold tells whether, and where,
it came over a line; most of it is then removed, and the limits for studio voices hold again.
"""

from __future__ import annotations

import base64

import numpy as np
import numpy.typing as npt

# The shared vector of the tuning voices, as bench/diarization/telephone_line.py computes it for the encoder's model:
# 8-bit values, and its length.
_DIRECTION = (
    "w95TlMbz70Hb3LBJ7eUHIxk7UA5uHR9B3fLwAgJD/SUB1uQOgbNaCRIqogz5CuUgF+Ml7tr4JSkm/QDQ0Coz8/Aj0uAX4fo05im3"
    "UeYm2PzpSgg2AfJ6EsPAzvzOHdk0Mhb1AwTkI/lT+zA+tgjzzx/l7h4uJyQEtdf388frFeL4Btj8/Cf7VOejw+AO6fc58OtFF/H6"
    "7KcG7LXd6Abn5i0k9jkKF9/hHRdWwg0v5PYeTtUA5fbNUuka7sk6AvMy"
)
_LENGTH = 0.642

_REMOVED = 0.6  # of the shared vector; with more, voices fall apart
# Share of the shared vector that vectors hold: studio recordings below the first, telephone calls above the second.
_STUDIO = 0.5
_TELEPHONE = 0.75
_NEIGHBOURS = 4  # windows on each side that are heard with the same line


def without_line(vectors: npt.NDArray[np.float32]) -> npt.NDArray[np.float32]:
    """Vectors in order of time, those that came by telephone less what all voices share there; lengths stay."""
    shared = _shared_vector()
    if vectors.ndim != 2 or vectors.shape[1] != len(shared):
        return vectors  # of another encoder
    lengths = np.linalg.norm(vectors, axis=1, keepdims=True)
    units = vectors / np.maximum(lengths, 1e-9)
    held = units @ shared / (shared @ shared)
    around = [np.median(held[max(0, i - _NEIGHBOURS) : i + _NEIGHBOURS + 1]) for i in range(len(held))]
    by_line = np.clip((np.array(around) - _STUDIO) / (_TELEPHONE - _STUDIO), 0, 1)
    units = units - _REMOVED * by_line[:, None] * shared
    cleaned: npt.NDArray[np.float32] = lengths * units / np.maximum(np.linalg.norm(units, axis=1, keepdims=True), 1e-9)
    return cleaned.astype(np.float32)


def _shared_vector() -> npt.NDArray[np.float64]:
    direction = np.frombuffer(base64.b64decode(_DIRECTION), np.int8).astype(np.float64)
    vector: npt.NDArray[np.float64] = direction * (_LENGTH / np.linalg.norm(direction))
    return vector
