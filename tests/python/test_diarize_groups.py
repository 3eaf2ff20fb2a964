"""Speaker diarization without its model: spans, pauses, grouping of vectors, turns, speakers of segments."""

from __future__ import annotations

from typing import Any

import numpy as np
import pytest
from conftest import RATE
from diarize import clustering, make_rttm, utils
from diarize.speech_islands import find_islands

Vectors = Any


def voices(*counts: int, spread: float = 0.06, seed: int = 3) -> tuple[Vectors, list[int]]:
    """So many vectors around each of several directions, in turns of ten, and the voice of each."""
    chance = np.random.default_rng(seed)
    centres = chance.standard_normal((len(counts), 192))
    left, order = list(counts), []
    while any(left):
        for voice, count in enumerate(left):
            order += [voice] * min(10, count)
            left[voice] -= min(10, count)
    vectors = np.array([centres[voice] / np.linalg.norm(centres[voice]) for voice in order])
    vectors = vectors + spread * chance.standard_normal(vectors.shape)
    return (vectors / np.linalg.norm(vectors, axis=1, keepdims=True)).astype(np.float32), order


@pytest.mark.parametrize("counts", [(1,), (2,), (40,), (30, 30), (50, 10, 20), (20,) * 6, (1500, 1400)])
def test_voices_are_found(counts: tuple[int, ...]) -> None:
    vectors, order = voices(*counts)
    assert clustering.cluster(vectors, 0.01, max_num_spks=100).tolist() == order


@pytest.mark.parametrize("cap", [1, 2, 3])
def test_never_more_than_allowed(cap: int) -> None:
    vectors, _ = voices(30, 20, 25, 15)
    assert len(set(clustering.cluster(vectors, 0.01, max_num_spks=cap).tolist())) == cap


@pytest.mark.parametrize("threshold, found", [(0.01, 3), (0.2, 2), (0.5, 1)])
def test_sparse_voices_are_dissolved(threshold: float, found: int) -> None:
    vectors, _ = voices(60, 30, 10)
    assert len(set(clustering.cluster(vectors, threshold, max_num_spks=9).tolist())) == found


def test_equal_input_gives_equal_labels() -> None:
    vectors, _ = voices(25, 25, 25, spread=0.1)
    first = clustering.cluster(vectors, 0.01, max_num_spks=9)
    assert np.array_equal(first, clustering.cluster(vectors.copy(), 0.01, max_num_spks=9))


@pytest.mark.parametrize("threshold, cap, named", [(-0.1, 3, "-0.1"), (1.5, 3, "1.5"), (0.01, 0, "0")])
def test_senseless_limits_are_refused(threshold: float, cap: int, named: str) -> None:
    with pytest.raises(ValueError, match=named):
        clustering.cluster(voices(5)[0], threshold, max_num_spks=cap)


def test_spans_become_seconds() -> None:
    spans = [{"start": 32000, "end": 48000}, {"start": 0, "end": 16000}, {"start": 50000, "end": 50000}]
    assert utils.process_vadsegments(spans, 16000) == ((0.0, 3.0), [(0.0, 1.0), (2.0, 3.0)])
    assert utils.process_vadsegments([], 16000) == ((0.0, 0.0), [])


def test_spans_are_split_at_pauses_only() -> None:
    """A pause of 0.6 s splits, one of 0.1 s does not, a click is no speech; quieter speech counts."""
    noise = np.random.default_rng(1).standard_normal(RATE * 6).astype(np.float32) * 0.0003
    for begin, end, level in ((0.5, 2.0, 0.2), (2.1, 3.0, 0.2), (3.6, 5.0, 0.03), (5.5, 5.55, 0.2)):
        noise[int(begin * RATE) : int(end * RATE)] *= level / 0.0003
    islands = find_islands(noise, [(0.0, 6.0)], RATE, 10)
    assert np.allclose(islands, [(0.5, 3.0), (3.6, 5.0)], atol=0.011)
    assert find_islands(noise, [], RATE, 10) == []


def test_turns_join_and_share_overlaps() -> None:
    windows = [(0.0, 1.5), (0.75, 2.25), (1.5, 3.0), (5.0, 6.0), (9.0, 9.5)]
    labelled = make_rttm.read_labels(windows, np.array([0, 0, 1, 1, 1]))
    assert make_rttm.merge_segments(labelled) == [(0.0, 1.875, 0), (1.875, 3.0, 1), (5.0, 6.0, 1), (9.0, 9.5, 1)]


def test_labels_must_fit_windows() -> None:
    with pytest.raises(ValueError, match="2 windows but 1 labels"):
        make_rttm.read_labels([(0.0, 1.0), (1.0, 2.0)], [0])


def segment(*words: tuple[int, int]) -> dict[str, Any]:
    return {"words": [{"startMs": start, "endMs": end} for start, end in words]}


@pytest.mark.parametrize("words, speakers", [
    ([[(5000, 6000)], [(0, 1000)], [(5500, 6500)]], ["1", "2", "1"]),  # numbered as they appear in the segments
    ([[(0, 1000)], [(3500, 3900), (4000, 5500)]], ["1", "2"]),  # most of the words decides
    ([[(0, 500)], [(4200, 4300)], [(4700, 4800)]], ["1", "1", "2"]),  # between turns: the nearer one
    ([[(0, 500)], [(4700, 4700)], [(9000, 9500)]], ["1", "2", "2"]),  # a word without length; after the last turn
    ([[(5000, 6000)], [], [(0, 1)]], ["1", "1", "2"]),  # without words: as before
], ids=["order", "majority", "pause", "edges", "wordless"])
def test_segments_get_speakers(words: list[list[tuple[int, int]]], speakers: list[str]) -> None:
    segments = [segment(*some) for some in words]
    merged = make_rttm.merge_outputs([(0.0, 4.0, 7), (5.0, 8.0, 3)], segments, True)
    assert merged == (segments, True)
    assert [one["speakerID"] for one in segments] == speakers


def test_no_turns_leave_segments_alone() -> None:
    segments = [segment((0, 100)), segment((200, 300))]
    assert make_rttm.merge_outputs([], segments, False) == (segments, False)
    assert not any("speakerID" in one for one in segments)
