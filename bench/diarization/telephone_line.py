#!/usr/bin/env python3
"""Computes what python/diarize/telephone.py holds: the part that the vectors of all voices share by telephone.

    .deps/venv/bin/python bench/diarization/telephone_line.py

From the tuning voices alone; prints the vector as base64 of 8-bit values, largest 127, and its length.
"""

from __future__ import annotations

import base64
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "python")]

import numpy as np

from conversations import SAMPLE_RATE, read_wav, telephone
from diarize import clustering
from voice_sets import VOICES

_CLIPS = 16
_SHORTEST = 1.6


def main() -> None:
    session = clustering.init_session(ROOT / ".deps/models/diarize/KestrelDiarize.onnx", "cpu")
    means = []
    for voice in VOICES["tuning"]:
        clips = [read_wav(path) for path in sorted((ROOT / ".deps/speech/voices" / voice).glob("*.wav"))]
        vectors = []
        for clip in [clip for clip in clips if len(clip) > _SHORTEST * SAMPLE_RATE][:_CLIPS]:
            end = len(clip) / SAMPLE_RATE
            vectors.append(clustering.compute_embeddings(telephone(clip), [(0.0, end)], (0.0, end), session)[1])
        full = np.concatenate(vectors)
        lengths = np.linalg.norm(full, axis=1, keepdims=True)
        means.append((full / lengths)[lengths[:, 0] > 0.9].mean(axis=0))
    shared = np.mean(means, axis=0)
    scaled = np.round(shared / np.abs(shared).max() * 127).astype(np.int8)
    print(base64.b64encode(scaled.tobytes()).decode(), f"{np.linalg.norm(shared):.3f}")


if __name__ == "__main__":
    main()
