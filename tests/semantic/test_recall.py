"""Sentences are found by their translations, as often as with the encoder's own vectors."""

from __future__ import annotations

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "bench/semantic"))
from recall import found_by_encoder, found_by_store, recall, sentences  # noqa: E402


def test_translations_find_their_sentences() -> None:
    texts, vectors = sentences()
    wanted = list(range(len(texts["en"])))
    others = ["de", "ru"]
    hits = found_by_store(texts["en"], [query for other in others for query in texts[other]])
    for number, other in enumerate(others):
        ours = recall(hits[number * len(wanted):(number + 1) * len(wanted)], wanted)
        assert ours == recall(found_by_encoder(vectors["en"], vectors[other]), wanted)
        assert ours[0] > 0.9 and ours[1] > 0.95
