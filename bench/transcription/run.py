#!/usr/bin/env python3
"""Measures the whole transcription module against the recogniser alone, on one long recording of real speech.

    .deps/venv/bin/python bench/transcription/run.py [--minutes N] [--rounds N]

The peers are faster-whisper on the same voiced spans with the same model and settings, and faster-whisper as its users
call it: once, with its own voice filter. Each round runs all of them in turn; printed are medians, in seconds of
processor time and of the clock, and the ratio of processor time to that of the first peer.
"""

from __future__ import annotations

import argparse
import sys
import time
import wave
from collections.abc import Callable
from pathlib import Path
from statistics import median
from typing import Any

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "python"), str(ROOT / "kestrelml" / "pySources")]

import numpy as np
import numpy.typing as npt
from faster_whisper import WhisperModel, vad

from FasterWhisperTranscriber.model_folder import find_model_folder
from FasterWhisperTranscriber.transcriber import DECODING
from SpeechToText import WhisperTranscriptionImpl as module

MODELS = ROOT / ".deps" / "models"
SPEECH = ROOT / ".deps" / "speech"
SAMPLE_RATE = 16000

Samples = npt.NDArray[np.int16]
Words = int


def recording(minutes: int) -> Samples:
    """English prompts, with the pauses between them, until there are enough minutes."""
    prompts = sorted((SPEECH / "voices" / "en_allison").glob("*.wav")) + [SPEECH / "english_long.wav"]
    pause = np.zeros(SAMPLE_RATE * 3 // 2, np.int16)
    pieces: list[Samples] = []
    missing = minutes * 60 * SAMPLE_RATE
    while missing > 0:
        for path in prompts:
            with wave.open(str(path)) as file:
                pieces += [np.frombuffer(file.readframes(file.getnframes()), np.int16), pause]
            missing -= len(pieces[-2]) + len(pause)
    return np.concatenate(pieces)[: minutes * 60 * SAMPLE_RATE]


def with_module(samples: Samples, speakers: bool) -> Words:
    module.doSpeakerID = speakers
    for start in range(0, len(samples), 30 * SAMPLE_RATE):
        chunk = samples[start : start + 30 * SAMPLE_RATE]
        module.stt_upload_audio_func({
            "start_sample": start, "end_sample": start + len(chunk), "mediaGuid": "clip", "projectGuid": "bench",
            "audioSamples": chunk,
        })
    answer: dict[str, Any] = module.stt_finalize_func({
        "total_samples": len(samples), "mediaGuid": "clip", "projectGuid": "bench", "audioTracks": "1",
        "langCode": "en",
    })
    if not answer["success"]:
        raise SystemExit(answer["error"])
    return sum(len(segment["wordStartsMS"]) for segment in answer["transcriptSegments"])


def count_words(segments: Any) -> Words:
    return sum(len(segment.words) for segment in segments)


def recogniser_on_spans(model: WhisperModel, samples: Samples) -> Words:
    audio = samples.astype(np.float32) / 32768.0
    return sum(
        count_words(model.transcribe(audio[span["start"] : span["end"]], language="en", **DECODING)[0])
        for span in vad.get_speech_timestamps(audio)
    )


def recogniser_by_custom(model: WhisperModel, samples: Samples) -> Words:
    audio = samples.astype(np.float32) / 32768.0
    return count_words(model.transcribe(audio, language="en", word_timestamps=True, vad_filter=True)[0])


def measure(run: Callable[[], Words]) -> tuple[float, float, Words]:
    clock, processor = time.perf_counter(), time.process_time()
    words = run()
    return time.process_time() - processor, time.perf_counter() - clock, words


def main() -> None:
    parser = argparse.ArgumentParser(description=(__doc__ or "").splitlines()[0])
    parser.add_argument("--minutes", type=int, default=10)
    parser.add_argument("--rounds", type=int, default=1)
    options = parser.parse_args()

    samples = recording(options.minutes)
    module.set_stt_model_dir_func({"modelDir": str(MODELS)})
    module.create_transcriber()
    model = WhisperModel(str(find_model_folder(str(MODELS))), device="cpu", compute_type="int8")
    contenders: dict[str, Callable[[], Words]] = {
        "faster-whisper, same spans and settings": lambda: recogniser_on_spans(model, samples),
        "faster-whisper, one call, its voice filter": lambda: recogniser_by_custom(model, samples),
        "the module, speakers off": lambda: with_module(samples, speakers=False),
        "the module, speakers on": lambda: with_module(samples, speakers=True),
    }
    taken: dict[str, list[tuple[float, float, Words]]] = {name: [] for name in contenders}
    for _ in range(options.rounds):
        for name, run in contenders.items():
            taken[name].append(measure(run))

    print(f"{len(samples) / SAMPLE_RATE / 60:.1f} minutes of speech, {options.rounds} round(s)")
    print(f"{'':44} processor s   clock s   ratio   words")
    reference = median(processor for processor, _, _ in next(iter(taken.values())))
    for name, runs in taken.items():
        processor, clock = (median(values) for values in list(zip(*runs))[:2])
        print(f"{name:44} {processor:11.1f} {clock:9.1f} {processor / reference:7.2f} {runs[-1][2]:7}")


if __name__ == "__main__":
    main()
