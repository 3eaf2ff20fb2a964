"""Transcribes real recordings, finds misspelt phrases in them, and checks that each is found where it is spoken."""

from __future__ import annotations

import argparse
import json
import os
import subprocess
import sys
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Any

PROJECT = "Kestrel demo"
TOLERANCE_MS = 300


@dataclass(frozen=True)
class Spoken:
    """Words in a recording. `at`, in seconds, was measured in the signal: the words follow a pause."""

    typed: str
    first_word: str
    at: float


@dataclass(frozen=True)
class Recording:
    file: str
    language: str
    what: str
    spoken: Spoken


RECORDINGS = [
    Recording("english_long.wav", "en", "English, one voice",
              Spoken("if the consol is bussy or unavailable", "If", 57.00)),
    Recording("spanish.wav", "es", "Spanish, one voice",
              Spoken("para verifcar el mensage del usuario", "Para", 76.47)),
    Recording("french.wav", "fr", "French, one voice",
              Spoken("si la consolle est ocupée ou non disponible", "Si", 51.45)),
    Recording("conversation_en.wav", "en", "English, two voices in turn",
              Spoken("had he maried a more amiable womman", "Had", 29.67)),
]
OTHER_VOICE = Spoken("like a normel PBX you will navigate", "Like", 15.16)
SCRIPT = """INT. SERVER ROOM - NIGHT

OPERATOR
If the console is busy or unavailable
you'll be given an option to leave voice mail.

VISITOR
And where did you park the elephant?

OPERATOR
(pointing)
To check the voicemail for a user...
"""


class Kestrel:
    """The executable; its messages are shown as they come, its results are read as JSON."""

    def __init__(self, executable: Path) -> None:
        self.executable = executable

    def run(self, *arguments: object) -> None:
        self.show(arguments)
        result = subprocess.run([self.executable, *map(str, arguments)], check=False)
        if result.returncode != 0:
            sys.exit(f"\nkestrel {arguments[0]} failed; see its message above")

    def ask(self, *arguments: object) -> Any:
        result = subprocess.run(
            [self.executable, *map(str, arguments), "--json"], capture_output=True, text=True, check=False
        )
        if result.returncode != 0:
            sys.exit(f"\nkestrel {arguments[0]} failed: {result.stderr}")
        return json.loads(result.stdout)

    @staticmethod
    def show(arguments: tuple[object, ...]) -> None:
        words = [f'"{word}"' if " " in str(word) else str(word) for word in arguments]
        print("   $ kestrel", *words, flush=True)


class Checks:
    """Counts failures; the demonstration fails when a check does."""

    def __init__(self) -> None:
        self.failed = 0

    def check(self, good: bool, text: str) -> None:
        print(f"     {'ok    ' if good else 'FAILED'} {text}", flush=True)
        self.failed += not good


def title(text: str) -> None:
    print(f"\n==> {text}", flush=True)


def transcribe(kestrel: Kestrel, speech: Path, checks: Checks) -> None:
    title("Transcribing four recordings (a recording that is complete already is skipped)")
    begin = time.monotonic()
    for recording in RECORDINGS:
        print(f"\n   {recording.what}:")
        kestrel.run(
            "transcribe", speech / recording.file, "--project", PROJECT, "--language", recording.language
        )
    print(f"\n     {time.monotonic() - begin:.0f} seconds for all four")
    voices = {segment["speaker"] for segment in kestrel.ask("show", "conversation_en.wav")["segments"]}
    checks.check(len(voices) == 2, f"the conversation has {len(voices)} voices")


def best_hit(kestrel: Kestrel, spoken: Spoken, file: str) -> Any:
    hits = kestrel.ask("search", spoken.typed, "--project", PROJECT)["hits"]
    return next((hit for hit in hits if hit["clipName"] == file), None)


def check_found(kestrel: Kestrel, spoken: Spoken, file: str, checks: Checks) -> Any:
    hit = best_hit(kestrel, spoken, file)
    if hit is None:
        checks.check(False, f"not found in {file}")
        return None
    late = hit["startMS"] - round(spoken.at * 1000)
    good = abs(late) <= TOLERANCE_MS and hit["match"].split()[0].strip(",.") == spoken.first_word
    checks.check(good, f"\"{hit['match']}\" at {hit['timecode']}, {abs(late)} ms from the signal, score {hit['score']:.2f}")
    return hit


def find(kestrel: Kestrel, checks: Checks) -> None:
    title("Finding mistyped phrases at the word and the time where they are spoken")
    hits = []
    for recording in RECORDINGS:
        print()
        kestrel.run("search", recording.spoken.typed, "--project", PROJECT, "--max", 1)
        hits.append(check_found(kestrel, recording.spoken, recording.file, checks))
    answer = hits[-1]
    question = check_found(kestrel, OTHER_VOICE, RECORDINGS[-1].file, checks)
    if answer and question:
        checks.check(answer["speaker"] != question["speaker"], "and those two were said by different voices")


def align(kestrel: Kestrel, work: Path, checks: Checks) -> None:
    title("Aligning a short script with the English recording; its second speaker is not in it")
    script = work / "scene.fountain"
    script.write_text(SCRIPT, encoding="utf-8")
    page = work / "scene.html"
    kestrel.run("align", script, "--clip", "english_long.wav", "--html", page)
    lines = kestrel.ask("align", script, "--clip", "english_long.wav")["lines"]
    checks.check([line["found"] for line in lines] == [True, True, False, True], "the only line not found is the visitor's")
    starts = [line.get("startMS", 0) for line in lines]
    checks.check(
        abs(starts[0] - 57_000) <= TOLERANCE_MS and abs(starts[3] - 62_420) <= TOLERANCE_MS,
        f"the first line begins at {starts[0] / 1000:.2f} s, the last at {starts[3] / 1000:.2f} s",
    )


def compare_engines(kestrel: Kestrel, speech: Path, work: Path, checks: Checks) -> None:
    title("Transcribing one recording with both engines: the service, and embedded in the kestrel process")
    words = []
    for engine in ("service", "embedded"):
        # A clip is identified by its content, so each engine gets a file of its own with the same audio.
        file = work / f"librivox by the {engine} engine.mkv"
        if not file.exists():
            convert(speech / "librivox_1.wav", file, engine)
        kestrel.run(
            "transcribe", file, "--project", f"{PROJECT}, engines", "--language", "en", "--engine", engine
        )
        words.append(
            [
                (segment["text"], segment["wordStartsMS"], segment["wordEndsMS"])
                for segment in kestrel.ask("show", file)["segments"]
            ]
        )
    print(f"     {words[0][0][0]}")
    checks.check(words[0] == words[1], "the same words at the same times")


def convert(source: Path, target: Path, title_text: str) -> None:
    subprocess.run(
        ["ffmpeg", "-v", "error", "-y", "-i", source, "-metadata", f"title={title_text}", "-c:a", "flac", target],
        check=True,
    )


def say_what_next(executable: Path, stopped: bool) -> None:
    title("The three most useful commands to go on with" + ("" if stopped else " (the services are still running)"))
    services = "Start the services again first: kestrel up" if stopped else "Stop the services with: kestrel down"
    print(f"""
   export PATH="{executable.parent}:$PATH" KESTREL_HOME="{os.environ['KESTREL_HOME']}"

   1. kestrel transcribe FILE --project Mine                 your own media, any file or folder with audio
   2. kestrel search "what somebody said" --project Mine     at the word where it is spoken
   3. kestrel desk                                           all of it in the browser: play, search, name speakers

   {services}
""")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--bin", type=Path, required=True, help="folder of the executables")
    parser.add_argument("--speech", type=Path, required=True, help="folder of the recordings")
    parser.add_argument("--work", type=Path, required=True, help="folder for the files made here")
    parser.add_argument("--stop", action="store_true", help="stop the services at the end")
    options = parser.parse_args()
    options.work.mkdir(parents=True, exist_ok=True)
    kestrel = Kestrel(options.bin / "kestrel")
    checks = Checks()

    title("Starting the index service and the speech service, on free ports")
    kestrel.run("up", "--index-port", 0, "--speech-port", 0)
    transcribe(kestrel, options.speech, checks)
    find(kestrel, checks)
    align(kestrel, options.work, checks)
    compare_engines(kestrel, options.speech, options.work, checks)
    if options.stop:
        kestrel.run("down")
    say_what_next(kestrel.executable, options.stop)
    print("==> Everything was found where it is spoken." if not checks.failed else f"==> {checks.failed} checks failed.")
    return 1 if checks.failed else 0


if __name__ == "__main__":
    sys.exit(main())
