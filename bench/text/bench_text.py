#!/usr/bin/env python3
"""Times the text functions beside cydifflib, difflib, rapidfuzz, ICU and the plain forms, in one run.

All times are computing time of one thread, the shortest of several runs except for the slow forms. Needs a build (KESTREL_BUILD_BIN, by default build/bin).
"""

from __future__ import annotations

import difflib
import random
import tempfile
import time
from collections.abc import Callable
from pathlib import Path
from typing import Any

import cydifflib  # type: ignore[import-untyped]
from prose import noisy, prose, sentences, timed
from rapidfuzz import process
from rapidfuzz.distance import Levenshtein

LETTERS = 4096
GROWTH = (1_000, 5_000, 10_000, 20_000, 50_000, 100_000, 160_000)


def milliseconds(call: Callable[[], Any]) -> float:
    start = time.process_time()
    call()
    return (time.process_time() - start) * 1000


def digest(blocks: Any) -> int:
    value = 0
    for block in blocks:
        for number in block:
            value = (value * 1000003 + number) % 2147483647
    return value


def peer(module: Any, a: str, b: str) -> tuple[float, int]:
    blocks: list[Any] = []
    took = milliseconds(lambda: blocks.extend(module.SequenceMatcher(None, a, b, False).get_matching_blocks()))
    return took, digest(blocks)


def fibonacci_word(length: int) -> str:
    before, word = "a", "ab"
    while len(word) < length:
        before, word = word, word + before
    return word[:length]


def shuffled_lines(text: str) -> tuple[str, str]:
    lines = [text[start : start + 53] + "\n" for start in range(0, len(text), 53)]
    return "".join(lines), "".join(random.Random(1).sample(lines, len(lines)))


def compare_sequences(folder: Path) -> None:
    print("\nSequence match, milliseconds (all find the same blocks)")
    print(f"{'':34}{'ours':>10}{'cydifflib':>12}{'difflib':>12}{'plain':>12}{'cydifflib/ours':>16}")
    fibonacci = fibonacci_word(LETTERS)
    cases = [
        ("prose, 12 % noise, 5,000", prose(5_000), noisy(prose(5_000), 12, 1), True),
        ("prose, 12 % noise, 50,000", prose(50_000), noisy(prose(50_000), 12, 1), False),
        ("one letter, 4,096", "a" * LETTERS, "a" * LETTERS, False),
        ("a^i b against a^i c, 4,096", "a" * (LETTERS - 1) + "b", "a" * (LETTERS - 1) + "c", False),
        ("Fibonacci words, 4,096", fibonacci, fibonacci[::-1][7:] + fibonacci[:7], False),
        ("lines shuffled, 4,096", *shuffled_lines(prose(LETTERS)), True),
    ]
    for name, a, b, with_slow in cases:
        ours = timed(folder, "sequence", a, b)
        theirs, their_digest = peer(cydifflib, a, b)
        columns = [f"{theirs:12.1f}", f"{'–':>12}", f"{'–':>12}"]
        if with_slow:
            columns[1] = f"{peer(difflib, a, b)[0]:12.1f}"
            columns[2] = f"{timed(folder, 'sequence', a, b, options=('plain',))['us'] / 1000:12.1f}"
        assert ours["digest"] == their_digest, name
        print(f"{name:34}{ours['us'] / 1000:10.2f}{''.join(columns)}{theirs / (ours['us'] / 1000):15.0f}x")


def show_growth(folder: Path) -> None:
    print("\nSequence match of n x n units: milliseconds, and MiB of memory on top of the texts")
    print(f"{'n':>10}{'prose, 12 %':>16}{'':8}{'lines shuffled':>16}{'':8}{'a^i b, a^i c':>16}{'':8}")
    for n in GROWTH:
        text = prose(n)
        pairs = [(text, noisy(text, 12, 1)), shuffled_lines(text), ("a" * (n - 1) + "b", "a" * (n - 1) + "c")]
        results = [timed(folder, "sequence", *pair) for pair in pairs]
        cells = [f"{result['us'] / 1000:13.1f} ms{result['KiB'] / 1024:5.1f} MB" for result in results]
        print(f"{n:10,}{''.join(cells)}")


def compare_normal_forms(folder: Path) -> None:
    print("\nnormalizeForSearch, nanoseconds a unit")
    texts = {
        "English": prose(20_000),
        "English, one sentence": sentences()[0],
        "French": "Où était-elle, l'été dernier ? À Évian, près du château, où l'œuvre fut créée. " * 100,
        "Russian": "Ёлка стояла у окна, и снег всё шёл и шёл. " * 100,
        "Greek": "Ο ΟΔΟΣ της πόλης. " * 100,
    }
    for name, text in texts.items():
        result = timed(folder, "normal", text)
        assert result["same"], name
        units = len(text)
        ours, icu = result["us"] * 1000 / units, result["icu us"] * 1000 / units
        print(f"{name:34}{ours:10.2f}{icu:10.1f} ICU{icu / ours:10.0f}x")


def compare_phrases(folder: Path) -> None:
    print("\nPhrase matcher, 12-word phrase prepared once, asked for a 200-word segment, microseconds")
    print("(ours splits and normalises the words too; rapidfuzz gets the candidates ready made)")
    words = prose(20_000).split()[:200]
    phrase = noisy(" ".join(words[90:102]), 8, 3)
    text = " ".join(words)
    candidates = [" ".join(words[i : i + 12]).lower() for i in range(len(words) - 11)]
    queries = [phrase.lower()]

    def shortest(call: Callable[[], Any]) -> float:
        return min(milliseconds(call) for _ in range(200)) * 1000

    fuzz = shortest(lambda: process.cdist(queries, candidates, scorer=Levenshtein.distance))
    print(f"{'threshold':>10}{'ours':>10}{'prepare':>10}{'plain':>12}{'rapidfuzz':>12}{'with cutoff':>14}")
    for threshold in (0.0, 0.5, 0.6, 0.9):
        result = timed(folder, "phrase", phrase, text, options=(str(threshold),))
        assert result["same"]
        cut = shortest(
            lambda: process.cdist(
                queries, candidates, scorer=Levenshtein.normalized_similarity, score_cutoff=threshold
            )
        )
        print(f"{threshold:10}{result['us']:10.1f}{result['prepare us']:10.1f}{result['plain us']:12.0f}"
              f"{fuzz:12.1f}{cut:14.1f}")


def time_alignment(folder: Path) -> None:
    script = sentences()
    length = 160_000
    while sum(map(len, script)) + len(script) > length:
        script.pop()
    spoken = noisy(" ".join(script), 4, 5).split()
    segments = [" ".join(spoken[i : i + 12]) for i in range(0, len(spoken), 12)]
    result = timed(folder, "align", "\n".join(script), "\n".join(segments))
    print(f"\nAlign, {len(script):,} script lines on {len(segments):,} segments, {length:,} units: "
          f"{result['us'] / 1e6:.2f} s")


def main() -> None:
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        compare_sequences(folder)
        show_growth(folder)
        compare_normal_forms(folder)
        compare_phrases(folder)
        time_alignment(folder)


if __name__ == "__main__":
    main()
