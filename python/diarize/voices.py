"""Groups speaker vectors, in order of time, into voices; the number of voices is found from the data.

Windows are joined bottom-up as long as they resemble each other. The mean vectors of the groups are far steadier than
single windows: groups whose means are alike are joined, groups too small to be a voice are dissolved, and every window
goes to the mean it resembles most, with a price on changing the voice from one window to the next.
"""

from __future__ import annotations

import numpy as np
import numpy.typing as npt
from sklearn.cluster import AgglomerativeClustering

Vectors = npt.NDArray[np.float32]
Labels = npt.NDArray[np.int64]
_Matrix = npt.NDArray[np.float64]

# Tuned on recordings; bench/diarization reports the results on others.
_JOIN_DISTANCE = 0.7  # cosine distance up to which windows are joined, averaged over pairs
_SAME_VOICE = 0.65  # cosine similarity, less the noise of the means, from which two groups are one voice
_WINDOW_RELIABILITY = 0.15  # share of a single window's vector that is the voice's own
_SMALLEST_VOICE = 2.0  # whole windows of speech
_CHANGE_PRICE = 0.03  # similarity that a change of voice must gain
_MOST_ROUNDS = 10
_BLOCK = 2000  # windows joined at a time: the pairwise distances take memory with the square


def group(vectors: Vectors, smallest_share: float, most_voices: int) -> Labels:
    """A number for each vector's voice, counted from 0 in order of appearance; a vector's length is its weight."""
    weights = np.linalg.norm(vectors, axis=1).astype(np.float64)
    clip = _Clip(vectors / np.maximum(weights, 1e-9)[:, None], weights, smallest_share, most_voices)
    labels = clip.settle(clip.join_windows())
    for _ in range(_MOST_ROUNDS):
        moved = clip.settle(clip.reassign(labels))
        if np.array_equal(moved, labels):
            break
        labels = moved
    return labels


class _Clip:
    """The windows of one clip and the limits for its voices."""

    def __init__(self, units: npt.NDArray[np.floating], weights: _Matrix, smallest_share: float,
                 most_voices: int) -> None:
        self._units = units.astype(np.float64)
        self._weights = weights
        self._least_weight = max(_SMALLEST_VOICE, smallest_share * float(weights.sum()))
        self._most_voices = most_voices

    def join_windows(self) -> Labels:
        """Bottom-up by average distance, block by block; `settle` finds the voices that blocks share."""
        labels = np.zeros(len(self._units), np.int64)
        groups = 0
        for block in np.array_split(np.arange(len(labels)), -(-len(labels) // _BLOCK)):
            labels[block] = groups + _join(self._units[block])
            groups = int(labels.max()) + 1
        return labels

    def settle(self, labels: Labels) -> Labels:
        """Joins groups that are one voice and dissolves those that are too small or too many."""
        while True:
            labels = _renumbered(labels)
            means, masses = self._means(labels), np.bincount(labels, self._weights).astype(np.float64)
            if len(means) == 1:
                return labels
            reliable = _reliability(masses)
            alike = means @ means.T / np.outer(reliable, reliable)
            np.fill_diagonal(alike, -np.inf)
            first, second = np.unravel_index(int(alike.argmax()), alike.shape)
            smallest = int(masses.argmin())
            if alike[first, second] > _SAME_VOICE:
                labels[labels == second] = first
            elif masses[smallest] < self._least_weight or len(means) > self._most_voices:
                self._dissolve(labels, smallest, means)
            else:
                return labels

    def reassign(self, labels: Labels) -> Labels:
        """The best path through the windows: likeness to the voices' means, less a price for every change."""
        likeness = (self._units @ self._means(labels).T) * self._weights[:, None]
        best, came_from = likeness[0], np.zeros(likeness.shape, np.int64)
        stay = np.arange(likeness.shape[1])
        for window in range(1, len(likeness)):
            leader = int(best.argmax())
            change = best[leader] - _CHANGE_PRICE
            came_from[window] = np.where(best >= change, stay, leader)
            best = np.maximum(best, change) + likeness[window]
        path = np.full(len(likeness), best.argmax())
        for window in range(len(likeness) - 1, 0, -1):
            path[window - 1] = came_from[window, path[window]]
        return path

    def _means(self, labels: Labels) -> _Matrix:
        sums = np.zeros((int(labels.max()) + 1, self._units.shape[1]))
        np.add.at(sums, labels, self._units * self._weights[:, None])
        means: _Matrix = sums / np.maximum(np.linalg.norm(sums, axis=1, keepdims=True), 1e-9)
        return means

    def _dissolve(self, labels: Labels, voice: int, means: _Matrix) -> None:
        windows = np.flatnonzero(labels == voice)
        likeness = self._units[windows] @ means.T
        likeness[:, voice] = -np.inf
        labels[windows] = likeness.argmax(axis=1)


def _join(units: _Matrix) -> Labels:
    if len(units) == 1:
        return np.zeros(1, np.int64)
    joiner = AgglomerativeClustering(n_clusters=None, metric="cosine", linkage="average",
                                     distance_threshold=_JOIN_DISTANCE)
    labels: Labels = joiner.fit_predict(units).astype(np.int64)
    return labels


def _reliability(masses: _Matrix) -> _Matrix:
    """How similar the mean of so many windows is to the voice's true vector, given the noise of single windows."""
    windows = np.maximum(masses, 1.0)
    reliability: _Matrix = np.sqrt(windows * _WINDOW_RELIABILITY / (1 + (windows - 1) * _WINDOW_RELIABILITY))
    return reliability


def _renumbered(labels: Labels) -> Labels:
    """Counted from 0 in order of appearance."""
    values, firsts, positions = np.unique(labels, return_index=True, return_inverse=True)
    rank = np.empty(len(values), np.int64)
    rank[np.argsort(firsts)] = np.arange(len(values))
    renumbered: Labels = rank[positions]
    return renumbered
