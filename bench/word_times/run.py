#!/usr/bin/env python3
"""Measures how near word times come to the sound: where speech sets in after a pause, a word has to begin, and where it
stops before one, a word has to end.

    .deps/venv/bin/python bench/word_times/run.py [--against TREE]

Three ways on the English recordings: the recogniser's own times, these fitted to the level of the signal (as the speech
module gives them; with --against, also as the module of another source tree does), and those of forced alignment with the English phoneme model where both agree within half a second.
The truth is taken from two detectors, the voice detector (steps of 32 ms) and the level of the signal (steps of 5 ms);
the fit works with the level itself, so the first is the fairer judge. Pronunciations come from the package that carries
the phoneme model, which is fetched for this.
"""

from __future__ import annotations

import argparse
import importlib
import importlib.util
import json
import re
import sys
import tempfile
import wave
import zipfile
from collections.abc import Sequence
from pathlib import Path
from typing import Any, NamedTuple

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "python"), str(ROOT / "models"), str(ROOT / "tools")]

import numpy as np
import onnxruntime
from faster_whisper import vad

import phoneme_model
import pinned_packages
from FasterWhisperTranscriber.transcriber import DECODING, SAMPLING_RATE, Transcriber
from FasterWhisperTranscriber.word_times import Sound, TimedWord, fit_last_word, fit_words

MODELS = ROOT / ".deps" / "models"
SPEECH = ROOT / ".deps" / "speech"
RECORDINGS = ["english_short", "english_long", "conversation_en", *(f"librivox_{n}" for n in range(1, 6))]

PAUSE = 0.25
AGREEMENT = 0.5
FRAME = 0.02
MARGIN = 0.3  # sound around a segment in which its words may lie

Stretch = tuple[float, float]


class Errors(NamedTuple):
    """Distances of the nearest word edge from each edge of sound, in seconds."""

    starts: list[float]
    ends: list[float]


class Pronouncer:
    """Words as phonemes of the acoustic model."""

    def __init__(self, known: dict[str, int]) -> None:
        self._known = known
        self._folder = tempfile.TemporaryDirectory()
        wheel = pinned_packages.fetch(phoneme_model.PACKAGES[0], Path(self._folder.name))
        with zipfile.ZipFile(wheel) as archive:
            archive.extractall(self._folder.name)
        sys.path.insert(0, self._folder.name)
        self._model = importlib.import_module("hama").G2PModel()

    def phonemes(self, word: str) -> list[int]:
        letters = re.sub(r"[^a-z']", "", word.lower())
        if not letters:
            return []
        found = self._model(letters).alignments
        return [self._known[each.phoneme] for each in found if each.phoneme in self._known]


class Aligner:
    """Forced alignment: the best path of the words' phonemes through the model's scores (Viterbi)."""

    def __init__(self) -> None:
        folder = MODELS / "wav2vec2"
        vocabulary: dict[str, int] = json.loads((folder / "english-phonemes.json").read_text(encoding="utf-8"))
        self._session = onnxruntime.InferenceSession(folder / "english-phonemes.onnx")
        self._blank, self._boundary = vocabulary["<pad>"], vocabulary["|"]
        self._pronouncer = Pronouncer(vocabulary)

    def align(self, words: Sequence[TimedWord], audio: Any) -> list[Stretch | None]:
        """Start and end of each word in the audio; none for words that cannot be pronounced (numbers)."""
        symbols: list[int] = []
        owner: list[int] = []
        for number, word in enumerate(words):
            for phoneme in self._pronouncer.phonemes(word.word):
                symbols.append(phoneme)
                owner.append(number)
            symbols.append(self._boundary)
            owner.append(-1)
        path = self._best_path(symbols, self._scores(audio))
        times: dict[int, Stretch] = {}
        for frame, symbol in enumerate(path):
            if symbol is not None and owner[symbol] >= 0:
                start, _ = times.get(owner[symbol], (frame * FRAME, 0.0))
                times[owner[symbol]] = (start, (frame + 1) * FRAME)
        return [times.get(number) for number in range(len(words))]

    def _scores(self, audio: Any) -> Any:
        standard = (audio - audio.mean()) / max(float(audio.std()), 1e-6)
        return self._session.run(None, {"samples": standard[None].astype(np.float32)})[0][0]

    def _best_path(self, symbols: list[int], scores: Any) -> list[int | None]:
        """The index of the symbol that each frame belongs to; none for the blank between them."""
        states = np.full(2 * len(symbols) + 1, self._blank)
        states[1::2] = symbols
        may_skip = np.zeros(len(states), np.bool_)
        may_skip[3::2] = states[3::2] != states[1:-2:2]
        worst = -1e9
        best = np.full(len(states), worst)
        best[:2] = scores[0, states[:2]]
        came_from = np.zeros((len(scores), len(states)), np.int8)
        for frame in range(1, len(scores)):
            one = np.concatenate([[worst], best[:-1]])
            two = np.where(may_skip, np.concatenate([[worst, worst], best[:-2]]), worst)
            choices = np.stack([best, one, two])
            came_from[frame] = choices.argmax(axis=0)
            best = choices.max(axis=0) + scores[frame, states]
        state = len(states) - 1 - int(best[-2] > best[-1])
        path: list[int | None] = []
        for frame in range(len(scores) - 1, -1, -1):
            path.append(state // 2 if state % 2 else None)
            state -= int(came_from[frame, state])
        return path[::-1]


def voice_stretches(audio: Any) -> list[Stretch]:
    """Speech as the voice detector hears it."""
    padded = np.pad(audio, (0, 512 - len(audio) % 512))
    return joined(np.ravel(vad.get_vad_model()(padded)) >= 0.5, 512 / SAMPLING_RATE)


def loud_stretches(audio: Any) -> list[Stretch]:
    """Sound that stands out from the noise of the pauses, in steps of 5 ms."""
    step = SAMPLING_RATE // 200
    frames = audio[: len(audio) // step * step].reshape(-1, step)
    level = 10 * np.log10((frames**2).mean(axis=1) + 1e-10)
    smooth = np.convolve(level, np.ones(3) / 3, mode="same")
    floor, peak = np.percentile(smooth, (5, 95))
    return joined(smooth > floor + 0.35 * (peak - floor), step / SAMPLING_RATE)


def joined(flags: Any, step: float) -> list[Stretch]:
    """Stretches of true flags between pauses."""
    edges = np.flatnonzero(np.diff(np.concatenate([[0], flags.astype(np.int8), [0]])))
    stretches: list[Stretch] = []
    for begin, end in zip(edges[::2] * step, edges[1::2] * step):
        if stretches and begin - stretches[-1][1] < PAUSE:
            stretches[-1] = (stretches[-1][0], float(end))
        elif end - begin > 0.03:
            stretches.append((float(begin), float(end)))
    return stretches


def errors(words: Sequence[TimedWord], stretches: Sequence[Stretch]) -> Errors:
    # A number is one word in writing and several in speech, with pauses in between.
    numbers = [word for word in words if re.search(r"\d", word.word)]

    def counts(time: float) -> bool:
        return not any(word.start - 0.1 < time < word.end + 0.1 for word in numbers)

    return Errors([min(abs(word.start - begin) for word in words) for begin, _ in stretches if counts(begin)],
                  [min(abs(word.end - end) for word in words) for _, end in stretches if counts(end)])


def fitted_before(tree: Path) -> Any:
    """The fit of another source tree."""
    spec = importlib.util.spec_from_file_location("before", tree / "python/FasterWhisperTranscriber/word_times.py")
    assert spec is not None and spec.loader is not None
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def fit_all(segments: Sequence[Sequence[TimedWord]], sound: Sound) -> list[list[TimedWord]]:
    """The words of a voiced span, segment by segment, as the module fits them."""
    fitted = [fit_words(words, sound) for words in segments]
    for words, following in zip(fitted, [*fitted[1:], []]):
        words[-1] = fit_last_word(words[-1], following[0] if following else None, sound)
    return fitted


def all_ways(recogniser: Transcriber, aligner: Aligner, before: Any, audio: Any) -> dict[str, list[TimedWord]]:
    """The words of a recording with times from its start."""
    ways: dict[str, list[TimedWord]] = {"recogniser": [], "fitted before": [], "fitted to sound": [],
                                        "forced alignment": []}
    for span in vad.get_speech_timestamps(audio):
        samples = audio[span["start"] : span["end"]]
        offset = span["start"] / SAMPLING_RATE
        sound = Sound(samples, SAMPLING_RATE)
        segments, _ = recogniser._model.transcribe(samples, language="en", **DECODING)
        recognised = [[TimedWord(float(w.start), float(w.end), w.word.strip(), float(w.probability)) for w in one.words]
                      for one in segments if one.words]
        for own, fitted in zip(recognised, fit_all(recognised, sound)):
            begin = max(0.0, fitted[0].start - MARGIN)
            end = fitted[-1].end + MARGIN
            piece = samples[int(begin * SAMPLING_RATE) : int(end * SAMPLING_RATE)]
            found = aligner.align(fitted, piece)
            ways["recogniser"] += shifted(own, offset)
            if before:
                ways["fitted before"] += shifted(before.fit_words(own, before.Sound(samples, SAMPLING_RATE)), offset)
            ways["fitted to sound"] += shifted(fitted, offset)
            ways["forced alignment"] += shifted([
                word if times is None else moved(word, times[0] + begin, times[1] + begin)
                for word, times in zip(fitted, found)], offset)
    return ways


def moved(word: TimedWord, start: float, end: float) -> TimedWord:
    agree = abs(start - word.start) <= AGREEMENT and abs(end - word.end) <= AGREEMENT
    return word._replace(start=start, end=end) if agree else word


def shifted(words: Sequence[TimedWord], offset: float) -> list[TimedWord]:
    return [word._replace(start=word.start + offset, end=word.end + offset) for word in words]


def summary(values: Sequence[float]) -> str:
    off = float(np.mean(np.array(values) > 0.2))
    return f"{np.median(values):7.3f} {np.percentile(values, 95):7.3f} {max(values):7.3f} {off:8.1%}"


def main() -> None:
    parser = argparse.ArgumentParser(description=(__doc__ or "").splitlines()[0])
    parser.add_argument("--against", type=Path, metavar="TREE", help="fit as another source tree does, too")
    tree = parser.parse_args().against
    recogniser, aligner, before = Transcriber(str(MODELS)), Aligner(), fitted_before(tree) if tree else None
    judges = {"voice detector": voice_stretches, "level of the signal": loud_stretches}
    totals: dict[tuple[str, str], Errors] = {}
    for name in RECORDINGS:
        with wave.open(str(SPEECH / f"{name}.wav")) as file:
            audio = np.frombuffer(file.readframes(file.getnframes()), np.int16) / np.float32(32768)
        ways = {way: words for way, words in all_ways(recogniser, aligner, before, audio).items() if words}
        for judge, detect in judges.items():
            stretches = detect(audio)
            for way, words in ways.items():
                found = errors(words, stretches)
                total = totals.setdefault((judge, way), Errors([], []))
                total.starts.extend(found.starts)
                total.ends.extend(found.ends)
        print(f"{name}: {len(ways['recogniser'])} words", flush=True)
    for judge in judges:
        sample = totals[judge, "recogniser"]
        print(f"\nagainst the {judge}: {len(sample.starts)} starts, {len(sample.ends)} ends; seconds")
        print(f"{'':18} starts: median    95 %    max  > 0.2 s    ends: median    95 %    max  > 0.2 s")
        for way in (way for of, way in totals if of == judge):
            total = totals[judge, way]
            print(f"{way:18}       {summary(total.starts)}          {summary(total.ends)}")


if __name__ == "__main__":
    main()
