"""What search, show and align say of stored clips: places, times, names, and how they are written."""

from __future__ import annotations

import os
import pty
import subprocess
from pathlib import Path
from typing import Any

import pytest
from app_under_test import BIN, Kestrel, make_media
from stored_clips import Line, StoredClip, put

PROJECT = "Search"
TALK = [
    Line("We crossed the old", 1_000),
    Line("wooden bridge at night, and nobody", 5_000),
    Line("spoke.", 9_000),
    Line("A cold-hearted, open-source miller waited at the gate.", 12_000, words=10),
    Line("The wooden", 20_000, speaker="2"),
    Line("bridge was gone.", 22_000, speaker="1"),
]


@pytest.fixture(scope="module")
def clips(kestrel: Kestrel, tmp_path_factory: pytest.TempPathFactory) -> Kestrel:
    """One clip of talk, and two of one name in different folders, the first with a time code of its own."""
    folder = tmp_path_factory.mktemp("cards")
    for card in ("A", "B"):
        (folder / card).mkdir()
    picture = ("-f", "lavfi", "-i", "color=s=32x32:r=30000/1001", "-t", 30)
    first = make_media(folder / "A/take.mov", *picture, "-timecode", "00:59:59;00")
    put(
        kestrel,
        StoredClip("talk.wav", PROJECT, TALK),
        StoredClip("take.mov", PROJECT, [Line("A heron stood there.", 1_000)], first),
        StoredClip("take.mov", PROJECT, [Line("The heron flew.", 2_000)], folder / "B/take.mov"),
    )
    return kestrel


def hits(kestrel: Kestrel, phrase: str, *arguments: object) -> Any:
    return kestrel.good("search", phrase, "--project", PROJECT, *arguments, "--json").json()["hits"]


@pytest.mark.parametrize(
    ("phrase", "place"),
    [
        ("crossed the old wooden bridge", (0, 1_300, 5_600)),  # over two segments
        ("and noboddy spoke", (1, 6_200, 9_300)),  # misspelt, the last word in the next segment
        ("the old wooden bridge at night and nobody spoke", (0, 1_600, 9_300)),  # over three
        ("wooden bridge at night", (1, 5_000, 6_200)),  # in one segment, which neighbours do not double
        ("miller waited", (3, 13_500, 14_100)),  # behind hyphens, which the times count as two words
    ],
)
def test_a_phrase_is_found_once_with_its_times(clips: Kestrel, phrase: str, place: tuple[int, int, int]) -> None:
    (hit,) = [hit for hit in hits(clips, phrase) if hit["score"] > 0.8]
    assert (hit["segment"], hit["startMS"], hit["endMS"]) == place
    assert len(hit["match"].split()) == len(phrase.split())


def test_neighbours_are_searched_in_clip_and_speaker_only(clips: Kestrel) -> None:
    across = "the wooden bridge was gone"
    assert hits(clips, across)[0]["score"] == 1.0
    assert all(hit["score"] < 1.0 for hit in hits(clips, across, "--speaker", "1"))
    assert hits(clips, "spoke a cold hearted", "--clip", "talk.wav", "--threshold", 0.9)
    marker = clips.good("search", across, "--project", PROJECT, "--threshold", 0.9, "--format", "csv").out
    assert "wooden bridge was gone" in marker


def test_align_names_the_word_and_time_behind_hyphens(clips: Kestrel, tmp_path: Path) -> None:
    script = tmp_path / "script.txt"
    script.write_text("miller waited at the gate\nThe wooden bridge was gone\n")
    lines = clips.good("align", script, "--clip", "talk.wav", "--json").json()["lines"]
    assert [(line["word"], line["startMS"]) for line in lines] == [("miller", 13_500), ("The", 20_000)]
    words = clips.good("show", "talk.wav", "--json").json()["segments"][3]["words"]
    assert words[lines[0]["wordIndex"]] == {"text": "miller", "startMS": 13_500, "endMS": 13_800}
    assert [word["text"] for word in words[:5]] == ["A", "cold-", "hearted,", "open-", "source"]


@pytest.mark.parametrize("encoding", ["utf-16", "utf-16-le", "latin-1"])
def test_a_script_in_another_encoding_is_read(clips: Kestrel, tmp_path: Path, encoding: str) -> None:
    script = tmp_path / "script.txt"
    script.write_bytes("Café déjà vu à l'été, très âgé, naïve façade\nThe heron flew.\n".encode(encoding))
    result = clips.good("align", script, "--clip", "talk.wav", "--json")
    assert "Café déjà vu" in result.json()["lines"][0]["text"]
    assert "is not UTF-8; it is read as" in result.err


def test_clips_of_one_name_are_told_apart(clips: Kestrel) -> None:
    paths = sorted(hit["path"] for hit in hits(clips, "heron"))
    assert [Path(path).parent.name for path in paths] == ["A", "B"]
    printed = clips.good("search", "heron", "--project", PROJECT).out
    assert f"{paths[0]} (20" in printed, "with its day"
    assert f"{paths[1]}  " in printed
    assert clips.good("show", paths[1], "--json").json()["path"] == paths[1], "although the file has gone"
    ambiguous = clips.run("show", "take.mov")
    assert ambiguous.code == 1 and all(path in ambiguous.err for path in paths)


def test_times_as_the_source_counts_them(clips: Kestrel, tmp_path: Path) -> None:
    source = ("--timecode", "source")
    (hit,) = [hit for hit in hits(clips, "heron", *source) if "/A/" in hit["path"]]
    assert (hit["timecode"], hit["startMS"]) == ("01:00:00;08", 1_300)
    assert "00:59:59;29  A heron" in clips.good("show", hit["clip"], *source).out
    script = tmp_path / "script.txt"
    script.write_text("A heron stood there\n")
    (line,) = clips.good("align", script, "--clip", hit["clip"], *source, "--json").json()["lines"]
    assert (line["timecode"], line["startMS"]) == ("00:59:59;29", 1_000)
    assert "--start-timecode" in clips.fails("show", "talk.wav", *source)
    named = clips.good("show", "talk.wav", *source, "--frame-rate", 25, "--start-timecode", "10:00:00:00").out
    assert "10:00:01:00  We crossed" in named


def on_terminal(kestrel: Kestrel, *arguments: str, **environment: str) -> bytes:
    """What a terminal gets on standard output."""
    master, terminal = pty.openpty()
    try:
        subprocess.run(
            [BIN / "kestrel", *arguments],
            stdout=terminal,
            stderr=subprocess.PIPE,
            env={**kestrel.environment, "TERM": "xterm", **environment},
            check=True,
        )
        return os.read(master, 1 << 16)
    finally:
        os.close(terminal)
        os.close(master)


@pytest.mark.parametrize(("environment", "bold"), [({}, True), ({"NO_COLOR": "1"}, False), ({"TERM": "dumb"}, False)])
def test_the_match_is_bold_where_that_is_wanted(clips: Kestrel, environment: dict[str, str], bold: bool) -> None:
    arguments = ("search", "wooden bridge at night", "--project", PROJECT)
    shown = on_terminal(clips, *arguments, **environment)
    assert (b"\x1b[1mwooden bridge at night\x1b[0m" in shown) == bold
    assert b"\x1b" in shown or not bold
    assert "\n    wooden bridge at night, and" in clips.good(*arguments).out, "no marks in a pipe"


def test_a_terminal_gets_no_codes_from_stored_text(clips: Kestrel) -> None:
    name = "\x1b]0;title\x07\nnew line.wav"
    put(clips, StoredClip(name, "Hostile", [Line("nothing \x1b[2J\x9b31m here", 0)]))
    shown = on_terminal(clips, "search", "nothing here", "--project", "Hostile", "--threshold", "0.3")
    assert b"\\x1b]0;title\\x07\\x0anew line.wav" in shown
    assert b"\x1b]" not in shown and b"\x1b[2J" not in shown and b"\xc2\x9b" not in shown
