"""What transcribe makes of awkward audio: tracks, level, languages, long clips, models."""

from __future__ import annotations

import os
import re
import shutil
import signal
from pathlib import Path
from typing import Any

import pytest
from app_under_test import SPEECH, TRANSCRIPTS, Kestrel, make_media, segment_documents

MODELS = Path(os.environ["KESTREL_DEPS_DIR"]) / "models"
PROJECT = "Awkward"


def transcribed(kestrel: Kestrel, file: Path, *options: object) -> Any:
    """What --json says of one clip, and its transcript."""
    result = kestrel.good("transcribe", file, "--project", PROJECT, *options, "--json")
    (clip,) = result.json()["clips"]
    return clip, kestrel.good("show", file, "--project", PROJECT, "--json").json()


def text_of(shown: Any) -> str:
    return " ".join(segment["text"] for segment in shown["segments"])


@pytest.mark.parametrize("name, arguments, warning", [
    ("second.mkv", ["-f", "lavfi", "-i", "anullsrc=r=48000", "-map", "1", "-map", "0", "-shortest"], "audio track 2 of 2"),
    ("opposed.wav", ["-af", "pan=stereo|c0=c0|c1=-1*c0"], None),
    ("quiet.wav", ["-af", "volume=-55dB"], "very quiet audio was raised"),
])
def test_speech_is_found_wherever_it_is(
    kestrel: Kestrel, tmp_path: Path, name: str, arguments: list[str], warning: str | None
) -> None:
    file = make_media(tmp_path / name, "-i", SPEECH / "librivox_3.wav", *arguments)
    clip, shown = transcribed(kestrel, file, "--language", "en")
    assert re.search(r"cold[- ]hearted", text_of(shown)) and clip["status"] == "transcribed"
    assert [text for text in clip.get("warnings", []) if text.startswith(warning or "-")] == clip.get("warnings", [])
    assert bool(clip.get("warnings")) == bool(warning)


def test_tracks_are_chosen_and_refused(kestrel: Kestrel, tmp_path: Path) -> None:
    file = make_media(tmp_path / "two.mkv", "-i", SPEECH / "librivox_2.wav", "-i", SPEECH / "librivox_3.wav",
                      "-map", "0", "-map", "1")
    clip, shown = transcribed(kestrel, file, "--track", 2, "--language", "en")
    assert "selfish" in text_of(shown) and shown["audioTracks"].startswith("audio track 2 of 2")
    assert "has no audio track 2; it has 1" in kestrel.fails("transcribe", SPEECH / "librivox_2.wav", "--project", PROJECT, "--track", 2)
    assert kestrel.run("transcribe", file, "--project", PROJECT, "--track", "second").code == 2


def test_a_wrong_language_is_told(kestrel: Kestrel, tmp_path: Path) -> None:
    french = make_media(tmp_path / "french.wav", "-i", SPEECH / "french.wav", "-t", 15)
    clip, _ = transcribed(kestrel, french, "--language", "en")
    assert clip["warnings"][0].startswith('the speech sounds like "fr", not "en"')


def test_speech_that_is_none_is_doubted(kestrel: Kestrel, tmp_path: Path) -> None:
    """Played backwards, the recogniser finds fluent words in it."""
    clip, shown = transcribed(kestrel, make_media(tmp_path / "reversed.wav", "-i", SPEECH / "librivox_3.wav", "-af", "areverse"))
    assert len(text_of(shown).split()) > 5
    assert re.match(r"doubtful text: \d s from 00:00:00 \(\d+ % sure", clip["warnings"][0])


def test_languages_are_found_where_they_change(kestrel: Kestrel, tmp_path: Path) -> None:
    """Six seconds each of English and French, 0.6 s apart."""
    trimmed = "silenceremove=start_periods=1:start_threshold=-40dB,atrim=0:6,apad=pad_dur=0.6"
    both = make_media(tmp_path / "both.wav", "-i", SPEECH / "english_short.wav", "-i", SPEECH / "french.wav",
                      "-filter_complex", f"[0]{trimmed}[a];[1]{trimmed}[b];[a][b]concat=v=0:a=1")
    clip, shown = transcribed(kestrel, both)
    assert {s["language"] for s in shown["segments"] if s["startMS"] < 6000} == {"en"}
    assert {s["language"] for s in shown["segments"] if s["startMS"] > 6500} == {"fr"}
    assert "warnings" not in clip


def test_a_long_clip_is_stored_part_by_part_and_continued(kestrel: Kestrel, tmp_path: Path) -> None:
    file = make_media(tmp_path / "long.wav", "-i", SPEECH / "conversation_en.wav")
    arguments = ("transcribe", file, "--project", PROJECT, "--language", "en")
    kestrel.environment["KESTREL_PART_MINUTES"] = "0.45"
    try:
        process = kestrel.start(*arguments)
        while not (stored := kestrel.run("show", file, "--project", PROJECT, "--json")).code == 0:
            assert process.poll() is None, process.communicate()
        os.kill(kestrel.pids()["speech"], signal.SIGKILL)
        _, err = process.communicate()
        assert process.returncode == 1 and "the speech service has ended" in err and "run `kestrel up`" in err
        before = kestrel.good("show", file, "--project", PROJECT, "--json").json()["segments"]
        assert stored.json()["complete"] is False and before[-1]["endMS"] < 45_000
        kestrel.up()
        kestrel.good(*arguments)
    finally:
        del kestrel.environment["KESTREL_PART_MINUTES"]
    shown = kestrel.good("show", file, "--project", PROJECT, "--json").json()
    assert shown["complete"] and shown["segments"][: len(before)] == before
    starts = [start for segment in shown["segments"] for start in segment["wordStartsMS"]]
    assert starts == sorted(starts)
    assert "installed" in text_of(shown) and text_of(shown).rstrip(".").endswith("amiable himself")
    assert {segment["speaker"] for segment in shown["segments"]} == {"1", "2"}, "labels hold over all parts"

    # Killed while the first part was being written.
    first, *others = segment_documents(kestrel, shown["clip"])
    for document in others:
        kestrel.index("DELETE", f"{TRANSCRIPTS}/_doc/{document['_id']}")
    kestrel.index("POST", f"{TRANSCRIPTS}/_update/{first['_id']}", {"doc": {"progressComplete": False}})
    kestrel.environment["KESTREL_PART_MINUTES"] = "0.45"
    kestrel.good(*arguments)
    del kestrel.environment["KESTREL_PART_MINUTES"]
    assert kestrel.good("show", file, "--project", PROJECT, "--json").json()["segments"] == shown["segments"]


def test_models_are_listed_added_and_chosen(kestrel: Kestrel, tmp_path: Path) -> None:
    (usual,) = kestrel.good("models", "--json").json()["models"]
    assert usual["name"] == "whisper-base" and usual["selected"] and "problem" not in usual
    other = tmp_path / "whisper-other"
    other.mkdir()
    for name in ("config.json", "tokenizer.json", "vocabulary.json"):
        shutil.copy(MODELS / "whisper-base" / name, other)
    assert "it lacks model.bin" in kestrel.fails("models", "add", other)
    (other / "model.bin").write_bytes(b"something else, but long enough to have a head")
    assert "not a Whisper model" in kestrel.run("models", "add", other).err
    (other / "model.bin").unlink()
    os.symlink(MODELS / "whisper-base" / "model.bin", other / "model.bin")
    kestrel.good("models", "add", other)
    unknown = kestrel.run("transcribe", SPEECH / "librivox_5.wav", "--project", PROJECT, "--model", "nothing")
    assert unknown.code == 1 and "whisper-base, whisper-other" in unknown.err
    _, shown = transcribed(kestrel, SPEECH / "librivox_5.wav", "--language", "en", "--model", "whisper-other")
    assert shown["model"] == "faster-whisper-other"
    kestrel.good("models", "use", "whisper-other")
    assert kestrel.good("models").out.splitlines()[1].startswith("* whisper-other")
    kestrel.good("models", "remove", "whisper-other")
    _, shown = transcribed(kestrel, SPEECH / "librivox_4.wav", "--language", "en")
    assert shown["model"] == "faster-whisper-base"


def test_terms_are_heard(kestrel: Kestrel, tmp_path: Path) -> None:
    """A name that nobody would spell so, but for the list."""
    (kestrel.home / "terms").mkdir(exist_ok=True)
    (kestrel.home / "terms" / f"{PROJECT}.txt").write_text("# people\nJon Dashwoode\n")
    try:
        _, shown = transcribed(kestrel, SPEECH / "librivox_1.wav", "--language", "en")
    finally:
        shutil.rmtree(kestrel.home / "terms")
    assert "Dashwoode" in text_of(shown)
