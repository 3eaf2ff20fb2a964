#!/usr/bin/env python3
"""Measures who is said to speak, in conversations cut together from recordings of single voices.

    .deps/venv/bin/python bench/diarization/run.py [--conversations N] [--voices N…] [--seed N] [--set tuning|unseen|pairs]
                                                   [--telephone] [--answers SHARE] [--interruptions SHARE]
                                                   [--against TREE] [--keep FOLDER] [--verbose]

The whole way is gone: voiced spans, recognised words, speaker turns, and the names that the words' segments get. Prints,
by number of voices: confusion and missed speech as shares of the true speech, words under a wrong name as a share of all
words, segments that hold words of two voices, conversations whose number of voices was found, and the real-time factor
of telling the speakers apart. The parameters of python/diarize were chosen on the tuning voices alone; the unseen ones
tell what to expect. With --against, the speaker package of another source tree is measured on the same words.
"""

from __future__ import annotations

import argparse
import copy
import hashlib
import importlib
import json
import random
import sys
import time
from collections.abc import Iterator, Sequence
from dataclasses import dataclass
from pathlib import Path
from statistics import fmean
from typing import Any

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "python"), str(ROOT / "kestrelml/pySources")]

from faster_whisper import vad
from SpeechToText import WhisperTranscriptionImpl as speech

from conversations import SAMPLE_RATE, Conversation, converse
from scoring import Score, score
from voice_sets import VOICES

# Two voices of one language, which is told to the recogniser: it cannot end a phrase where the language changes.
PAIRS = (("es_allison", "es_colombia"), ("cs_small_fish", "cs_big_fish"), ("fr_june", "fr_armelle"),
         ("it_carlo", "it_menardi"), ("nl_small_fish", "nl_big_fish"), ("en_allison", "en_librivox"))
MODELS = ROOT / ".deps/models"
_FOLDER = ROOT / ".deps/speech/voices"
_LENGTHS = (60, 90, 150)
_SPARSITY = 0.01


@dataclass(frozen=True)
class Result:
    score: Score
    seconds: float
    spent: float


class SpeakerPackage:
    """The package `diarize` of a source tree."""

    def __init__(self, tree: Path) -> None:
        self.name = "before" if tree != ROOT else "now"
        for module in [name for name in sys.modules if name.split(".")[0] == "diarize"]:
            del sys.modules[module]
        sys.path.insert(0, str(tree / "python"))
        self._clustering, self._rttm, self._utils = (
            importlib.import_module(f"diarize.{name}") for name in ("clustering", "make_rttm", "utils"))
        sys.path.pop(0)
        self._session = self._clustering.init_session(MODELS / "diarize/KestrelDiarize.onnx", "cpu")

    def name_speakers(self, audio: Any, spans: Any, segments: list[Any]) -> Any:
        """The turns; the segments get their speakers in place."""
        vad_range, vad_segments = self._utils.process_vadsegments(spans, SAMPLE_RATE)
        windows, vectors = self._clustering.compute_embeddings(audio, vad_segments, vad_range, self._session)
        labels = self._clustering.cluster(vectors, _SPARSITY, max_num_spks=max(1, len(segments)))
        turns = self._rttm.merge_segments(self._rttm.read_labels(windows, labels))
        self._rttm.merge_outputs(turns, segments, True)
        return turns


def main() -> None:
    options = _options()
    packages = [SpeakerPackage(tree.resolve()) for tree in options.against] + [SpeakerPackage(ROOT)]
    speech.set_stt_model_dir_func({"modelDir": str(MODELS)})
    for name in [options.set] if options.set else [*VOICES, "pairs"]:
        print(f"{name} voices{', by telephone' if options.telephone else ''}")
        print("          voices  conversations  confusion  missed  wrong words  mixed segments  count right  "
              "real-time factor")
        results: dict[str, list[Result]] = {package.name: [] for package in packages}
        conversations = _pairs(options) if name == "pairs" else _conversations(VOICES[name], options)
        for conversation, language in conversations:
            spans, words = _recognised(conversation, language, options.keep)
            for package in packages:
                results[package.name].append(_measure(conversation, package, spans, words, options.verbose))
        for package in packages:
            _print_rows(package.name, results[package.name])


def _options() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=(__doc__ or "").splitlines()[0])
    parser.add_argument("--conversations", type=int, default=4, metavar="N",
                        help="for each number of voices (%(default)s)")
    parser.add_argument("--voices", type=int, nargs="+", default=[1, 2, 3, 4], metavar="N", help="numbers of voices")
    parser.add_argument("--seed", type=int, default=1, help="other seeds cut other conversations (%(default)s)")
    parser.add_argument("--set", choices=[*VOICES, "pairs"], help="only these voices")
    parser.add_argument("--telephone", action="store_true", help="as a telephone line carries them")
    parser.add_argument("--answers", type=float, default=0.25, metavar="SHARE", help="turns that are short answers (%(default)s)")
    parser.add_argument("--interruptions", type=float, default=0.0, metavar="SHARE",
                        help="turns that begin up to a second before the last one has ended (%(default)s)")
    parser.add_argument("--against", type=Path, action="append", default=[], metavar="TREE",
                        help="measure the speaker package of another source tree, too")
    parser.add_argument("--keep", type=Path, metavar="FOLDER", help="keep recognised words there, for another run")
    parser.add_argument("--verbose", action="store_true", help="a line for every conversation")
    return parser.parse_args()


def _conversations(voices: Sequence[str], options: argparse.Namespace) -> Iterator[tuple[Conversation, None]]:
    for count in options.voices:
        chance = random.Random(options.seed * 100 + count)
        for index in range(options.conversations):
            chosen = chance.sample(voices, count)
            yield converse(" ".join(chosen), [_FOLDER / voice for voice in chosen], chance.choice(_LENGTHS),
                           seed=(options.seed * 10 + count) * 1000 + index, **_manner(options)), None


def _pairs(options: argparse.Namespace) -> Iterator[tuple[Conversation, str]]:
    for number, pair in enumerate(PAIRS):
        for index in range(max(1, options.conversations // 2)):
            yield converse(" ".join(pair), [_FOLDER / voice for voice in pair], _LENGTHS[0],
                           seed=(options.seed * 10 + number) * 1000 + index, **_manner(options)), pair[0][:2]


def _manner(options: argparse.Namespace) -> dict[str, Any]:
    return {"by_telephone": options.telephone, "answers": options.answers, "interruptions": options.interruptions}


def _recognised(conversation: Conversation, language: str | None, keep: Path | None) -> tuple[Any, list[Any]]:
    spans = vad.get_speech_timestamps(conversation.audio)
    kept = keep and keep / f"{hashlib.sha256(conversation.audio.tobytes()).hexdigest()[:16]}.json"
    if kept and kept.is_file():
        return spans, json.loads(kept.read_text(encoding="utf-8"))
    speech.create_transcriber()
    segments = speech.transcribe_audio(conversation.audio, spans, language, speech.PostProcessingOptions())
    if kept:
        kept.parent.mkdir(parents=True, exist_ok=True)
        kept.write_text(json.dumps(segments), encoding="utf-8")
    return spans, segments


def _measure(conversation: Conversation, package: SpeakerPackage, spans: Any, words: list[Any],
             verbose: bool) -> Result:
    segments = copy.deepcopy(words)
    start = time.perf_counter()
    turns = package.name_speakers(conversation.audio, spans, segments)
    spent = time.perf_counter() - start
    result = Result(score(conversation, turns, segments), conversation.seconds, spent)
    if verbose:
        one = result.score
        print(f"    {package.name:6} {one.found}/{one.true} confusion {one.confusion:6.1%} wrong words "
              f"{one.wrong_words:6.1%} {conversation.name}", flush=True)
    return result


def _print_rows(package: str, results: Sequence[Result]) -> None:
    for voices in sorted({result.score.true for result in results}):
        _print_row(package, str(voices), [result for result in results if result.score.true == voices])
    _print_row(package, "all", results)


def _print_row(package: str, title: str, results: Sequence[Result]) -> None:
    scores = [result.score for result in results]
    print(f"  {package:6}  {title:6}  {len(results):13}  {fmean(one.confusion for one in scores):9.2%}"
          f"  {fmean(one.missed for one in scores):6.2%}  {fmean(one.wrong_words for one in scores):11.2%}"
          f"  {fmean(one.mixed_segments for one in scores):14.2%}"
          f"  {fmean(one.found == one.true for one in scores):11.0%}"
          f"  {sum(result.spent for result in results) / sum(result.seconds for result in results):16.4f}", flush=True)


if __name__ == "__main__":
    main()
