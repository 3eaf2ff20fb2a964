"""Speaker vectors over sliding windows, and their grouping into voices."""

from __future__ import annotations

import os
from collections.abc import Sequence

import numpy as np
import onnxruntime

from diarize.speech_islands import Audio, find_islands
from diarize.telephone import without_line
from diarize.utils import Range
from diarize.voices import Labels, Vectors, group

_MOST_THREADS = 4
_FRAMES_PER_SHIFT = 2  # the encoder halves the frame rate of its filter bank
_SHORTEST_INPUT_SECONDS = 0.4  # shorter speech is encoded together with what surrounds it
_SHORTEST_REST_SECONDS = 0.1  # a remainder up to this adds no window at the end of a stretch


def init_session(model_path: str | os.PathLike[str], device: str) -> onnxruntime.InferenceSession:
    if device != "cpu":
        raise ValueError(f'speaker vectors are computed on the "cpu" only, not on "{device}"')
    if not os.path.isfile(model_path):
        raise FileNotFoundError(f"speaker model not found: {os.fspath(model_path)}")
    options = onnxruntime.SessionOptions()
    options.intra_op_num_threads = min(_MOST_THREADS, _available_cores())
    return onnxruntime.InferenceSession(os.fspath(model_path), options, providers=["CPUExecutionProvider"])


def compute_embeddings(
    audio: Audio, vad_segments: Sequence[Range], vad_range: Range, session: onnxruntime.InferenceSession,
    batch_size: int = 32, sampling_rate: int = 16000, window_secs: float = 1.5, period_secs: float = 0.75,
    frame_shift: int = 10,
) -> tuple[list[Range], Vectors]:
    """Windows (begin, end) in seconds and a vector for each; its length is the window's share of a full one.

    Windows lie within the speech between two pauses; speech shorter than a window makes one short window.
    """
    if batch_size < 1 or not 0 < period_secs <= window_secs:
        raise ValueError(f"cannot cut windows of {window_secs} s every {period_secs} s in batches of {batch_size}")
    begin, end = vad_range
    segments = [(max(first, begin), min(last, end)) for first, last in vad_segments]
    windows: list[Range] = []
    vectors: list[Vectors] = []
    for island in find_islands(audio, segments, sampling_rate, frame_shift):
        cut = _cut_windows(island, window_secs, period_secs)
        for first in range(0, len(cut), batch_size):
            batch = cut[first : first + batch_size]
            windows += batch
            share = min(1.0, (batch[0][1] - batch[0][0]) / window_secs)
            vectors.append(share * _encode(audio, batch, session, sampling_rate, frame_shift))
    return windows, np.concatenate(vectors) if vectors else np.empty((0, 0), np.float32)


def cluster(embeddings_list: Vectors, sparsity_threshold: float, max_num_spks: int) -> Labels:
    """A voice number for every vector.

    A voice with less than the share `sparsity_threshold` of the speech does not count as one; its windows go to the
    voices that they resemble most.
    """
    if not 0 <= sparsity_threshold <= 1:
        raise ValueError(f"the sparsity threshold is a share between 0 and 1, not {sparsity_threshold}")
    if max_num_spks < 1:
        raise ValueError(f"at least one speaker must be allowed, not {max_num_spks}")
    if not len(embeddings_list):
        return np.empty(0, np.int64)
    return group(without_line(np.asarray(embeddings_list)), sparsity_threshold, max_num_spks)


def _cut_windows(island: Range, window: float, period: float) -> list[Range]:
    """Every `period` seconds; the last window ends where the speech does."""
    begin, end = island
    if end - begin <= window:
        return [island]
    steps = int((end - begin - window) / period)
    windows = [(begin + step * period, begin + step * period + window) for step in range(steps + 1)]
    if end - windows[-1][1] > _SHORTEST_REST_SECONDS:
        windows.append((end - window, end))
    return windows


def _encode(audio: Audio, windows: Sequence[Range], session: onnxruntime.InferenceSession, sampling_rate: int,
            frame_shift: int) -> Vectors:
    """Vectors of unit length for windows of one length that follow each other."""
    frames_per_second = 1000 / (frame_shift * _FRAMES_PER_SHIFT)
    waveform = _slice(audio, windows[0][0], windows[-1][1], sampling_rate)
    frames = int(len(waveform) / sampling_rate * frames_per_second) - 1  # the last filter frame must lie inside
    length = min(frames, round((windows[0][1] - windows[0][0]) * frames_per_second) - 1)
    starts = [min(round((begin - windows[0][0]) * frames_per_second), frames - length) for begin, _ in windows]
    (vectors,) = session.run(["vectors"], {
        "waveform": np.ascontiguousarray(waveform, np.float32),
        "starts": np.array(starts, np.int64),
        "frames": np.array(length, np.int64),
    })
    result: Vectors = vectors
    return result


def _slice(audio: Audio, begin: float, end: float, sampling_rate: int) -> Audio:
    """The samples of a stretch, widened on both sides, with silence if needed, to the least that the encoder accepts."""
    shortest = int(_SHORTEST_INPUT_SECONDS * sampling_rate)
    first, last = int(begin * sampling_rate), min(int(end * sampling_rate), len(audio))
    if last - first < shortest:
        first = max(0, min((first + last - shortest) // 2, len(audio) - shortest))
        last = first + shortest
    piece = audio[first:last]
    return np.pad(piece, (0, max(0, shortest - len(piece))))


def _available_cores() -> int:
    return len(os.sched_getaffinity(0)) if hasattr(os, "sched_getaffinity") else os.cpu_count() or 1
