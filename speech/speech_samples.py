#!/usr/bin/env python3
"""Fetches recorded speech from Debian packages for tests, benchmarks and the demonstration: 16 kHz mono WAV files.

    english_long.wav, spanish.wav, …   one voice each, about a minute
    librivox_1.wav … librivox_5.wav    single English sentences whose words are known
    conversation_en.wav                two voices in turn, cut together, with conversation_en.rttm
    voices/VOICE/*.wav                 short recordings of single voices, to cut conversations from
    manifest.json                      file, language, text where it is known, turns where there are several voices
"""

from __future__ import annotations

import argparse
import json
import shutil
import sys
from collections.abc import Callable, Iterator
from dataclasses import dataclass
from pathlib import Path

import artifacts
import audio_files
import debian_packages
import numpy as np
from artifacts import Artifact, source_digest
from audio_files import SAMPLE_RATE, Samples
from debian_packages import DebianPackage
from pinned_packages import FetchError

_EN = DebianPackage("asterisk-core-sounds-en-g722", "1.6.1-1",
                    "38c5261820b406dcb0ecb37675720da2b0864850690690352ca52707eb623806")
_ES = DebianPackage("asterisk-core-sounds-es-g722", "1.6.1-1",
                    "e4e3b4281057d3b81b779298fd6be705f57411513955c518eed1bcaabbd615b8")
_FR = DebianPackage("asterisk-core-sounds-fr-g722", "1.6.1-1",
                    "7add61d5e42279ecff1bbdf842a5a946ac3644fac9a0fe44384731aa7270c8e0")
_IT = DebianPackage("asterisk-core-sounds-it-g722", "1.6.1-1",
                    "46b4cf7afc508a5fcfc051b7ea233251c0d195dd4ef83cc4b7facb4c6429b016")
_RU = DebianPackage("asterisk-core-sounds-ru-g722", "1.6.1-1",
                    "673b4238a6b8269960f055d868c6a11083f7a0d00979167cb01554046b48ed9b")
_IT_MENARDI = DebianPackage("asterisk-prompt-it-menardi-wav", "1:1.4.22+mm20110907-3.1",
                            "3094530d98f8758ac275572d59624c41f60969fef883f34f4886d144f3dfeb21")
_FR_ARMELLE = DebianPackage("asterisk-prompt-fr-armelle", "20070613-2.2",
                            "162570b1a9b3512a98f06b89f60c7c17cf1b9b52297315adca9a4e5be728bea3")
_ES_COLOMBIA = DebianPackage("asterisk-prompt-es-co", "0.20070403-2.1",
                             "6702696e045514699e87dc8fb70f370717e5df91f821f7bec8dd0df1be008e83")
_LIBRIVOX = DebianPackage("pocketsphinx-testdata", "0.8+5prealpha+1-15",
                          "eaeb7a01d54f20b799d1a81ef110ec544b2cb47ea006614078220737a33019f0")
_CZECH = DebianPackage("fillets-ng-data-cs", "1.0.1-1.1",
                       "3ecef99b9456f1c80c9625c6f2418642b52d58e7167a46bad7a412db17991b14")
_DUTCH = DebianPackage("fillets-ng-data-nl", "1.0.1-1.1",
                       "afb4443fda9ab507dee578b75be857d121718a1cd6017a474f30e0eb13dc9d10")

_PROMPTS = "usr/share/asterisk/sounds"
_SENTENCES = "usr/share/pocketsphinx/test/data/librivox/sense_and_sensibility_01_austen_64kb-"
_DIALOGUES = "usr/share/games/fillets-ng/sound"


@dataclass(frozen=True)
class Recording:
    file: str
    language: str
    package: DebianPackage
    source: str
    text: str = ""


RECORDINGS = (
    Recording("english_long.wav", "en", _EN, f"{_PROMPTS}/en_US_f_Allison/demo-instruct.g722"),
    Recording("english_short.wav", "en", _EN, f"{_PROMPTS}/en_US_f_Allison/demo-congrats.g722"),
    Recording("spanish.wav", "es", _ES, f"{_PROMPTS}/es_MX_f_Allison/demo-instruct.g722"),
    Recording("french.wav", "fr", _FR, f"{_PROMPTS}/fr_CA_f_June/demo-instruct.g722"),
    Recording("italian.wav", "it", _IT, f"{_PROMPTS}/it_IT_m_Carlo/demo-instruct.g722"),
    Recording("russian.wav", "ru", _RU, f"{_PROMPTS}/ru_RU_f_IvrvoiceRU/demo-instruct.g722"),
    Recording("librivox_1.wav", "en", _LIBRIVOX, f"{_SENTENCES}0870.wav",
              "and mister john dashwood had then leisure to consider how much there might be prudently in his power "
              "to do for them"),
    Recording("librivox_2.wav", "en", _LIBRIVOX, f"{_SENTENCES}0880.wav",
              "he was not an ill disposed young man"),
    Recording("librivox_3.wav", "en", _LIBRIVOX, f"{_SENTENCES}0890.wav",
              "unless to be rather cold hearted and rather selfish is to be ill disposed"),
    Recording("librivox_4.wav", "en", _LIBRIVOX, f"{_SENTENCES}0920.wav",
              "had he married a more amiable woman he might have been made still more respectable than he was"),
    Recording("librivox_5.wav", "en", _LIBRIVOX, f"{_SENTENCES}0930.wav",
              "he might even have been made amiable himself"),
)


@dataclass(frozen=True)
class Voice:
    """Where the recordings of one voice are; `speaker` tells apart voices that two collections share."""

    name: str
    language: str
    package: DebianPackage
    pattern: str
    speaker: str


VOICES = (
    Voice("en_allison", "en", _EN, f"{_PROMPTS}/en_US_f_Allison/*.g722", "allison"),
    Voice("es_allison", "es", _ES, f"{_PROMPTS}/es_MX_f_Allison/*.g722", "allison"),
    Voice("fr_june", "fr", _FR, f"{_PROMPTS}/fr_CA_f_June/*.g722", "june"),
    Voice("it_carlo", "it", _IT, f"{_PROMPTS}/it_IT_m_Carlo/*.g722", "carlo"),
    Voice("ru_ivrvoice", "ru", _RU, f"{_PROMPTS}/ru_RU_f_IvrvoiceRU/*.g722", "ivrvoice"),
    Voice("it_menardi", "it", _IT_MENARDI, f"{_PROMPTS}/it_IT_f_Menardi/*.wav", "menardi"),
    Voice("fr_armelle", "fr", _FR_ARMELLE, f"{_PROMPTS}/fr/*.gsm", "armelle"),
    Voice("es_colombia", "es", _ES_COLOMBIA, f"{_PROMPTS}/es/*.gsm", "colombia"),
    Voice("cs_small_fish", "cs", _CZECH, f"{_DIALOGUES}/*/cs/*-m-*.ogg", "cs_small_fish"),
    Voice("cs_big_fish", "cs", _CZECH, f"{_DIALOGUES}/*/cs/*-v-*.ogg", "cs_big_fish"),
    Voice("nl_small_fish", "nl", _DUTCH, f"{_DIALOGUES}/*/nl/*-m-*.ogg", "nl_small_fish"),
    Voice("nl_big_fish", "nl", _DUTCH, f"{_DIALOGUES}/*/nl/*-v-*.ogg", "nl_big_fish"),
    Voice("en_librivox", "en", _LIBRIVOX, f"{_SENTENCES}*.wav", "librivox"),
)

# Among the prompts are sounds that nobody speaks, and long ones that stand above as recordings.
_NOT_SPEECH = ("tt-", "beep", "ascending", "descending", "silence", "confbridge-", "demo-")
_CLIP_SECONDS = (0.5, 12.0)
_SHORT_SECONDS = 1.5
_SHORT_CLIPS = 20
_VOICE_SECONDS = 240.0


@dataclass(frozen=True)
class Turn:
    begin: float
    end: float
    speaker: str


# A conversation: voice, recording, begin and end in it (at pauses between sentences), and the pause that follows.
_CONVERSATION = (
    ("allison", "english_short.wav", 0.0, 7.2, 0.7),
    ("librivox", "librivox_1.wav", 0.0, None, 0.5),
    ("allison", "english_short.wav", 14.1, 19.4, 0.6),
    ("librivox", "librivox_2.wav", 0.0, None, 0.9),
    ("allison", "english_long.wav", 0.7, 5.3, 0.6),
    ("librivox", "librivox_4.wav", 0.0, None, 0.5),
    ("allison", "english_long.wav", 44.9, 52.4, 1.1),
    ("librivox", "librivox_3.wav", 0.0, None, 0.4),
    ("allison", "english_long.wav", 52.4, 56.8, 0.7),
    ("librivox", "librivox_5.wav", 0.0, None, 0.8),
)


class Collection:
    """The folder of recorded speech."""

    def __init__(self, folder: Path) -> None:
        self._folder = folder
        self._packages = folder / ".packages"

    def complete(self) -> None:
        """Makes what is missing."""
        with artifacts.locked(self._folder):
            for artifact in self._artifacts():
                if artifacts.ensure(self._folder, artifact):
                    print(f"    made {artifact.name}")
            shutil.rmtree(self._packages, ignore_errors=True)

    def _artifacts(self) -> Iterator[Artifact]:
        recipe = source_digest(__file__, audio_files.__file__)
        for recording in RECORDINGS:
            yield Artifact(recording.file, [recording.package.sha256, recipe], self._recording_maker(recording))
        for voice in VOICES:
            yield Artifact(f"voices/{voice.name}", [voice.package.sha256, recipe], self._voice_maker(voice))
        yield Artifact("conversation_en.wav", [recipe], lambda path: audio_files.write_wav(path, self._converse()[0]))
        yield Artifact("conversation_en.rttm", [recipe], lambda path: _write_rttm(path, self._converse()[1]))
        yield Artifact("manifest.json", [recipe], self._write_manifest)

    def _recording_maker(self, recording: Recording) -> Callable[[Path], None]:
        def make(path: Path) -> None:
            tree = debian_packages.unpacked(recording.package, self._packages)
            audio_files.write_wav(path, audio_files.read(tree / recording.source))

        return make

    def _voice_maker(self, voice: Voice) -> Callable[[Path], None]:
        def make(path: Path) -> None:
            tree = debian_packages.unpacked(voice.package, self._packages)
            sources = [source for source in sorted(tree.glob(voice.pattern))
                       if not source.name.startswith(_NOT_SPEECH)]
            for source, samples in _chosen_clips(sources):
                audio_files.write_wav(path / f"{source.stem}.wav", samples)

        return make

    def _converse(self) -> tuple[Samples, list[Turn]]:
        pieces: list[Samples] = []
        turns: list[Turn] = []
        position = 0
        for speaker, file, begin, end, pause in _CONVERSATION:
            samples = audio_files.read_wav(self._folder / file)
            stop = len(samples) if end is None else int(end * SAMPLE_RATE)
            spoken = audio_files.trimmed(samples[int(begin * SAMPLE_RATE) : stop])
            pieces += [spoken, np.zeros(int(pause * SAMPLE_RATE), np.int16)]
            turns.append(Turn(position / SAMPLE_RATE, (position + len(spoken)) / SAMPLE_RATE, speaker))
            position += len(pieces[-2]) + len(pieces[-1])
        return np.concatenate(pieces), turns

    def _write_manifest(self, path: Path) -> None:
        files: dict[str, dict[str, object]] = {}
        for recording in RECORDINGS:
            files[recording.file] = {"language": recording.language}
            if recording.text:
                files[recording.file]["text"] = recording.text
        turns = [{"begin": turn.begin, "end": turn.end, "speaker": turn.speaker} for turn in self._converse()[1]]
        files["conversation_en.wav"] = {"language": "en", "turns": turns}
        voices = {voice.name: {"language": voice.language, "speaker": voice.speaker} for voice in VOICES}
        path.write_text(json.dumps({"files": files, "voices": voices}, indent=1) + "\n", encoding="utf-8")


def _chosen_clips(sources: list[Path]) -> Iterator[tuple[Path, Samples]]:
    """A fixed choice spread over the recordings of a voice: some short answers, the rest longer."""
    short_clips, seconds = 0, 0.0
    for source in _spread(sources):
        samples = audio_files.trimmed(audio_files.read(source))
        length = len(samples) / SAMPLE_RATE
        if not _CLIP_SECONDS[0] <= length <= _CLIP_SECONDS[1]:
            continue
        if length < _SHORT_SECONDS:
            short_clips += 1
            if short_clips > _SHORT_CLIPS:
                continue
        seconds += length
        yield source, samples
        if seconds >= _VOICE_SECONDS:
            return


def _spread(sources: list[Path]) -> list[Path]:
    """Every seventh, then every seventh from the second on, …: neighbours in name are often takes of one sentence."""
    return [source for first in range(7) for source in sources[first::7]]


def _write_rttm(path: Path, turns: list[Turn]) -> None:
    with path.open("w", encoding="utf-8") as file:
        for turn in turns:
            span = f"{turn.begin:.3f} {turn.end - turn.begin:.3f}"
            file.write(f"SPEAKER conversation_en 1 {span} <NA> <NA> {turn.speaker} <NA> <NA>\n")


def main() -> int:
    parser = argparse.ArgumentParser(description="Fetches recorded speech for tests, benchmarks and the demonstration.")
    parser.add_argument("--out", type=Path, required=True, metavar="DIR", help="the folder of recorded speech")
    folder: Path = parser.parse_args().out
    try:
        Collection(folder.resolve()).complete()
    except (FetchError, OSError, ValueError) as failure:
        print(f"speech samples: {failure}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
