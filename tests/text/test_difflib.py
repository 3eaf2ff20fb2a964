"""The blocks of the sequence matcher are those of difflib with autojunk off."""

from __future__ import annotations

import difflib
import os
import random
import struct
import subprocess
from pathlib import Path

import pytest

Pair = tuple[str, str]
Blocks = list[tuple[int, int, int]]

TOOL = Path(os.environ["KESTREL_BUILD_BIN"]) / "kestrel_matching_blocks_tool"
README = Path(__file__).parents[2] / "README.md"
# Pair by pair up to this many pairs of units: as the library does, nowhere, and for the smallest ranges only.
LIMITS = [[], ["0"], ["400"]]


def units(text: str) -> tuple[int, ...]:
    data = text.encode("utf-16-le", "surrogatepass")
    return struct.unpack(f"<{len(data) // 2}H", data)


def packed(text: str) -> bytes:
    numbers = units(text)
    return struct.pack(f"=I{len(numbers)}H", len(numbers), *numbers)


def our_blocks(pairs: list[Pair], limit: list[str]) -> list[Blocks]:
    data = b"".join(packed(text) for pair in pairs for text in pair)
    result = subprocess.run([TOOL, *limit], input=data, capture_output=True, check=True)
    lines = [[int(number) for number in line.split()] for line in result.stdout.splitlines()]
    return [list(zip(line[0::3], line[1::3], line[2::3])) for line in lines]


def their_blocks(pair: Pair) -> Blocks:
    matcher = difflib.SequenceMatcher(None, units(pair[0]), units(pair[1]), autojunk=False)
    return [(block.a, block.b, block.size) for block in matcher.get_matching_blocks()]


def check(pairs: list[Pair]) -> None:
    expected = [their_blocks(pair) for pair in pairs]
    for limit in LIMITS:
        for pair, ours, theirs in zip(pairs, our_blocks(pairs, limit), expected, strict=True):
            assert ours == theirs, (pair, limit)


def noisy(text: str, percent: int, rng: random.Random) -> str:
    def damaged(character: str) -> str:
        if rng.randrange(100) >= percent:
            return character
        return rng.choice(["", character + rng.choice("aeiou "), rng.choice("abcdefgh")])

    return "".join(damaged(character) for character in text)


def rising_runs(count: int, mark: str) -> str:
    """Runs of x, one longer each time, with `mark` between them."""
    return "".join("x" * length + mark for length in range(1, count + 1))


def test_nothing_and_equal_lengths() -> None:
    check([("", ""), ("abc", ""), ("", "abc"), ("abc", "xyz"), ("ab", "b-a-a"), ("\U0001f600", "\U0001f601")])


def test_repetitions() -> None:
    letters = "a" * 400
    words = ["a", "ab"]
    while len(words[-1]) < 400:
        words.append(words[-1] + words[-2])
    fibonacci = words[-1][:400]
    check([(letters, letters), (letters, letters[:150]), (letters + "b", letters + "c"), ("b" + letters, "c" + letters),
           (fibonacci, words[-1][44:377] + fibonacci[:99]), (fibonacci, fibonacci[::-1]),
           (rising_runs(26, "y"), rising_runs(26, "z")), (rising_runs(26, "y")[::-1], rising_runs(27, "y")),
           (letters, rising_runs(20, "a"))])


@pytest.mark.parametrize("alphabet", ["a", "ab", "abc", "ab \n", "abcdefgh", "a\U0001f600\U0001f601é"])
def test_small_alphabets(alphabet: str) -> None:
    rng = random.Random(alphabet)
    check([("".join(rng.choices(alphabet, k=rng.randrange(50))), "".join(rng.choices(alphabet, k=rng.randrange(50))))
           for _ in range(600)])


def test_texts_made_from_each_other() -> None:
    rng = random.Random(1)
    pairs: list[Pair] = []
    for _ in range(400):
        text = "".join(rng.choices("ab c", k=rng.randrange(120)))
        middle = rng.randrange(len(text) + 1)
        pairs.append((text, noisy(text[middle:] + text[:middle], 10, rng)))
    check(pairs)


def test_prose_with_noise() -> None:
    rng = random.Random(2)
    prose = README.read_text("utf-8")[:1200]
    lines = prose.splitlines(keepends=True)
    pairs = [(prose, noisy(prose, percent, rng)) for percent in (0, 5, 12, 25, 40)]
    check([*pairs, (prose, "".join(rng.sample(lines, len(lines))))])
