"""Life of the services, and everything that can be wrong before a transcription begins."""

from __future__ import annotations

import hashlib
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import time
from pathlib import Path

import pytest
from app_under_test import BIN, SPEECH, TRANSCRIPTS, Kestrel, make_media
from stalled_mount import LOOKUP, READ, stalled_file

def commands(kestrel: Kestrel) -> list[str]:
    listed, _, _ = kestrel.good("--help").out.partition("Everything is kept")
    return re.findall(r"^  ([a-z]+) +[A-Z]", listed, re.MULTILINE)


def test_every_command_helps_with_an_example(fresh: Kestrel) -> None:
    names = commands(fresh)
    assert {"up", "transcribe", "search"} <= set(names)
    for command in names:
        assert re.search(rf"Examples?:\n  kestrel {command}", fresh.good(command, "--help").out), command


def test_version_and_overview(fresh: Kestrel) -> None:
    assert re.fullmatch(r"kestrel \d+\.\d+\.\d+\n", fresh.good("--version").out)
    assert "To begin with:" in fresh.good("--help").out
    assert fresh.good().out == fresh.good("--help").out
    assert not fresh.home.exists()


@pytest.mark.parametrize(
    ("arguments", "message"),
    [
        (["fly"], 'there is no command "fly"; `kestrel --help` lists all'),
        (["trancribe", "a.wav"], 'do you mean "transcribe"?'),
        (["show", b"caf\xe9.wav"], '"caf\ufffd.wav" is not UTF-8'),
        (["up", "--index-port", "70000"], "70000"),
        (["transcribe", "a.wav", "--language", "en"], "--project"),
        (["transcribe", "a.wav", "--project", "P", "--language", "en", "--engine", "steam"], '"steam" is none of {ctc,embedded,service}'),
        (["transcribe", "a.wav", "--project", "", "--language", "en"], "a name must not be empty"),
        (["search", "word", "--project", "P", "--threshold", "1.5"], "1.5"),
        (["search", "word", "--project", "P", "--max", "0"], "--max"),
        (["align", __file__, "--clip", "a", "--range", "5-2"], '"5-2" ends before it starts'),
        (["align", "/nonexistent", "--clip", "a"], "/nonexistent"),
    ],
)
def test_wrong_usage_is_code_2(fresh: Kestrel, arguments: list[str | bytes], message: str) -> None:
    result = fresh.run(*arguments)
    assert (result.code, result.out) == (2, "") and message in result.err


def test_services_come_up_once_and_go_down(fresh: Kestrel) -> None:
    assert fresh.run("status").code == 1
    assert "no service was running" in fresh.good("down").err
    fresh.up()
    pids = fresh.pids()
    assert set(pids) == {"index", "speech"}
    assert all(os.getsid(pid) == pid for pid in pids.values()), "a closed terminal must not end them"
    status = fresh.good("status", "--json").json()
    assert status["index"]["answers"] and status["speech"]["answers"]

    assert "port 1 comes too late: the speech service runs at" in fresh.fails("up", "--speech-port", 1)
    again = fresh.good("up")
    assert again.err.count("already running") == 2
    assert fresh.pids() == pids

    assert fresh.good("down").err.count("stopped") == 2
    assert fresh.pids() == {}
    assert not any(Path(f"/proc/{pid}/cmdline").exists() and is_alive(pid) for pid in pids.values())


def is_alive(pid: int) -> bool:
    return " Z " not in Path(f"/proc/{pid}/stat").read_text()


def wait_until_gone(pid: int) -> None:
    deadline = time.monotonic() + 30
    while Path(f"/proc/{pid}").exists() and is_alive(pid):
        assert time.monotonic() < deadline, f"process {pid} outlives being killed"
        time.sleep(0.05)


def test_two_ups_at_once_start_one_of_each(fresh: Kestrel) -> None:
    processes = [fresh.start("up", "--index-port", 0, "--speech-port", 0) for _ in range(3)]
    messages = [process.communicate(timeout=300)[1] for process in processes]
    assert [process.returncode for process in processes] == [0, 0, 0], messages
    assert sum(message.count(" started") for message in messages) == 2


def test_a_service_that_died_is_started_again(fresh: Kestrel) -> None:
    fresh.up()
    before = fresh.pids()
    os.kill(before["index"], 9)
    wait_until_gone(before["index"])
    result = fresh.run("status", "--json")
    assert result.code == 1
    assert result.json()["index"]["running"] is False
    fresh.up()
    after = fresh.pids()
    assert after["speech"] == before["speech"]
    assert after["index"] != before["index"]


def test_down_leaves_a_stranger_with_the_same_number_alone(fresh: Kestrel) -> None:
    fresh.up()
    pids = fresh.pids()
    state_file = fresh.home / "services.json"
    state = state_file.read_text()
    changed = json.loads(state)
    changed["index"]["startTime"] += 1
    state_file.write_text(json.dumps(changed))
    assert fresh.good("down").err.count("stopped") == 1
    assert is_alive(pids["index"])
    state_file.write_text(state)
    assert fresh.good("down").err.count("stopped") == 1


def test_a_taken_port_is_named_and_nothing_stays_started(fresh: Kestrel) -> None:
    with socket.create_server(("127.0.0.1", 0)) as taken:
        port = taken.getsockname()[1]
        message = fresh.fails("up", "--index-port", 0, "--speech-port", port)
    assert f"port {port} is taken" in message and "--speech-port" in message
    assert fresh.pids() == {}
    fresh.up()


def test_a_service_that_dies_at_start_shows_the_end_of_its_log(fresh: Kestrel, tmp_path: Path) -> None:
    data = fresh.home / "index"
    data.mkdir(parents=True)
    ready = tmp_path / "ready"
    other = subprocess.Popen([BIN / "kestrel-index", "--data", data, "--port", "0", "--ready-file", ready])
    try:
        while not ready.exists():
            assert other.poll() is None
        message = fresh.fails("up", "--index-port", 0, "--speech-port", 0)
    finally:
        other.terminate()
        other.wait()
    assert "the index service ended while it was starting" in message and "index.log ends with:\n    " in message
    assert fresh.pids() == {}


def test_the_password_is_kept_encrypted(kestrel: Kestrel) -> None:
    password = json.loads((kestrel.home / "index/administrator.json").read_text())["password"]
    for name in ("credentials.json", "credentials.key"):
        file = kestrel.home / name
        assert file.stat().st_mode & 0o777 == 0o600
        assert password not in file.read_text()
    assert password not in (kestrel.home / "log/index.log").read_text()


@pytest.mark.parametrize(
    ("file", "content"),
    [("credentials.json", '{"user": "AAAA", "password": "AAAA"}'), ("credentials.json", "{"), ("credentials.json", None),
     ("credentials.key", "another key")],
)
def test_up_repairs_damaged_credentials(kestrel: Kestrel, file: str, content: str | None) -> None:
    (kestrel.home / file).unlink()
    if content is not None:
        (kestrel.home / file).write_text(content)
    message = kestrel.fails("search", "word", "--project", "P")
    assert "credentials" in message or "password" in message
    assert "run `kestrel up`" in message or "damaged" in message
    kestrel.good("up")
    kestrel.good("search", "word", "--project", "P")


def test_up_replaces_the_password_of_a_former_index(fresh: Kestrel) -> None:
    fresh.up()
    fresh.good("down")
    shutil.rmtree(fresh.home / "index")
    former = (fresh.home / "credentials.json").read_text(), (fresh.home / "credentials.key").read_text()
    fresh.up()
    (fresh.home / "credentials.json").write_text(former[0])
    (fresh.home / "credentials.key").write_text(former[1])
    refused = fresh.fails("search", "word", "--project", "P")
    assert "refuses the password" in refused and "`kestrel up`" in refused
    fresh.good("up")
    fresh.good("search", "word", "--project", "P")


@pytest.mark.parametrize(
    "arguments",
    [
        ["transcribe", __file__, "--project", "P", "--language", "en"],
        ["search", "word", "--project", "P"],
        ["show", "clip"],
        ["align", __file__, "--clip", "clip"],
    ],
)
def test_without_services_every_command_says_what_to_do(fresh: Kestrel, arguments: list[str]) -> None:
    result = fresh.run(*arguments)
    assert (result.code, result.out) == (1, "")
    assert "the index service is not running: start it with `kestrel up`" in result.err


@pytest.mark.parametrize(
    ("language", "message"),
    [("xx", "there are: "), ("English", "use --language en for English"), ("français", "use --language fr")],
)
def test_an_unknown_language_is_explained(kestrel: Kestrel, language: str, message: str) -> None:
    said = kestrel.fails("transcribe", SPEECH / "librivox_2.wav", "--project", "P", "--language", language)
    assert language in said and message in said


def test_files_that_cannot_be_transcribed_are_told_one_by_one(kestrel: Kestrel, tmp_path: Path) -> None:
    text = tmp_path / "notes.txt"
    text.write_text("no media")
    fake = tmp_path / "fake.mp4"
    fake.write_bytes(bytes(range(256)) * 100)
    empty = tmp_path / "empty.wav"
    empty.touch()
    silent = make_media(tmp_path / "silent.mp4", "-f", "lavfi", "-i", "testsrc=d=1:s=64x64")
    pipe = tmp_path / "pipe.wav"
    os.mkfifo(pipe)
    raw = tmp_path / "red\x1b[31m\nline.wav"
    raw.write_text("no media")
    files = [text, fake, empty, silent, tmp_path / "missing.mov", pipe, Path("/dev/zero"), raw]
    result = kestrel.run("transcribe", *files, "--project", "P", "--language", "en", "--json")
    assert result.code == 1
    clips = result.json()["clips"]
    assert [clip["status"] for clip in clips] == ["failed"] * len(files)
    assert [clip["file"] for clip in clips] == [str(file) for file in files]
    errors = [clip["error"] for clip in clips]
    assert all("is not a media file" in error for error in errors[:3]), errors
    assert errors[3] == "holds no audio"
    assert "No such file" in errors[4]
    assert "is a pipe" in errors[5] and "or device" in errors[6]
    for clip in clips[:-1]:
        assert f"{clip['name']}  failed: {clip['error']}" in result.err
    assert "red\\x1b[31m\\x0aline.wav  failed" in result.err and "\x1b" not in result.err


@pytest.mark.parametrize("stalled_at, signal_sent", [(READ, signal.SIGINT), (LOOKUP, signal.SIGTERM)])
def test_a_drive_that_stops_answering_can_be_left(
    kestrel: Kestrel, tmp_path: Path, stalled_at: int, signal_sent: signal.Signals
) -> None:
    with stalled_file(tmp_path, stalled_at) as file:
        process = kestrel.start("transcribe", file.path, "--project", "P", "--language", "en")
        try:
            assert file.is_waited_for.wait(60)
            process.send_signal(signal_sent)
            _, err = process.communicate(timeout=60)
        finally:
            process.kill()
        assert process.returncode == 130 and "kestrel: cancelled" in err


def test_folders_give_their_media_files(kestrel: Kestrel, tmp_path: Path) -> None:
    media = ["a.mov", "b.WAV", "card 1/c.mxf", "card 1/deep/d.m4a"]
    others = ["notes.txt", ".hidden.wav", "card 1/picture.jpg", "card 1/list.m3u8", "card 1/subtitles.srt", ".trash/e.wav"]
    for name in [*media, *others]:
        (tmp_path / name).parent.mkdir(parents=True, exist_ok=True)
        (tmp_path / name).write_text(f"only the name of {name}")
    (tmp_path / "again").symlink_to(tmp_path)
    (tmp_path / "empty").mkdir()
    (Path(os.fsdecode(os.fsencode(tmp_path / "card 1") + b"/z\xe9.wav"))).write_text("not UTF-8 by name")
    result = kestrel.run("transcribe", tmp_path, "--project", "P", "--language", "en", "--json")
    assert result.code == 1
    clips = result.json()["clips"]
    strange = clips.pop(3)
    assert strange["file"] == f"{tmp_path}/card 1/z\ufffd.wav" and "not UTF-8" in strange["error"]
    assert [clip["file"] for clip in clips] == [str(tmp_path / name) for name in media]
    assert re.search(r"^5 files in \d+ s: 5 failed$", result.err, re.MULTILINE)
    assert all(f"    {tmp_path / name}: is not a media file" in result.err for name in media)
    nothing = kestrel.run("transcribe", tmp_path / "empty", "--project", "P", "--language", "en")
    assert nothing.code == 1 and "holds no media file" in nothing.err and "no file to transcribe" in nothing.err


def test_a_closed_pipe_is_no_error(fresh: Kestrel) -> None:
    reader, writer = os.pipe()
    os.close(reader)
    process = subprocess.run(
        [BIN / "kestrel", "--help"], stdout=writer, stderr=subprocess.PIPE, env=fresh.environment, check=False
    )
    os.close(writer)
    assert (process.returncode, process.stderr) == (0, b"")


def test_a_clip_that_another_program_writes_is_left_to_it(kestrel: Kestrel) -> None:
    file = SPEECH / "librivox_2.wav"
    clip = hashlib.sha256(file.read_bytes()).hexdigest()
    kestrel.index("PUT", f"{TRANSCRIPTS}/_doc/{clip}?op_type=create", {"KSNNlock": True})
    result = kestrel.run("transcribe", file, "--project", "P", "--language", "en", "--json")
    assert result.code == 1
    assert "another program is writing this clip" in result.json()["clips"][0]["error"]
    assert kestrel.index("GET", f"{TRANSCRIPTS}/_doc/{clip}")["found"] is True
    kestrel.index("DELETE", f"{TRANSCRIPTS}/_doc/{clip}")


@pytest.mark.parametrize("phrase", ["", " ?! "])
def test_a_phrase_without_words_is_refused(kestrel: Kestrel, phrase: str) -> None:
    assert "holds no word" in kestrel.fails("search", phrase, "--project", "P", code=2)


def test_a_search_without_hits_is_an_empty_answer(kestrel: Kestrel) -> None:
    result = kestrel.good("search", "nowhere", "--project", "Nobody", "--json")
    assert result.json() == {"phrase": "nowhere", "project": "Nobody", "threshold": 0.6, "hits": []}
    assert "was found in project" in kestrel.good("search", "nowhere", "--project", "Nobody").err


def test_results_that_cannot_be_written_are_an_error(kestrel: Kestrel) -> None:
    with open("/dev/full", "w") as full:
        process = subprocess.run([BIN / "kestrel", "status", "--json"], stdout=full, stderr=subprocess.PIPE, text=True,
                                 env=kestrel.environment, check=False)
    assert process.returncode == 1
    assert "No space left on device" in process.stderr


def test_a_home_that_cannot_be_made_is_named(tmp_path: Path) -> None:
    (tmp_path / "file").touch()
    assert str(tmp_path / "file" / "home") in Kestrel(tmp_path / "file" / "home").fails("up")
