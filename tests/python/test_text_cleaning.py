"""Cleaning and splitting the recogniser's text."""

from __future__ import annotations

from typing import Any

import pytest
from conftest import timed
from faster_whisper.transcribe import Word as RecogniserWord


@pytest.mark.parametrize("text, sentences", [
    ("Hello world. This is it", ["Hello world.", "This is it"]),
    ("We met Mr. Smith", ["We met Mr.", "Smith"]),
    ("Wait... what?! Yes", ["Wait... what?!", "Yes"]),
    ("It costs 3.5 dollars", ["It costs 3.5 dollars"]),
    ("see e.g. this", ["see e.g. this"]),
    ("It was 5. 6 came later", ["It was 5.", "6 came later"]),
    ("OK.x", ["OK.", "x"]),
    ("你好。我很好。", ["你好。", "我很好。"]),
    ("Really?yes", ["Really?", "yes"]),
    ("  . A", [".", "A"]),
    (".", ["."]),
    ("", []),
    ("   ", []),
])
def test_sentences(text_module: Any, text: str, sentences: list[str]) -> None:
    assert text_module.make_sentence(text) == sentences


@pytest.mark.parametrize(
    "word, expected",
    [("Mr.", False), ("USA.", False), ("Paris.", True), ("etc.", True), ("A", True), (".", True), ("Ok", True)],
)
def test_abbreviations(text_module: Any, word: str, expected: bool) -> None:
    assert text_module.isNotException(word) is expected


@pytest.mark.parametrize("text, cleaned", [
    ("<<Hello>> -- world", "Hello world"),
    ("♪♪ la la ♪", "la la"),
    ("well -known - thing", "well known thing"),
    ("a\t b\n", "a b"),
    ("#*", ""),
])
def test_symbols(text_module: Any, text: str, cleaned: str) -> None:
    assert text_module.remove_symbols(text) == cleaned


def test_symbols_of_word_records(text_module: Any) -> None:
    words = [RecogniserWord(0.0, 1.0, " ♪", 0.5), RecogniserWord(1.0, 2.0, ' "Hi', 0.7)]
    text, kept = text_module.remove_symbols('♪ "Hi', words)
    assert (text, kept) == ("Hi", [RecogniserWord(1.0, 2.0, "Hi", 0.7)])
    assert words[1].word == ' "Hi', "the recogniser's own record is left alone"
    assert text_module.remove_symbols("a", []) == ("a", [])


def test_comparison_form(text_module: Any) -> None:
    assert text_module.remove_punctuation("(yes)") == "yes)"
    assert text_module.cleanWordToCompare(' "Don\'t, ') == "Dont"


@pytest.mark.parametrize("text, words, cleaned, kept", [
    ("[music] Hello (laughs) there", [" [music]", " Hello", " (laughs)", " there"], " Hello there", [1, 3]),
    ("(door slams) Go", [" (door", " slams)", " Go"], " Go", [2]),
    ("(door slams), Go", [" (door", " slams),", " Go"], ", Go", [2]),
    ("a (b [c] d", [" a", " (b", " [c]", " d"], "a (b d", [0, 3]),
    ("(b c [d x", [" (b", " c", " [d", " x"], "(b c [d x", [0, 1, 2, 3]),
    ("<noise] (x) ()", [" ()"], " ()", []),
])
def test_audio_descriptions(text_module: Any, text: str, words: list[str], cleaned: str, kept: list[int]) -> None:
    records = timed(*words)
    assert text_module.remove_audio_descriptions(text, records) == (cleaned, [records[i] for i in kept])


@pytest.mark.parametrize("text, lang, pieces", [
    ("你好。我很好。", "zh", "你好。#我#很好。"),
    ("「はい」、そうです", "ja", "「#はい」、#そう#です"),
    ("𠮷野家です", "ja", "𠮷#野家#です"),
    ("hello, world", "en", "hello, #world"),
    ("", "ja", ""),
])
def test_word_segmentation(text_module: Any, text: str, lang: str, pieces: str) -> None:
    segmented = text_module.word_segment(text, lang)
    assert segmented.replace("#", "") == text
    assert segmented == pieces
