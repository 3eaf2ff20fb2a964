"""Finds loops: the recogniser's way of going on when there is nothing to recognise, one phrase again and again."""

from __future__ import annotations

from collections.abc import Sequence

from FasterWhisperTranscriber.word_times import TimedWord

LONGEST_PHRASE = 12  # words
# Somebody says "no, no, no, no", and a choir sings a line three times; nobody goes on like a loop.
FEWEST_WORDS = 8
FEWEST_TIMES = 4
# Three times is enough when it is faster than anybody can speak.
FEWEST_TIMES_IN_A_RUSH = 3
RUSH_SECONDS_PER_WORD = 0.08


def without_loops(words: Sequence[TimedWord]) -> list[TimedWord]:
    """The words, with each loop cut down to the first time its phrase is said."""
    plain = [word.word.strip().casefold().rstrip(".,;:?!…。、，；：？！؟،؛।") for word in words]
    kept: list[TimedWord] = []
    position = 0
    while position < len(words):
        phrase, times = longest_repetition(plain, position)
        if is_loop(words[position : position + phrase * times], phrase, times):
            kept += words[position : position + phrase]
            position += phrase * times
            # The loop's last, unfinished round
            while position < len(words) and plain[position] == plain[position - phrase]:
                position += 1
        else:
            kept.append(words[position])
            position += 1
    return kept


def longest_repetition(plain: Sequence[str], start: int) -> tuple[int, int]:
    """Length of the phrase that fills most words from `start` on by repetition, and how often it comes."""
    best = (1, 1)
    for length in range(1, LONGEST_PHRASE + 1):
        phrase = plain[start : start + length]
        times = 1
        while len(phrase) == length and plain[start + times * length : start + (times + 1) * length] == phrase:
            times += 1
        if times > 1 and length * times > best[0] * best[1]:
            best = (length, times)
    return best


def is_loop(words: Sequence[TimedWord], phrase: int, times: int) -> bool:
    if times >= FEWEST_TIMES and phrase * times >= FEWEST_WORDS:
        return True
    repeated = words[phrase:]
    if times < FEWEST_TIMES_IN_A_RUSH:
        return False
    return (repeated[-1].end - repeated[0].start) / len(repeated) < RUSH_SECONDS_PER_WORD
