"""Transcripts, hits and script lines in the forms that other programs read, read by those programs' libraries."""

from __future__ import annotations

import csv
import io
import json
import re
import xml.etree.ElementTree as ElementTree
from collections.abc import Callable
from fractions import Fraction
from pathlib import Path
from typing import Any

import opentimelineio as otio
import pandas
import pysubs2
import pytest
import ttconv.imsc.reader
import webvtt
from app_under_test import Kestrel, make_media
from pyannote.database.util import load_rttm
from stored_clips import Line, StoredClip, put

PROJECT = "Forms"
TALK = [
    Line("When the rain had stopped at last, we walked down to the river & sat <there>.", 1_000),
    Line("The old bridge was gone, because the flood had taken it in the night.", 9_000),
    Line("Which bridge, \"the\" old one?", 16_000, speaker="2"),
    Line("そう、あの古い橋です。", 19_000, speaker="2", language="ja"),
    Line("The bridge of my father.", 24_000, speaker="1"),
]


@pytest.fixture(scope="module")
def media(tmp_path_factory: pytest.TempPathFactory) -> dict[str, Path]:
    """Half a minute each: 25 frames, 29.97 drop-frame, 23.976, and a Broadcast Wave file."""
    folder = tmp_path_factory.mktemp("media with space & so on")
    source = ("-f", "lavfi", "-i", "anullsrc=r=48000:cl=mono")

    def movie(name: str, rate: str, timecode: str) -> Path:
        picture = ("-f", "lavfi", "-i", f"color=s=32x32:r={rate}")
        return make_media(folder / name, *picture, *source, "-t", 30, "-timecode", timecode, "-shortest")

    bwf = ("-t", 30, "-write_bext", 1, "-metadata", f"time_reference={48000 * 3600 * 10 + 960}")
    return {
        "pal": movie("pal.mov", "25", "10:00:00:00"),
        "drop": movie("drop.mov", "30000/1001", "00:59:50;00"),
        "film": movie("film.mov", "24000/1001", "01:00:00:00"),
        "bwf": make_media(folder / "bwf.wav", *source, *bwf),
    }


@pytest.fixture(scope="module")
def clips(kestrel: Kestrel, media: dict[str, Path]) -> Kestrel:
    put(kestrel, *(StoredClip(file.name, PROJECT, TALK, file) for file in media.values()))
    return kestrel


def dump(kestrel: Kestrel, clip: str, form: str, *arguments: object) -> str:
    return kestrel.good("dump", clip, "--format", form, *arguments).out


def search(kestrel: Kestrel, form: str, *arguments: object) -> str:
    return kestrel.good("search", "bridge", "--project", PROJECT, "--format", form, *arguments).out


Cues = list[tuple[int, int, str]]


def srt_cues(text: str) -> Cues:
    subtitles = pysubs2.SSAFile.from_string(text, format_="srt")
    # SubRip cannot hold the brackets of tags; others stand for them.
    return [(event.start, event.end, event.plaintext.replace("‹", "<").replace("›", ">")) for event in subtitles]


def vtt_cues(text: str) -> Cues:
    def ms(time: str) -> int:
        hours, minutes, seconds = time.split(":")
        return round((int(hours) * 60 + int(minutes)) * 60_000 + float(seconds) * 1000)

    captions = webvtt.from_string(text)
    unescape = {"&lt;": "<", "&gt;": ">", "&amp;": "&"}
    plain = [re.sub("&lt;|&gt;|&amp;", lambda match: unescape[match[0]], caption.text) for caption in captions]
    return [(ms(caption.start), ms(caption.end), text) for caption, text in zip(captions, plain)]


def ttml_cues(text: str) -> Cues:
    document = ttconv.imsc.reader.to_model(ElementTree.ElementTree(ElementTree.fromstring(text)))
    assert document is not None
    cues = []
    for paragraph in next(iter(document.get_body() or ())):
        lines = [""]
        for span in paragraph.dfs_iterator():
            if isinstance(span, ttconv.model.Br):
                lines.append("")
            if isinstance(span, ttconv.model.Text):
                lines[-1] += span.get_text()
        begin, end = paragraph.get_begin(), paragraph.get_end()
        assert begin is not None and end is not None
        cues.append((round(begin * 1000), round(end * 1000), "\n".join(lines)))
    return cues


@pytest.mark.parametrize(("form", "read"), [("srt", srt_cues), ("vtt", vtt_cues), ("ttml", ttml_cues)])
def test_subtitles_are_read_alike(clips: Kestrel, form: str, read: Callable[[str], Cues]) -> None:
    cues = read(dump(clips, "pal.mov", form))
    assert cues[0][0] == 1000 and cues[0][2].startswith("When the rain had stopped at last,\nwe walked")
    assert " ".join(cue[2].replace("\n", " ") for cue in cues) == " ".join(line.text for line in TALK)
    for (start, end, _), following in zip(cues, [*cues[1:], (10**9, 0, "")]):
        assert start < end <= following[0] - 80


def test_subtitles_keep_to_the_options(clips: Kestrel) -> None:
    for text in (cue[2] for cue in srt_cues(dump(clips, "pal.mov", "srt", "--line-length", 20, "--lines", 1))):
        assert len(text) <= 20 and "\n" not in text
    named = srt_cues(dump(clips, "pal.mov", "srt", "--speakers"))
    assert [text for _, _, text in named if text.startswith("Speaker ")][1].startswith("Speaker 2: Which")
    assert "<v Speaker 2>Which" in dump(clips, "pal.mov", "vtt", "--speakers")
    slow = clips.good("dump", "pal.mov", "--format", "srt", "--reading-speed", 5)
    assert "faster than 5 characters a second" in slow.err


def test_tables_text_and_turns(clips: Kestrel) -> None:
    rows = list(csv.DictReader(io.StringIO(dump(clips, "pal.mov", "csv"), newline="")))
    assert [row["text"] for row in rows] == [line.text for line in TALK]
    assert rows[2]["timecode"] == "10:00:16:00" and rows[2]["speaker"] == "Speaker 2"
    table = pandas.read_csv(io.StringIO(dump(clips, "pal.mov", "csv")))
    tabs = pandas.read_csv(io.StringIO(dump(clips, "pal.mov", "tsv")), sep="\t", quoting=csv.QUOTE_NONE)
    pandas.testing.assert_frame_equal(tabs, table)
    assert list(table["text"]) == [row["text"] for row in rows]
    document = json.loads(dump(clips, "drop.mov", "json"))
    assert document["clips"][0]["startTimecode"] == "00:59:50;00"
    assert document["segments"][2]["words"][1] == {"text": "bridge,", "startMS": 16300, "endMS": 16600}
    segments = pandas.json_normalize(document["segments"])
    assert list(segments["text"]) == list(table["text"]) and list(segments["startMS"]) == list(table["start_ms"])
    text = dump(clips, "pal.mov", "txt")
    assert text.count("Speaker 1\n") == 2 and "10:00:16:00  Speaker 2\n" in text


def test_turns_are_read_alike(clips: Kestrel, tmp_path: Path) -> None:
    put(clips, StoredClip("two words.mov", "Turns", TALK))  # without media: not for the searches of other tests
    file = tmp_path / "turns.rttm"
    file.write_text(dump(clips, "pal.mov", "rttm") + dump(clips, "two words.mov", "rttm"))
    expected = [
        (round(line.start_ms / 1000, 3), round((line.start_ms + line.word_ms * len(line.text.split())) / 1000, 3),
         f"Speaker_{line.speaker}")
        for line in TALK
    ]
    turns = load_rttm(file)
    assert set(turns) == {"pal.mov", "two_words.mov"}
    for annotation in turns.values():
        read = [(round(turn.start, 3), round(turn.end, 3), who) for turn, _, who in annotation.itertracks(yield_label=True)]
        assert read == expected


def test_library_layouts_use_the_clip_s_time_code(clips: Kestrel) -> None:
    assert "10:00:01:00 - 10:00:05:20\nWhen" in dump(clips, "pal.mov", "text")
    assert "\n00:59:50;29 " in dump(clips, "drop.mov", "subtitles")
    assert "Speaker 2:\n01:00:05;29 - " in dump(clips, "drop.mov", "text")
    assert "[Forms, by hand, pal.mov, 1, complete, tests]" in dump(clips, "pal.mov", "check")
    options = ("--frame-rate", "59.94df", "--start-timecode", "00:00:59;00")
    assert "00:00:59;59 - 00:01:04;51" in dump(clips, "bwf.wav", "text", *options)
    assert '"fast" is not a frame rate' in clips.fails("dump", "pal.mov", "--format", "text", "--frame-rate", "fast", code=2)


Found = list[tuple[str, int, int]]


def otio_markers(text: str, _: float) -> Found:
    timeline = otio.adapters.read_from_string(text, "otio_json")
    clip = next(iter(timeline.find_clips()))
    return [
        (marker.name, int(marker.marked_range.start_time.value), int(marker.marked_range.duration.value))
        for marker in clip.markers
    ]


def fcpx_markers(text: str, rate: float) -> Found:
    otio.adapters.read_from_string(text, "fcpx_xml")  # reads whole rates only; the fractions are ours to check
    exact = {25.0: Fraction(25), 30000 / 1001: Fraction(30000, 1001), 24000 / 1001: Fraction(24000, 1001)}[rate]

    def frames(time: str) -> int:
        count = Fraction(time.rstrip("s")) * exact
        assert count.denominator == 1, f"{time} is between frames"
        return int(count)

    markers = ElementTree.fromstring(text).iter("marker")
    return [(marker.get("value", ""), frames(marker.get("start", "")), frames(marker.get("duration", ""))) for marker in markers]


RATES = {"pal": 25.0, "drop": 30000 / 1001, "film": 24000 / 1001}


def label_frame(label: str, rate: float) -> int:
    return int(otio.opentime.from_timecode(label, rate).value)


@pytest.mark.parametrize("name", ["pal", "drop", "film"])
@pytest.mark.parametrize(("form", "read"), [("otio", otio_markers), ("fcpxml", fcpx_markers)])
def test_turns_become_markers_at_the_right_frame(
    clips: Kestrel, name: str, form: str, read: Callable[[str, float], Found]
) -> None:
    rate = RATES[name]
    start = label_frame({"pal": "10:00:00:00", "drop": "00:59:50;00", "film": "01:00:00:00"}[name], rate)
    markers = read(dump(clips, f"{name}.mov", form), rate)
    turns = [("Speaker 1", 1_000), ("Speaker 1", 9_000), ("Speaker 2", 16_000), ("Speaker 1", 24_000)]
    assert [marker[:2] for marker in markers] == [(who, start + int(ms * rate / 1000)) for who, ms in turns]


def test_edl_has_markers_and_string_outs(clips: Kestrel) -> None:
    timeline = otio.adapters.read_from_string(dump(clips, "pal.mov", "edl"), "cmx_3600", rate=25)
    clip = next(iter(timeline.find_clips()))
    assert clip.name == "pal.mov" and int(clip.source_range.start_time.value) == 36000 * 25
    assert [(m.name, int(m.marked_range.start_time.value) - 36000 * 25) for m in clip.markers][2] == ("Speaker 2", 400)

    drop = dump(clips, "drop.mov", "edl", "--string-out", "--handles", 0.5)
    assert "FCM: DROP FRAME" in drop
    events = list(otio.adapters.read_from_string(drop, "cmx_3600", rate=30000 / 1001).find_clips())
    rate = 30000 / 1001
    begins = [int(event.source_range.start_time.value) - label_frame("00:59:50;00", rate) for event in events]
    assert sorted(set(begins)) == [int(ms * rate / 1000) for ms in (500, 8_500, 15_500, 23_500)]
    assert re.search(r" 00:59:50;14 \S+ 01:00:00;00 ", drop)


def test_hits_of_several_clips_make_a_string_out(clips: Kestrel) -> None:
    assert "an EDL has one frame rate" in clips.fails("search", "bridge", "--project", PROJECT, "--format", "edl", "--string-out")
    timeline = otio.adapters.read_from_string(search(clips, "otio", "--string-out", "--max", 12), "otio_json")
    names = {clip.name for clip in timeline.find_clips()}
    assert names == {"pal.mov", "drop.mov", "film.mov", "bwf.wav"}
    for clip in timeline.find_clips():
        assert clip.media_reference.available_range.contains(clip.source_range)
        assert Path(clip.media_reference.target_url.removeprefix("file://").replace("%20", " ")).name == clip.name
    assert otio.opentime.to_timecode(timeline.global_start_time).startswith("01:00:00")
    assert "string-out" in clips.fails("search", "bridge", "--project", PROJECT, "--format", "srt", code=2)
    cues = srt_cues(search(clips, "srt", "--string-out", "--max", 12))
    assert all(a[1] <= b[0] for a, b in zip(cues, cues[1:]))
    rows = list(csv.DictReader(io.StringIO(search(clips, "csv"), newline="")))
    assert {row["match"].strip(",.").lower() for row in rows} == {"bridge"} and float(rows[0]["score"]) == 1.0


def test_a_time_reference_counts_from_midnight(clips: Kestrel) -> None:
    result = clips.good("dump", "bwf.wav", "--format", "otio", "--frame-rate", 50)
    timeline = otio.adapters.read_from_string(result.out, "otio_json")
    clip = next(iter(timeline.find_clips()))
    # The reference is one frame of fifty after ten o'clock.
    assert otio.opentime.to_timecode(clip.source_range.start_time, 50) == "10:00:00:01"
    assert "no frame rate of its own" in clips.good("dump", "bwf.wav", "--format", "edl").err


def test_script_lines_become_markers(clips: Kestrel, tmp_path: Path) -> None:
    script = tmp_path / "script.txt"
    script.write_text("The old bridge was gone\nA dragon flew over purple mountains\nthe bridge of my father\n")
    result = clips.good("align", script, "--clip", "pal.mov", "--format", "plain", "--markers", "otio")
    assert [(name, frame) for name, frame, _ in otio_markers(result.out, 25.0)] == [
        ("The old bridge was gone", 900_000 + 225),
        ("the bridge of my father", 900_000 + 600),
    ]


def test_a_clip_without_its_media_needs_a_clock(clips: Kestrel, tmp_path: Path) -> None:
    put(clips, StoredClip("gone.mov", PROJECT, TALK, tmp_path / "gone.mov"))
    assert "--frame-rate" in clips.fails("dump", "gone.mov", "--format", "edl")
    assert "10:00:01:00 10:00:" in dump(clips, "gone.mov", "edl", "--string-out", "--start-timecode", "10:00:00:00")
    assert "25 frames a second" in clips.good("dump", "gone.mov", "--format", "text").err
    assert "No space left on device" in clips.fails("dump", "gone.mov", "--format", "srt", "--output", "/dev/full")


def test_every_form_of_nothing(clips: Kestrel) -> None:
    put(clips, StoredClip("silence.wav", PROJECT, [Line("", 0)]))
    silence: Any = StoredClip("silence.wav", PROJECT, []).id
    for form in ("srt", "vtt", "ttml", "json", "tsv", "csv", "rttm", "txt", "check", "text", "subtitles"):
        clips.good("dump", silence, "--project", PROJECT, "--format", form)
    assert "nothing to write" in clips.fails("dump", silence, "--project", PROJECT, "--format", "otio", "--frame-rate", 25)
