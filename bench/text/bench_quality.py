#!/usr/bin/env python3
"""Measures how often alignment puts script lines at the right word.

Scripts are real prose, one sentence a line. Recordings are the same words, damaged in ways of which it is known where
each line begins; segments end anywhere, as a recogniser's do.
"""

from __future__ import annotations

import random
import tempfile
from dataclasses import dataclass
from pathlib import Path

from prose import sentences, timed

LINES = 600
WORDS_PER_SEGMENT = 11
NEAR = 3
SCENE = 20  # lines

# As a script has it, and as it is spoken.
NUMBERS = [
    ("7:30", "half past seven"),
    ("25", "twenty five"),
    ("on 24 May 1999", "on the twenty fourth of May nineteen ninety nine"),
    ("$40", "forty dollars"),
    ("3rd", "third"),
]


@dataclass
class Take:
    """A script, the words of its recording, and for each line the words at which it begins, if any."""

    script: list[str]
    spoken: list[str]
    begins: list[list[int]]


def misheard(line: str, percent: int, rng: random.Random, vocabulary: list[str]) -> list[str]:
    """The line's words, of which as many percent are dropped or taken for others."""
    words = []
    for word in line.split():
        if rng.randrange(100) >= percent:
            words.append(word)
        elif rng.randrange(2) == 0:
            words.append(rng.choice(vocabulary))
    return words


def record(script: list[str], order: list[int], percent: int, seed: int, spoken_as: list[str] | None = None) -> Take:
    """Speaks the lines of `order`."""
    rng = random.Random(seed)
    vocabulary = " ".join(script).split()
    take = Take(script, [], [[] for _ in script])
    for line in order:
        words = misheard((spoken_as or script)[line], percent, rng, vocabulary)
        if words:
            take.begins[line].append(len(take.spoken))
            take.spoken += words
    return take


def with_numbers(script: list[str], rng: random.Random) -> tuple[list[str], list[str]]:
    """Puts a number into every third line, at its beginning or inside: as written, and as spoken."""
    written, spoken = list(script), list(script)
    for line in range(0, len(script), 3):
        words = script[line].split()
        position = 0 if rng.randrange(2) else rng.randrange(len(words))
        for texts, number in zip((written, spoken), rng.choice(NUMBERS), strict=True):
            texts[line] = " ".join([*words[:position], number, *words[position:]])
    return written, spoken


def takes(script: list[str]) -> dict[str, Take]:
    everything = list(range(len(script)))
    rng = random.Random(1)
    dropped = [line for line in everything if line // SCENE % 5 != 2]
    repeated = [line for scene in range(0, len(script), SCENE)
                for line in everything[scene : scene + SCENE] * (2 if scene // SCENE % 5 == 2 else 1)]
    moved = everything[: 5 * SCENE] + everything[6 * SCENE :] + everything[5 * SCENE : 6 * SCENE]
    written, spoken = with_numbers(script, rng)
    return {
        "every word as written": record(script, everything, 0, 2),
        "5 % of words lost or changed": record(script, everything, 5, 3),
        "10 %": record(script, everything, 10, 4),
        "20 %": record(script, everything, 20, 5),
        "5 %, every fifth scene left out": record(script, dropped, 5, 6),
        "5 %, every fifth scene twice": record(script, repeated, 5, 7),
        "5 %, numbers in a third of the lines": record(written, everything, 5, 8, spoken),
        "5 %, one scene spoken at the end": record(script, moved, 5, 9),
    }


def placed(take: Take, folder: Path) -> list[int | None]:
    """For each line the spoken word at which alignment puts it."""
    segments = [take.spoken[i : i + WORDS_PER_SEGMENT] for i in range(0, len(take.spoken), WORDS_PER_SEGMENT)]
    result = timed(folder, "align", "\n".join(take.script), "\n".join(map(" ".join, segments)))
    return [None if score == 0 else line * WORDS_PER_SEGMENT + word for line, word, score in result["items"]]


def report(name: str, take: Take, folder: Path) -> None:
    counts = dict.fromkeys(("right", "near", "wrong", "missing", "rightly missing", "invented"), 0)
    for begins, found in zip(take.begins, placed(take, folder), strict=True):
        if not begins:
            counts["rightly missing" if found is None else "invented"] += 1
        elif found is None:
            counts["missing"] += 1
        else:
            distance = min(abs(found - begin) for begin in begins)
            counts["right" if distance == 0 else "near" if distance <= NEAR else "wrong"] += 1
    present = sum(map(bool, take.begins))
    cells = [f"{100 * counts[kind] / present:9.1f}" for kind in ("right", "near", "wrong", "missing")]
    absent = len(take.script) - present
    left_out = f"{counts['rightly missing']:6} of {absent}" if absent else ""
    print(f"{name:38}{''.join(cells)}  {left_out}")


def main() -> None:
    # Only words that are one word to the aligner, too, so that places can be counted.
    script = [" ".join(word for word in line.split() if word.strip("\"'(),.;:!?").isalpha()) for line in sentences()]
    script = [line for line in dict.fromkeys(script) if len(line.split()) >= 4][:LINES]
    print(f"{len(script)} script lines; percent of the lines that were spoken")
    print(f"{'':38}{'right':>9}{'within 3':>9}{'wrong':>9}{'missing':>9}  not spoken and not found")
    with tempfile.TemporaryDirectory() as folder:
        for name, take in takes(script).items():
            report(name, take, Path(folder))


if __name__ == "__main__":
    main()
