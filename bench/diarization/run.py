#!/usr/bin/env python3
"""Measures speaker diarization on conversations cut together from recordings of single voices.

    .deps/venv/bin/python bench/diarization/run.py [--conversations N] [--seed N] [--set tuning|unseen] [--verbose]

Prints, by number of voices: confusion and missed speech as shares of the true speech, transcript segments (one a true
turn) given to the wrong speaker, conversations whose number of voices was found, and the real-time factor. The
parameters of python/diarize were chosen on the tuning voices alone; the unseen ones tell what to expect.
"""

from __future__ import annotations

import argparse
import random
import sys
import time
from collections.abc import Iterator, Sequence
from dataclasses import dataclass
from pathlib import Path
from statistics import fmean

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "python")]

import onnxruntime
from faster_whisper import vad

from conversations import SAMPLE_RATE, Conversation, converse
from diarize import clustering, make_rttm, utils
from scoring import Score, score

VOICES = {
    "tuning": ("en_allison", "fr_june", "it_carlo", "es_colombia", "cs_small_fish", "cs_big_fish"),
    "unseen": ("it_menardi", "ru_ivrvoice", "fr_armelle", "nl_small_fish", "nl_big_fish"),
}
_LENGTHS = (60, 90, 150)
_SPARSITY = 0.01


@dataclass(frozen=True)
class Result:
    score: Score
    seconds: float
    spent: float


def main() -> None:
    options = _options()
    session = clustering.init_session(ROOT / ".deps/models/diarize/KestrelDiarize.onnx", "cpu")
    for name in [options.set] if options.set else VOICES:
        print(f"{name} voices: {', '.join(VOICES[name])}")
        print("  voices  conversations  confusion  missed  wrong segments  count right  real-time factor")
        results = [_measure(conversation, session, options.verbose)
                   for conversation in _conversations(VOICES[name], options.conversations, options.seed)]
        for voices in sorted({result.score.true for result in results}):
            _print_row(str(voices), [result for result in results if result.score.true == voices])
        _print_row("2 to 4", [result for result in results if 2 <= result.score.true <= 4])


def _options() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=(__doc__ or "").splitlines()[0])
    parser.add_argument("--conversations", type=int, default=8, metavar="N",
                        help="for each number of voices (%(default)s)")
    parser.add_argument("--seed", type=int, default=1, help="other seeds cut other conversations (%(default)s)")
    parser.add_argument("--set", choices=sorted(VOICES), help="only these voices")
    parser.add_argument("--verbose", action="store_true", help="a line for every conversation")
    return parser.parse_args()


def _conversations(voices: Sequence[str], each: int, seed: int) -> Iterator[Conversation]:
    chance = random.Random(seed)
    folder = ROOT / ".deps/speech/voices"
    for count in range(1, 6):
        for index in range(each):
            chosen = chance.sample(voices, count)
            yield converse(" ".join(chosen), [folder / voice for voice in chosen], chance.choice(_LENGTHS),
                           seed=(seed * 10 + count) * 1000 + index)


def _measure(conversation: Conversation, session: onnxruntime.InferenceSession, verbose: bool) -> Result:
    spans = vad.get_speech_timestamps(conversation.audio)
    segments = [_segment(turn.begin, turn.end) for turn in conversation.turns]
    start = time.perf_counter()
    vad_range, vad_segments = utils.process_vadsegments(spans, SAMPLE_RATE)
    windows, vectors = clustering.compute_embeddings(conversation.audio, vad_segments, vad_range, session)
    labels = clustering.cluster(vectors, _SPARSITY, max_num_spks=len(segments))
    turns = make_rttm.merge_segments(make_rttm.read_labels(windows, labels))
    make_rttm.merge_outputs(turns, segments, True)
    spent = time.perf_counter() - start
    result = Result(score(conversation, turns, [str(segment["speakerID"]) for segment in segments]),
                    conversation.seconds, spent)
    if verbose:
        count = f"{result.score.found}/{result.score.true}"
        print(f"    {count} confusion {result.score.confusion:6.1%} {conversation.name}")
    return result


def _segment(begin: float, end: float) -> dict[str, object]:
    return {"words": [{"startMs": round(begin * 1000), "endMs": round(end * 1000)}]}


def _print_row(title: str, results: Sequence[Result]) -> None:
    scores = [result.score for result in results]
    print(f"  {title:6}  {len(results):13}  {fmean(one.confusion for one in scores):9.2%}"
          f"  {fmean(one.missed for one in scores):6.2%}  {fmean(one.wrong_segments for one in scores):14.2%}"
          f"  {fmean(one.found == one.true for one in scores):11.0%}"
          f"  {sum(result.spent for result in results) / sum(result.seconds for result in results):16.4f}", flush=True)


if __name__ == "__main__":
    main()
