#!/usr/bin/env python3
"""Measures what `kestrel transcribe` needs for a clip of hours against a clip of one part.

    .deps/venv/bin/python bench/transcription/long_clip.py [--hours 3] [--copies 2]

Each part of ten minutes has a few seconds of speech, so that recognition itself stays short. Prints the largest memory of kestrel and
of the speech service after each clip. The long one is interrupted by SIGINT after its first third and resumed: what was stored
must stay as it was, and every sentence must be found in its part.
"""

from __future__ import annotations

import argparse
import os
import re
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import numpy as np

ROOT = Path(__file__).resolve().parents[2]
os.environ.setdefault("KESTREL_BUILD_BIN", str(ROOT / "build/bin"))
os.environ.setdefault("KESTREL_DEPS_DIR", str(ROOT / ".deps"))
sys.path[:0] = [str(ROOT / "tests/app"), str(ROOT / "bench/diarization")]

from app_under_test import SPEECH, Kestrel
from conversations import SAMPLE_RATE, Audio, read_wav

PART = 600
SENTENCES = {"librivox_2": "young man", "librivox_3": "hearted", "librivox_4": "respectable", "librivox_5": "might even"}
PROJECT = "Long"


def main() -> None:
    parser = argparse.ArgumentParser(description=(__doc__ or "").splitlines()[0])
    parser.add_argument("--hours", type=float, default=3.0)
    parser.add_argument("--copies", type=int, default=2, help="sentences in each part (%(default)s)")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        kestrel = Kestrel(Path(folder) / "home")
        kestrel.up()
        try:
            print("                 kestrel  speech service      time")
            for name, parts in (("warm.flac", 1), ("one part.flac", 1)):
                transcribe_once(kestrel, make_clip(Path(folder) / name, parts, options.copies))
            long = make_clip(Path(folder) / "long.flac", round(options.hours * 3600 / PART), options.copies)
            interrupt(kestrel, long, options.hours * 1200)
            before = segments(kestrel, long)
            transcribe_once(kestrel, long)
            check(kestrel, long, before, round(options.hours * 3600 / PART), options.copies)
        finally:
            kestrel.run("down")


def make_clip(target: Path, parts: int, copies: int) -> Path:
    """Each part has its sentences, a minute apart."""
    command = ["ffmpeg", "-v", "error", "-f", "s16le", "-ar", str(SAMPLE_RATE), "-ac", "1", "-i", "-",
               "-metadata", f"title={target.name}", str(target)]
    with subprocess.Popen(command, stdin=subprocess.PIPE) as encoder:
        assert encoder.stdin is not None
        for number in range(parts):
            encoder.stdin.write((part_of(number, copies) * 32767).astype("<i2").tobytes())
    return target


def part_of(number: int, copies: int) -> Audio:
    audio = np.zeros(PART * SAMPLE_RATE, np.float32)
    for copy in range(copies):
        spoken = read_wav(SPEECH / f"{sentence(number + copy)}.wav")
        begin = (60 + 60 * copy) * SAMPLE_RATE
        audio[begin : begin + len(spoken)] = spoken
    return audio


def sentence(number: int) -> str:
    return list(SENTENCES)[number % len(SENTENCES)]


def interrupt(kestrel: Kestrel, file: Path, stored_seconds: float) -> None:
    process = kestrel.start("transcribe", file, "--project", PROJECT, "--language", "en")
    while len(segments(kestrel, file)) < 1 or last_end(kestrel, file) < stored_seconds:
        assert process.poll() is None, process.communicate()
        time.sleep(2)
    process.send_signal(signal.SIGINT)
    begin = time.monotonic()
    process.communicate()
    print(f"interrupted: ended with {process.returncode} after {time.monotonic() - begin:.1f} s; stored up to "
          f"{last_end(kestrel, file):.0f} s")


def transcribe_once(kestrel: Kestrel, file: Path) -> None:
    begin = time.monotonic()
    process = kestrel.start("transcribe", file, "--project", PROJECT, "--language", "en")
    peak = 0.0
    while process.poll() is None:
        peak = max(peak, largest_memory(process.pid))
        time.sleep(0.05)
    _, err = process.communicate()
    assert process.returncode == 0, f"ended with {process.returncode}: {err}"
    print(f"{file.name:15}  {peak:4.0f} MiB {largest_memory(kestrel.pids()['speech']):11.0f} MiB {time.monotonic() - begin:7.0f} s")


def largest_memory(pid: int) -> float:
    try:
        found = re.search(r"VmHWM:\s+(\d+)", Path(f"/proc/{pid}/status").read_text(encoding="ascii"))
    except OSError:
        found = None
    return int(found[1]) / 1024 if found else 0.0


def segments(kestrel: Kestrel, file: Path) -> list[dict[str, object]]:
    shown = kestrel.run("show", file, "--project", PROJECT, "--json")
    return list(shown.json()["segments"]) if shown.code == 0 else []


def last_end(kestrel: Kestrel, file: Path) -> float:
    return max((float(str(one["endMS"])) / 1000 for one in segments(kestrel, file)), default=0.0)


def check(kestrel: Kestrel, file: Path, before: list[dict[str, object]], parts: int, copies: int) -> None:
    after = segments(kestrel, file)
    found = 0
    for number in range(parts):
        for copy in range(copies):
            begin = (number * PART + 60 + 60 * copy) * 1000
            heard = " ".join(str(one["text"]) for one in after if begin - 1000 <= int(str(one["startMS"])) < begin + 30_000)
            if SENTENCES[sentence(number + copy)] in heard:
                found += 1
            else:
                print(f"not found at {begin // 1000} s: {SENTENCES[sentence(number + copy)]!r} in {heard!r}")
    print(f"{len(before)} segments were stored before and {'stayed' if after[:len(before)] == before else 'CHANGED'}; "
          f"{found} of {parts * copies} sentences stand at their time; "
          f"{'complete' if kestrel.good('show', file, '--project', PROJECT, '--json').json()['complete'] else 'INCOMPLETE'}")


if __name__ == "__main__":
    main()
