#!/usr/bin/env python3
"""Measures the search for phrases across segments beside the one within them, in one running desk and its store.

    .deps/venv/bin/python bench/store/search.py [--clips 1000 10000] [--segments 100]

The sentences have words that are frequent and rare as those of a language are; a quarter of the phrases run from one segment into
the next. Prints the median and the longest of the phrases' times.
"""

from __future__ import annotations

import argparse
import json
import os
import random
import statistics
import sys
import tempfile
import time
from collections.abc import Iterator
from pathlib import Path
from urllib.parse import urlencode

ROOT = Path(__file__).resolve().parents[2]
os.environ.setdefault("KESTREL_BUILD_BIN", str(ROOT / "build/bin"))
os.environ.setdefault("KESTREL_DEPS_DIR", str(ROOT / ".deps"))
sys.path[:0] = [str(ROOT / "tests/app"), str(ROOT / "tests/desk")]

from app_under_test import TRANSCRIPTS, Kestrel
from desk_process import Desk
from stored_clips import Line, StoredClip, project_id, put

WORDS = 5000
PHRASES = 20
CLIPS_OF_A_REQUEST = 50
PROJECT = "Many"


class Prose:
    def __init__(self, seed: int) -> None:
        self._random = random.Random(seed)
        syllables = [a + b for a in "bdfgklmnprstv" for b in ("a", "e", "i", "o", "u", "ar", "en", "il")]
        self._words = list(dict.fromkeys("".join(self._random.choices(syllables, k=3)) for _ in range(2 * WORDS)))[:WORDS]

    def sentence(self) -> str:
        return " ".join(self._words[int(WORDS * self._random.random() ** 3)] for _ in range(10))


def clips(prose: Prose, count: int, segments: int) -> Iterator[StoredClip]:
    for number in range(count):
        lines = [Line(prose.sentence(), i * 4000, 350, str(i % 3)) for i in range(segments)]
        yield StoredClip(f"clip {number}.mov", PROJECT, lines)


def load(kestrel: Kestrel, count: int, segments: int) -> list[str]:
    """Returns phrases that are said in the first clips, three words each, the last ones over the border of two segments."""
    phrases: list[str] = []
    documents: list[str] = []
    for number, clip in enumerate(clips(Prose(7), count, segments)):
        if number == 0:
            put(kestrel, clip)
        if len(phrases) < PHRASES:
            one, other = clip.lines[5].text.split(), clip.lines[6].text.split()
            phrases.append(" ".join(one[3:6] if len(phrases) < PHRASES * 3 // 4 else one[-2:] + other[:1]))
        if number > 0:
            documents += [json.dumps(line) for document in clip.documents() for line in ({"index": {"_index": TRANSCRIPTS}}, document)]
        if documents and (number % CLIPS_OF_A_REQUEST == 0 or number == count - 1):
            kestrel.index("POST", "_bulk", "\n".join(documents) + "\n")
            documents = []
    return phrases


def measure(count: int, segments: int) -> None:
    with tempfile.TemporaryDirectory() as folder:
        kestrel = Kestrel(Path(folder) / "home")
        kestrel.up()
        try:
            phrases = load(kestrel, count, segments)
            with Desk(kestrel) as desk:
                desk.sign_in()
                for across in (0, 1):
                    times, hits = [], 0
                    for phrase in phrases:
                        query = {"phrase": phrase, "project": project_id(PROJECT), "across": across, "max": 20}
                        begin = time.monotonic()
                        answer = desk.ask("GET", "/api/search?" + urlencode(query)).json()
                        times.append(1000 * (time.monotonic() - begin))
                        hits += any(hit["score"] > 0.99 for hit in answer["hits"])
                    print(f"{count:7,} clips of {segments:5,}  {'across' if across else 'within'}  median {statistics.median(times):6.0f} ms  "
                          f"longest {max(times):6.0f} ms  {hits} of {PHRASES} phrases found", flush=True)
        finally:
            kestrel.run("down")


def main() -> None:
    parser = argparse.ArgumentParser(description=(__doc__ or "").splitlines()[0])
    parser.add_argument("--clips", type=int, nargs="+", default=[1000, 10_000])
    parser.add_argument("--segments", type=int, default=100, help="of each clip (%(default)s)")
    options = parser.parse_args()
    for count in options.clips:
        measure(count, options.segments)


if __name__ == "__main__":
    main()
