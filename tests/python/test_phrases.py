"""Building phrases and giving their words times."""

from __future__ import annotations

from typing import Any

import pytest
from conftest import Segment, Word, segments_of, timed

ALL = (True, True, True)


def build(module: Any, segments: list[Segment], language: str = "en", options: tuple[bool, bool, bool] = ALL) -> Any:
    return module.post_process_segments(segments, language, module.PostProcessingOptions(*options))


def texts(phrases: list[dict[str, Any]]) -> list[str]:
    return [phrase["text"] for phrase in phrases]


def words(phrase: dict[str, Any]) -> list[str]:
    return [record.word.strip() for record in phrase["words"]]


def test_nothing_asked_for_leaves_the_segments_alone(text_module: Any) -> None:
    segment = Segment(1.5, 9.5, " [music] ♪", timed(" [music]", " ♪"))
    assert build(text_module, [segment], options=(False, False, False)) == [
        {"start": 1.5, "end": 9.5, "text": " [music] ♪", "words": segment.words}
    ]


def test_without_phrases_each_segment_is_timed_by_its_words(text_module: Any) -> None:
    segments = [Segment(0, 9, " (hum) One. Two", timed(" (hum)", " One.", " Two")), Segment(9, 9.5, "♪", timed("♪"))]
    (phrase,) = build(text_module, segments, options=(True, True, False))
    assert (phrase["start"], phrase["end"], phrase["text"]) == (0.25, 0.75, " One. Two")


def test_sentences_go_on_over_segments(text_module: Any) -> None:
    first, second = build(text_module, segments_of("Hello my", "friend. How are you"))
    assert (first["text"], words(first)) == ("Hello my friend.", ["Hello", "my", "friend."])
    assert (second["text"], words(second)) == ("How are you", ["How", "are", "you"])
    assert (first["start"], first["end"], second["start"], second["end"]) == (0, 0.75, 0.75, 1.5)


def test_abbreviations_do_not_end_a_phrase(text_module: Any) -> None:
    assert texts(build(text_module, segments_of("We met Mr. Smith today."))) == ["We met Mr. Smith today."]


def test_empty_segments_vanish_with_their_words(text_module: Any) -> None:
    phrases = build(text_module, [Segment(0, 1, "♪", timed("♪")), *segments_of("All is well.")])
    assert [words(phrase) for phrase in phrases] == [["All", "is", "well."]]


@pytest.mark.parametrize("text, recognised, expected", [
    ("New-York", [" New", "-York"], [("New", 0, 0.25), ("-York", 0.25, 0.5)]),
    ("ice-cream", [" ice-cream"], [("ice", 0, 0.25), ("cream", 0, 0.25)]),
    ("cannot go", [" can", "not", " go"], [("cannot", 0, 0.5), ("go", 0.5, 0.75)]),
    ("3.5 dollars", [" 3", ".5", " dollars"], [("3.5", 0, 0.5), ("dollars", 0.5, 0.75)]),
    ("uh ... yes", [" uh", " ...", " yes"], [("uh", 0, 0.25), ("...", 0.25, 0.5), ("yes", 0.5, 0.75)]),
    ("cannot", [" can"], [("can", 0, 0.25)]),  # more text than records: what there is
])
def test_words_get_the_times_of_their_letters(
    text_module: Any, text: str, recognised: list[str], expected: list[tuple[str, float, float]]
) -> None:
    (phrase,) = build(text_module, [Segment(0, 1, text, timed(*recognised))])
    assert [(record.word.strip(), record.start, record.end) for record in phrase["words"]] == expected


@pytest.mark.parametrize("language, text", [("en", "No records."), ("ja", "「はい」。"), ("th", "ไป")])
@pytest.mark.parametrize("make_phrases", [True, False])
def test_a_phrase_without_words_is_reported_and_left_out(
    text_module: Any, capsys: pytest.CaptureFixture[str], language: str, text: str, make_phrases: bool
) -> None:
    assert build(text_module, [Segment(0, 1, text, [])], language, (True, True, make_phrases)) == []
    assert capsys.readouterr().err.startswith("A segment with no word timings : ")


def test_chinese(text_module: Any) -> None:
    segment = Segment(0, 2, "你好。我很好。", timed("你", "好", "。", "我", "很好。"))
    first, second = build(text_module, [segment], "zh")
    assert (first["text"], first["start"], first["end"], words(first)) == ("你好。", 0, 0.5, ["你好"])
    assert (second["text"], second["start"], second["end"], words(second)) == ("我很好。", 0.75, 1.25, ["我", "很好"])


def test_japanese_sentence_over_two_segments(text_module: Any) -> None:
    segments = [Segment(0, 1, "今日は", timed("今日", "は")), Segment(1, 2, "天気です。", timed("天気", "です", "。"))]
    (phrase,) = build(text_module, segments, "ja")
    assert phrase["text"].replace(" ", "") == "今日は天気です。"
    assert words(phrase) == ["今日", "は", "天気", "です"]


def test_thai(text_module: Any, monkeypatch: pytest.MonkeyPatch) -> None:
    assert text_module.clean_thai_phrase("สวัสดี ครับ. ไป ไหน.") == "สวัสดีครับ ไปไหน"
    assert text_module.thai_words("สวัสดีครับ") == ["สวัสดี", "ครับ"]
    assert text_module.thai_sentences("") == []
    monkeypatch.setattr(text_module.pythainlp, "sent_tokenize", lambda text: ["สวัสดี ครับ ", "ไป ไหน"])
    assert text_module.thai_sentences("สวัสดีครับไปไหน.") == ["สวัสดี ครับ.", "ไป ไหน"]
    first, second = build(text_module, [Segment(0, 1, "สวัสดีครับไปไหน", timed("สวัสดี", "ครับ", "ไปไหน"))], "th")
    assert (first["text"], words(first), first["start"], first["end"]) == ("สวัสดีครับ", ["สวัสดี", "ครับ"], 0, 0.5)
    assert (second["text"], words(second), second["end"]) == ("ไปไหน", ["ไป", "ไหน"], 0.75)
    assert all(isinstance(record, Word) for record in second["words"])
