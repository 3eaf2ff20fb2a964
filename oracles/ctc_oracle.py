"""What the CTC engine should answer, computed over the whole clip at once with numpy and onnxruntime."""

from __future__ import annotations

import itertools
import json
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import numpy as np
import onnxruntime

FRAME = 320
FRAME_MS = 20


@dataclass(frozen=True)
class Transcript:
    text: str
    starts: list[int]
    ends: list[int]


def _to_frames(samples: int) -> int:
    return -(-samples // FRAME) * FRAME


def _standardise(chunk: Any) -> Any:
    """In single precision, as the engine does it: a model may take small differences for large ones."""
    mean = np.cumsum(chunk, dtype=np.float32)[-1] / np.float32(len(chunk))
    squares = np.float32(0)
    for square in (chunk - mean).astype(np.float64) ** 2:
        squares = np.float32(squares + square)
    deviation = np.sqrt(squares / np.float32(len(chunk)))
    return (chunk - mean) / deviation if deviation > 1e-6 else chunk


class Oracle:
    def __init__(self, models: Path, language: str) -> None:
        folder = models / "wav2vec2"
        settings = json.loads((folder / "Languages.json").read_text(encoding="utf-8"))[language]
        self._session = onnxruntime.InferenceSession(folder / settings["onnxModel"])
        vocabulary = json.loads((folder / settings["vocab"]).read_text(encoding="utf-8"))
        self._tokens = {number: token for token, number in vocabulary.items()}
        self._delimiter = "/" if language == "Arabic" else "|"

    def transcribe(self, samples: Any, chunk: int, overlap: int, batch: int, padding: int) -> Transcript:
        rows = self._rows(np.concatenate([samples, np.zeros(padding)]).astype(np.float32), _to_frames(chunk),
                          _to_frames(overlap), batch)
        if not rows:
            return Transcript("", [], [])
        scores = np.concatenate(rows)
        # Of equal scores the last wins.
        best = scores.shape[1] - 1 - scores[:, ::-1].argmax(axis=1)
        return self._words([self._tokens[number] for number in best])

    def _scores(self, chunk: Any) -> Any:
        return self._session.run(None, {"samples": _standardise(chunk)[None]})[0][0].copy()

    def _rows(self, clip: Any, chunk: int, overlap: int, batch: int) -> list[Any]:
        """The scores that are decoded, in order of time."""
        stride = chunk - overlap
        shared = overlap // FRAME - 1
        chunk_frames = chunk // FRAME - 1
        fade = (np.arange(1, shared + 1, dtype=np.float32) / np.float32(shared + 1))[:, None]
        complete = max(0, (len(clip) - overlap) // stride) if len(clip) >= chunk else 0
        rows = []
        previous = None
        for number in range(complete):
            scores = self._scores(clip[number * stride : number * stride + chunk])
            if previous is not None:
                scores[:shared] = (1 - fade) * previous[chunk_frames - shared :] + fade * scores[:shared]
            rows.append(scores[: chunk_frames - shared])
            previous = scores
        rest = clip[complete * stride :]
        if len(rest) == 0:
            return rows
        scores = self._scores(np.pad(rest, (0, _to_frames(len(rest)) - len(rest))))
        # The scores of an incomplete batch are not kept for the chunk behind it.
        if previous is not None and complete % batch == 0:
            scores[:shared] = (1 - fade) * previous[chunk_frames - shared :] + fade * scores[:shared]
        whole = len(scores) == chunk_frames
        rows.append(scores[: chunk_frames - shared] if whole else scores)
        # The only chunk of a batch is its last one, whose overlap waits for a chunk that never comes.
        if batch == 1 and len(scores) > shared:
            rows.append(scores[len(scores) - shared :])
        return rows

    def _words(self, frames: list[str]) -> Transcript:
        text = ""
        starts: list[int] = []
        ends: list[int] = []
        time = 0
        silence = 0
        for token, run in itertools.groupby(frames):
            length = len(list(run))
            if token == self._delimiter:
                if len(starts) > len(ends):
                    text += " "
                    ends.append((time - silence) * FRAME_MS)
            elif token not in ("<pad>", "<unk>"):
                if len(starts) == len(ends):
                    starts.append(time * FRAME_MS)
                text += token
            silence = length if token == "<pad>" else 0
            time += length
        return Transcript(text.strip(" "), starts, ends)
