"""The recogniser as the transcription module sees it."""

from __future__ import annotations

from collections.abc import Iterable, Iterator
from typing import Any, NamedTuple, Optional

import ctranslate2
import joblib
import numpy as np
import numpy.typing as npt

from FasterWhisperTranscriber.model_folder import find_model_folder, model_size_of
from FasterWhisperTranscriber.short_window import ShortWindowModel
from FasterWhisperTranscriber.word_times import Sound, TimedWord, fit_words

Samples = npt.NDArray[np.float32]

SAMPLING_RATE = 16000
RANDOM_SEED = 1

DECODING: dict[str, Any] = {
    "word_timestamps": True,
    # A beam costs a fifth more than greedy search and saves a few words in every hundred.
    "beam_size": 5,
    # Carried into the next window, an error can become a loop or a hallucination that lasts for minutes.
    "condition_on_previous_text": False,
    # Sampling takes over when the best text is a loop or improbable. Three attempts, not the usual six: each costs a
    # full decoding, and what two temperatures do not fix is not speech.
    "temperature": (0.0, 0.4, 0.8),
    "compression_ratio_threshold": 2.4,
    "log_prob_threshold": -1.0,
    # Improbable text with at least this probability of silence is dropped.
    "no_speech_threshold": 0.6,
    # The module has found the voiced spans already; a second voice filter would only cut words.
    "vad_filter": False,
}


class RecognisedSegment(NamedTuple):
    """A stretch of recognised speech; times in seconds from the start of the samples."""

    start: float
    end: float
    text: str
    words: list[TimedWord]


class Transcriber:
    """A loaded Whisper model."""

    model_pkg = "faster-whisper"

    def __init__(self, model_dir: Optional[str]) -> None:
        folder = find_model_folder(model_dir)
        self.model_size = model_size_of(folder)
        self.model_device = "cuda" if ctranslate2.get_cuda_device_count() > 0 else "cpu"
        try:
            self._model = ShortWindowModel(
                str(folder),
                device=self.model_device,
                compute_type="float16" if self.model_device == "cuda" else "int8",
                cpu_threads=joblib.cpu_count(),  # respects affinity and container limits
            )
        except Exception as error:
            raise RuntimeError(f"the speech model in '{folder}' cannot be loaded: {error}") from error

    def transcribe(
        self, samples: Samples, selected_language: Optional[str]
    ) -> tuple[Iterator[RecognisedSegment], list[str]]:
        """The segments, recognised as they are consumed, and the language, which is detected when none is given."""
        segments, info = self._model.transcribe(samples, language=selected_language, **DECODING)
        return refine(segments, Sound(samples, SAMPLING_RATE)), [info.language]


def refine(segments: Iterable[Any], sound: Sound) -> Iterator[RecognisedSegment]:
    """The recogniser's segments with corrected word times."""
    ctranslate2.set_random_seed(RANDOM_SEED)  # the same audio gives the same transcript, sampled or not
    for segment in segments:
        recognised = [TimedWord(float(w.start), float(w.end), w.word, float(w.probability)) for w in segment.words]
        words = fit_words(recognised, sound)
        start, end = (words[0].start, words[-1].end) if words else (float(segment.start), float(segment.end))
        yield RecognisedSegment(start, end, segment.text, words)
