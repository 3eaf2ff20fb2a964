"""Clips from transcription to search, display and alignment, on real speech."""

from __future__ import annotations

import json
import re
import signal
import subprocess
from pathlib import Path
from typing import Any

import pysubs2
import pytest
from app_under_test import SPEECH, TRANSCRIPTS, Kestrel, make_media, segment_documents

PROJECT = "Rivers & \"Bridges\" / Мосты"
SCRIPT = """INT. HALL - DAY

ANNA
(reading)
Congratulations! You have succesfully installed
the asterisk open source PBX.

BEN
A dragon flew over <purple> mountains & rivers.

ANNA
...
You can use the dial, answer and hang up commands.
"""


@pytest.fixture(scope="module")
def video(kestrel: Kestrel, tmp_path_factory: pytest.TempPathFactory) -> Path:
    """Half a minute of speech under a moving picture, transcribed."""
    file = tmp_path_factory.mktemp("media") / "the <visit>.mp4"
    make_media(file, "-f", "lavfi", "-i", "testsrc=s=64x64:r=10", "-i", SPEECH / "english_short.wav", "-shortest")
    result = kestrel.good("transcribe", file, "--project", PROJECT, "--language", "en", "--json")
    (clip,) = result.json()["clips"]
    assert clip["status"] == "transcribed" and clip["segments"] > 1 and clip["seconds"] > 0
    assert re.search(r"\[1/1\] the <visit>.mp4  transcribing +\d+ %", result.err)
    return file


def contents(kestrel: Kestrel, clip: object) -> Any:
    return kestrel.good("show", clip, "--json").json()


def variant(source: Path, target: Path) -> Path:
    """The same audio in another file, which makes it another clip."""
    return make_media(target, "-i", source, "-c", "copy", "-metadata", f"comment={target.name}")


def test_a_misspelt_phrase_is_found_where_it_is_said(kestrel: Kestrel, video: Path) -> None:
    arguments = ("search", "instaled a set of sampel sounds", "--project", PROJECT)
    hit = kestrel.good(*arguments, "--json").json()["hits"][0]
    assert hit["clipName"] == video.name
    assert 7_500 <= hit["startMS"] <= 9_500
    assert hit["score"] > 0.85
    assert hit["match"].startswith("installed a set of sample sounds")
    printed = kestrel.good(*arguments).out.splitlines()
    assert printed[0].startswith(f"{video.name}  {hit['timecode']} - ")
    assert f"  speaker {hit['speaker']}  " in printed[0]
    assert hit["match"] in printed[1] and "**" not in printed[1]


def test_search_keeps_to_project_threshold_and_count(kestrel: Kestrel, video: Path) -> None:
    def hits(*arguments: object) -> Any:
        return kestrel.good("search", *arguments, "--json").json()["hits"]

    assert hits("sampel", "--project", PROJECT, "--threshold", 1) == []
    assert hits("SÁMPLE", "--project", PROJECT, "--threshold", 1)
    assert hits("sample", "--project", "Another") == []
    many = hits("the", "--project", PROJECT, "--threshold", 0.3)
    scores = [hit["score"] for hit in many]
    assert len(many) > 2 and scores == sorted(scores, reverse=True)
    assert hits("the", "--project", PROJECT, "--threshold", 0.3, "--max", 2) == many[:2]


def test_show_gives_words_with_times(kestrel: Kestrel, video: Path) -> None:
    shown = contents(kestrel, video.name)
    assert shown["complete"] and shown["project"] == PROJECT and shown["clientApp"] == "kestrel"
    assert shown["audioTracks"].startswith("audio track 1 of 1: aac")
    assert shown == contents(kestrel, video) == contents(kestrel, shown["clip"][:8])
    last = 0
    for number, segment in enumerate(shown["segments"]):
        assert segment["segment"] == number
        assert len(segment["wordStartsMS"]) == len(segment["wordEndsMS"]) == len(segment["text"].split())
        assert last <= segment["startMS"] <= segment["endMS"] <= 31_000
        last = segment["startMS"]
    text = kestrel.good("show", video.name).out
    assert re.search(r"^00:00:0\d\.\d{3}  .*Congratulations", text, re.MULTILINE)
    assert video.name in kestrel.fails("show", "no such clip")


def test_align_places_spoken_lines_and_shows_the_lost(kestrel: Kestrel, video: Path, tmp_path: Path) -> None:
    script = tmp_path / "scene.fountain"
    script.write_text(SCRIPT)
    page = tmp_path / "scene.html"
    result = kestrel.good("align", script, "--clip", video.name, "--json", "--html", page)
    lines = result.json()["lines"]
    assert [line["line"] for line in lines] == [5, 6, 9, 13]
    assert [line["found"] for line in lines] == [True, True, False, True]
    assert [line["character"] for line in lines] == ["ANNA", "ANNA", "BEN", "ANNA"]
    assert lines[0]["word"].startswith("Congratulations") and lines[0]["startMS"] < 1_000
    assert lines[3]["word"].lower() == "you" and 22_000 < lines[3]["startMS"] < 27_000
    html = page.read_text()
    assert html.count('class="lost"') == 1 and html.count('class="found"') == 3 and "3 of 4 script lines found" in html
    assert "the &lt;visit&gt;.mp4" in html and "over &lt;purple&gt; mountains &amp; rivers.<br><strong>Not found" in html
    assert f"<time>{lines[0]['timecode']}</time>" in html and 'title="script line 5">Congratulations' in html
    assert 'href="#word-0-0"' in html and 'id="word-0-0"' in html and "http" not in html, "complete in itself"
    text = kestrel.good("align", script, "--clip", video.name).out.splitlines()
    assert "not found" in text[2] and lines[3]["timecode"] in text[3]

    ranged = kestrel.good("align", script, "--clip", video.name, "--range", "18-30", "--json").json()["lines"]
    assert [line["found"] for line in ranged] == [False, False, False, True]
    assert abs(ranged[3]["startMS"] - lines[3]["startMS"]) < 50
    assert "nothing is said" in kestrel.fails("align", script, "--clip", video.name, "--range", "1:00:00-1:00:01")
    assert "/dev/full: No space left on device" in kestrel.fails("align", script, "--clip", video.name, "--html", "/dev/full")


def test_a_complete_clip_is_skipped_whatever_its_name(kestrel: Kestrel, video: Path, tmp_path: Path) -> None:
    renamed = tmp_path / "renamed.mp4"
    renamed.write_bytes(video.read_bytes())
    result = kestrel.good("transcribe", renamed, "--project", PROJECT, "--language", "en", "--json")
    assert result.json()["clips"][0]["status"] == "already complete"
    assert "already complete, skipped" in result.err
    second = kestrel.good("transcribe", video, "--project", "Second", "--language", "en", "--json")
    assert second.json()["clips"][0]["status"] == "joined"
    assert kestrel.good("search", "sample sounds", "--project", "Second").out
    kestrel.good("leave", video, "--project", "Second")
    kestrel.good("transcribe", video, "--project", PROJECT, "--language", "en")  # its name in the catalogue again


def test_one_bad_file_does_not_stop_the_others(kestrel: Kestrel, tmp_path: Path) -> None:
    bad = tmp_path / "bad.wav"
    bad.write_text("not sound")
    quiet = make_media(tmp_path / "quiet.wav", "-f", "lavfi", "-i", "anullsrc=r=16000:cl=mono", "-t", "2")
    files = [bad, SPEECH / "librivox_5.wav", quiet]
    result = kestrel.run("transcribe", *files, "--project", PROJECT, "--language", "en", "--json")
    assert result.code == 1
    assert [clip["status"] for clip in result.json()["clips"]] == ["failed", "transcribed", "no speech"]
    assert "amiable" in contents(kestrel, "librivox_5.wav")["segments"][0]["text"]
    assert "no speech was found" in result.err


def test_two_at_once_write_a_clip_once(kestrel: Kestrel) -> None:
    arguments = ("transcribe", SPEECH / "librivox_3.wav", "--project", PROJECT, "--language", "en")
    processes = [kestrel.start(*arguments) for _ in range(3)]
    errors = [process.communicate(timeout=300)[1] for process in processes]
    assert sum(" words in " in error for error in errors) == 1, errors
    for process, error in zip(processes, errors):
        assert (process.returncode == 0) == ("another kestrel is writing this clip" not in error)
    segments = contents(kestrel, "librivox_3.wav")["segments"]
    assert [segment["segment"] for segment in segments] == list(range(len(segments)))


def wait_for(process: subprocess.Popen[str], text: str) -> None:
    assert process.stderr is not None
    for line in process.stderr:
        if text in line:
            return
    raise AssertionError(f"{text} was never said")


@pytest.mark.parametrize("engine", ["service", "embedded"])
def test_ctrl_c_cancels_and_leaves_no_lock(kestrel: Kestrel, tmp_path: Path, engine: str) -> None:
    file = variant(SPEECH / "english_long.wav", tmp_path / f"cancelled by {engine}.wav")
    arguments = ("transcribe", file, "--project", PROJECT, "--language", "en", "--engine", engine)
    process = kestrel.start(*arguments, "--json")
    wait_for(process, "transcribing")
    process.send_signal(signal.SIGINT)
    out, err = process.communicate(timeout=120)
    assert process.returncode == 130, err
    assert '"status": "cancelled"' in re.sub(r"\s*:\s*", ": ", out)
    locks = kestrel.index("GET", f"{TRANSCRIPTS}/_count", {"query": {"exists": {"field": "KSNNlock"}}})
    assert locks["count"] == 0


def test_a_killed_transcription_is_taken_up_again(kestrel: Kestrel) -> None:
    arguments = ("transcribe", SPEECH / "librivox_1.wav", "--project", PROJECT, "--language", "en")
    process = kestrel.start(*arguments)
    wait_for(process, "transcribing")
    process.kill()
    process.communicate()
    assert " words in " in kestrel.good(*arguments).err
    assert contents(kestrel, "librivox_1.wav")["complete"]


def test_again_replaces_a_transcript_once_the_new_one_is_whole(kestrel: Kestrel, tmp_path: Path) -> None:
    file = variant(SPEECH / "librivox_5.wav", tmp_path / "again.wav")
    arguments = ("transcribe", file, "--language", "en", "--project")
    for project in ("Again", "Too"):
        kestrel.good(*arguments, project)
    old = contents(kestrel, file)
    kestrel.good("speakers", "create", "Mary", "--project", "Again")
    kestrel.good("speakers", "assign", "Mary", file, "--label", old["segments"][0]["speaker"], "--project", "Again")

    def is_old() -> bool:
        return [hit["_id"] for hit in segment_documents(kestrel, old["clip"])] == documents

    documents = [hit["_id"] for hit in segment_documents(kestrel, old["clip"])]
    process = kestrel.start(*arguments, "Again", "--again")
    wait_for(process, "transcribing")
    process.kill()
    process.communicate()
    assert is_old()

    process = kestrel.start(*arguments, "Again", "--again")
    wait_for(process, "transcribing")
    subprocess.run(["kill", "-9", str(kestrel.pids()["index"])], check=True)
    _, err = process.communicate(timeout=300)
    assert "the new transcript is kept" in err and "the index service has ended" in err
    kestrel.up()
    assert is_old()
    every_segment = {"query": {"term": {"mediaGuid.keyword": old["clip"]}}}
    kestrel.index("POST", f"{TRANSCRIPTS}/_delete_by_query", every_segment)  # as a crash half way leaves it
    completed = kestrel.good(*arguments, "Too").err
    assert "replacement" in completed and "already complete" in completed
    for project in ("Again", "Too"):
        new = kestrel.good("show", old["clip"], "--project", project, "--json").json()
        assert new["complete"] and new["segments"][0]["speakerName"] == "Mary" and not is_old()
        assert all(0 < word["confidence"] <= 100 for segment in new["segments"] for word in segment["words"])
        assert [segment["text"] for segment in new["segments"]] == [segment["text"] for segment in old["segments"]]
    result = kestrel.good(*arguments, "Again", "--again", "--json")
    assert result.json()["clips"][0]["status"] == "replaced"
    assert contents(kestrel, file)["segments"] == new["segments"]


def test_a_half_written_clip_is_completed(kestrel: Kestrel, video: Path, tmp_path: Path) -> None:
    half = variant(video, tmp_path / "half.mp4")
    arguments = ("transcribe", half, "--project", PROJECT, "--language", "en")
    kestrel.good(*arguments)
    before = contents(kestrel, half)
    documents = segment_documents(kestrel, before["clip"])
    kestrel.index("DELETE", f"{TRANSCRIPTS}/_doc/{documents[-1]['_id']}")
    change = {"doc": {"progressComplete": False}}
    kestrel.index("POST", f"{TRANSCRIPTS}/_update/{documents[0]['_id']}", change)
    assert "not complete" in kestrel.good("show", half).err
    kestrel.good(*arguments)
    after = contents(kestrel, half)
    assert after["complete"] and after["segments"][:-1] == before["segments"][:-1]
    assert after["segments"][-1]["text"].split()[-2:] == before["segments"][-1]["text"].split()[-2:]


def test_a_full_store_loses_nothing(kestrel: Kestrel) -> None:
    """The index service is stopped half way, as by a full disk: the next run goes on."""
    arguments = ("transcribe", SPEECH / "librivox_4.wav", "--project", PROJECT, "--language", "en")
    process = kestrel.start(*arguments)
    wait_for(process, "transcribing")
    kestrel_index = kestrel.pids()["index"]
    subprocess.run(["kill", "-9", str(kestrel_index)], check=True)
    _, err = process.communicate(timeout=300)
    assert process.returncode == 1
    assert "failed: " in err
    kestrel.up()
    assert " words in " in kestrel.good(*arguments).err
    assert contents(kestrel, "librivox_4.wav")["complete"]


def test_both_engines_give_the_same_transcript(kestrel: Kestrel, video: Path, tmp_path: Path) -> None:
    other = variant(video, tmp_path / "embedded.mp4")
    arguments = ("--project", PROJECT, "--language", "en", "--engine", "embedded")
    kestrel.good("transcribe", other, *arguments)
    assert contents(kestrel, other)["segments"] == contents(kestrel, video)["segments"]


def test_the_acoustic_model_writes_what_it_hears(kestrel: Kestrel, tmp_path: Path) -> None:
    file = variant(SPEECH / "english_short.wav", tmp_path / "phonemes.wav")
    refused = kestrel.fails("transcribe", file, "--project", PROJECT, "--language", "en", "--engine", "ctc")
    assert 'no language "en"; there are: "English (phonemes)"' in refused
    kestrel.good("transcribe", file, "--project", PROJECT, "--language", "English (phonemes)", "--engine", "ctc")
    segments = contents(kestrel, file)["segments"]
    assert len(segments) > 3
    text = " ".join(segment["text"] for segment in segments)
    assert text.startswith("kængɹæd͡ʒəleɪʃənz ju heɪv səksɛsfəli ɪnstɔld ænd ɛksəkjutɪd")
    times = [time for segment in segments for word in zip(segment["wordStartsMS"], segment["wordEndsMS"]) for time in word]
    assert times == sorted(times) and 25_000 < times[-1] < 31_000


def packets(file: Path, streams: str) -> list[tuple[float, float]]:
    """Start and duration of each packet, in seconds."""
    probe = ["ffprobe", "-v", "error", "-select_streams", streams, "-show_packets", "-of", "json", str(file)]
    found = json.loads(subprocess.run(probe, check=True, capture_output=True).stdout)["packets"]
    return [(float(packet["pts_time"]), float(packet["duration_time"])) for packet in found]


@pytest.mark.parametrize(("form", "codec"), [("srt", "srt"), ("vtt", "webvtt")])
def test_subtitles_of_real_speech_play(kestrel: Kestrel, video: Path, tmp_path: Path, form: str, codec: str) -> None:
    """FFmpeg takes them into a film, beside picture and sound, and gives every word back."""
    russian = SPEECH / "russian.wav"
    kestrel.good("transcribe", russian, "--project", PROJECT, "--language", "ru")
    for spoken in (video, russian):
        subtitles = tmp_path / f"{spoken.stem}.{form}"
        kestrel.good("dump", spoken, "--format", form, "--output", subtitles)
        film = make_media(tmp_path / f"{form} {spoken.stem}.mkv", "-i", spoken, "-i", subtitles, "-map", 0, "-map", 1,
                          "-c", "copy", "-c:s", codec)
        cues = packets(subtitles, "s")
        # A film cannot begin before 0: where its audio does, for what the codec needs first, all streams are moved.
        moved = packets(film, "a")[0][0] - packets(spoken, "a")[0][0]
        shown_at = [value for at, length in cues for value in (at + moved, length)]
        assert len(cues) > 5 and [value for cue in packets(film, "s") for value in cue] == pytest.approx(shown_at, abs=0.002)
        assert all(a + length < b for (a, length), (b, _) in zip(cues, cues[1:]))
        decode = ["ffmpeg", "-v", "error", "-i", str(film), "-map", "0:s", "-f", "srt", "-"]
        shown = subprocess.run(decode, check=True, capture_output=True, text=True).stdout
        words = " ".join(event.plaintext for event in pysubs2.SSAFile.from_string(shown, format_="srt")).split()
        assert words == " ".join(segment["text"] for segment in contents(kestrel, spoken)["segments"]).split()


def test_sound_beyond_one_part_keeps_its_time(kestrel: Kestrel, tmp_path: Path) -> None:
    """Speech, forty minutes of silence, and speech: the engine gets five parts."""
    join = "[0]apad=whole_dur=2430[first];[first][1]concat=n=2:v=0:a=1"
    sources = ("-i", SPEECH / "librivox_5.wav", "-i", SPEECH / "librivox_2.wav")
    file = make_media(tmp_path / "long.flac", *sources, "-filter_complex", join)
    kestrel.good("transcribe", file, "--project", "Long", "--language", "en")
    first, second = contents(kestrel, file)["segments"]
    assert "amiable" in first["text"] and first["startMS"] < 2_000
    assert "young man" in second["text"] and 2_430_000 <= second["startMS"] < 2_432_000
    assert second["speaker"] == first["speaker"], "one voice, whichever part it is in"
    (hit,) = kestrel.good("search", "yung man", "--project", "Long", "--json").json()["hits"]
    assert 2_431_500 < hit["startMS"] < 2_432_500
